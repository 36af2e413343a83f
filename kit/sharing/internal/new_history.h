#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/internal/record_reader.h>
#include <kit/open/internal/reporter.h>
#include <kit/store/object_store.h>

#include <span>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// Which of the two stores of a transfer is far, so that each call of it takes long.
enum class FarStore {
  Source,  ///< Objects are fetched.
  Target,  ///< Objects are pushed.
};

/// Reads the commits that some heads reach and a store lacks.
class NewHistory {
 public:
  /// All arguments must outlive this object.
  NewHistory(IObjectStore& from, IObjectStore& to, FarStore far, Reporter& reporter)
      : m_from(from), m_to(to), m_far(far), m_reporter(reporter) {}

  /// Reads. `known` are commits that the target has. Called once. Calls of the far store: one for
  /// all heads, and one or two for a window of each history that goes on; windows double.
  Status Read(std::span<const Id> heads, std::span<const Id> known);

  /// Returns the commits, each after its parent.
  const std::vector<CommitRecord>& Commits() const noexcept { return m_commits; }

  /// Returns those of the caller's known commits at which a history ends, each once. The target
  /// hasn't been asked for them.
  const std::vector<Id>& KnownEnds() const noexcept { return m_knownEnds; }

 private:
  Status ReadHeads(std::span<const Id> heads);
  Status AddLine(const Id& head);
  Status ReadLine(const Id& first, std::vector<CommitRecord>& line);
  Result<bool> TakeNew(std::vector<CommitRecord> window, std::vector<CommitRecord>& line);
  Status NoteKnown(std::span<const Id> ids);
  bool IsKnown(const Id& id) const { return m_known.Contains(*KeyOf(id)); }
  void NoteEnd(const Id& id);
  Status CheckAskedEnds();

  IObjectStore& m_from;
  IObjectStore& m_to;
  FarStore m_far;
  Reporter& m_reporter;
  IdMap m_known;  // in the target, or in m_commits; and how it is known
  std::unordered_map<Id, CommitRecord> m_read;  // the heads
  std::vector<CommitRecord> m_commits;
  std::vector<Id> m_knownEnds;
  std::vector<Id> m_askedEnds;  // of a fetch
};

}  // namespace TalVcs::Kit
