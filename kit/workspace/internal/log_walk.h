#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/text/result.h>
#include <kit/workspace/internal/workspace_state.h>

#include <cstdint>
#include <optional>
#include <queue>
#include <vector>

namespace TalVcs::Kit {

/// Walks one history, or several together, each version once and before its parent. Of several, the
/// latest goes first. Of a single one, nothing is remembered; of several, some 70 bytes a version.
class LogWalk {
 public:
  /// Adds a history before the first step; null adds none.
  void Add(cow_ptr<Commit> head);
  /// Returns the next version, or null.
  cow_ptr<Commit> Next();

 private:
  struct Queued {
    std::int64_t time;
    std::uint64_t order;
    cow_ptr<Commit> commit;

    bool operator<(const Queued& other) const noexcept {
      return time != other.time ? time < other.time : order > other.order;
    }
  };

  void Put(cow_ptr<Commit> commit);

  std::priority_queue<Queued> m_queue;
  std::uint64_t m_heads = 0;
  IdMap m_seen;  // the heads; of several histories, all versions that were met
  std::uint64_t m_order = 0;
  cow_ptr<Commit> m_last;  // whose parent comes in with the next step
};

/// Returns true if a version fits the wishes other than the branch.
class LogFilter {
 public:
  /// `path` is the one of the options, as the core takes it.
  LogFilter(const LogOptions& options, WideString path)
      : m_options(options), m_path(std::move(path)) {}

  bool Takes(const Commit& commit);

 private:
  bool ChangesPath(const Commit& commit);

  const LogOptions& m_options;
  WideString m_path;
  cow_ptr<Tree> m_lastRoot;       // of the parent of the last version
  std::optional<Id> m_lastFound;  // what it has at the path
};

}  // namespace TalVcs::Kit
