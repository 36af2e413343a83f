#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/internal/object_writer.h>
#include <kit/open/internal/reporter.h>
#include <kit/sharing/internal/new_history.h>
#include <kit/store/object_store.h>

#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// Copies what some commits reach and a store lacks, from another store to it.
///
/// The trees of some commits are read level by level, then their files together.
///
/// A fetch takes a thousand commits together. The target, which is near, is asked at each level, so
/// that the far store is read once a level, and only what the target lacks. A push takes 256
/// together. It first reads all levels of the trees that have changed, and then asks the far target
/// once for all of them and their files. So the calls of the far store follow the length of the
/// history and, for a fetch, the depth of the trees, but not the number of objects, except that no
/// call has more than some thousands.
///
/// Each object is checked, and is written after everything that it names. Memory: the new commits,
/// and the new trees of those that are taken together.
class Transfer {
 public:
  /// All arguments must outlive this object.
  Transfer(IObjectStore& from, IObjectStore& to, FarStore far, Reporter& reporter)
      : m_from(from),
        m_to(to),
        m_near(far == FarStore::Source ? to : from),
        m_far(far),
        m_reporter(reporter),
        m_history(from, to, far, reporter),
        m_writer(to, reporter) {}

  /// Copies. `known` are commits that the target had when the caller read its heads. Those that the
  /// copy relies on are looked for again, because a branch may have been removed meanwhile, except
  /// `guarded`: a head that the caller moves only from there. If any is gone, this fails with
  /// `Busy`. Called once. No head is moved.
  Status Run(std::span<const Id> heads, std::span<const Id> known, const Id& guarded = {});

  std::uint64_t NewCommits() const noexcept { return m_history.Commits().size(); }
  std::uint64_t WrittenObjects() const noexcept { return m_writer.WrittenObjects(); }
  std::uint64_t WrittenBytes() const noexcept { return m_writer.WrittenBytes(); }

 private:
  /// An object that the target may lack.
  struct Entry {
    Id id;
    ObjectType type = ObjectType::Tree;
    Id previous = {};  // as in StoredObject
  };
  struct HeldTree {
    Buffer packed;
    Id previous;
  };

  Status CopyCommits(std::span<const CommitRecord> commits);
  Result<std::vector<Entry>> FilesOf(std::vector<Entry> level);
  std::vector<Entry> RootsOf(std::span<const CommitRecord> commits);
  Status KeepMissing(std::vector<Entry>& entries);
  Status KeepMissingOfLevel(std::vector<Entry>& level);
  Status KeepMissingOfAll(std::vector<Entry>& found);
  Status FindMissing(std::span<const Entry> entries, IdMap& missing);
  Status ReadTrees(const std::vector<Entry>& level);
  Status ReadPrevious(const std::vector<Entry>& level);
  Result<std::vector<Entry>> EntriesBelow(const std::vector<Entry>& level);
  Status AddChanges(const HeldTree& tree, std::vector<Entry>& entries);
  const Buffer* PreviousOf(const HeldTree& tree) const;
  Status CopyFiles(const std::vector<Entry>& files);
  Status WriteTree(const Id& root);
  std::vector<Id> HeldSubtrees(const Id& tree) const;

  IObjectStore& m_from;
  IObjectStore& m_to;
  IObjectStore& m_near;
  FarStore m_far;
  Reporter& m_reporter;
  NewHistory m_history;
  ObjectWriter m_writer;
  std::vector<Entry> m_unproven;                     // known commits that are to be looked for
  IdMap m_met;                                       // what a tree added, with its type
  std::unordered_map<Id, HeldTree> m_trees;          // to be written
  std::unordered_map<Id, ReadProblem> m_unreadable;  // trees that the target may have
  std::unordered_map<Id, Buffer> m_previous;         // trees of commits that the target has
  std::unordered_map<Id, Id> m_roots;                // by the commit
};

}  // namespace TalVcs::Kit
