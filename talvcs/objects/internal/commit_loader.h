#pragma once

#include <talvcs/format/internal/commit_format.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/internal/id_map.h>
#include <talvcs/objects/internal/load_target.h>
#include <talvcs/objects/internal/stream_text.h>
#include <talvcs/objects/internal/tree_loader.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace TalVcs {

/// Reads the packed commits of one load with their trees. No stream is read twice.
///
/// A commit that is its own ancestor is unreadable where the cycle closes.
class CommitLoader {
 public:
  using Getter = Delegate<StreamIO(const Id&)>;

  CommitLoader(IRepository& repository, Getter getter);
  CommitLoader(const CommitLoader&) = delete;
  CommitLoader& operator=(const CommitLoader&) = delete;

  /// Begins a line of history: the commits that are loaded from now on are ancestors of the first.
  void BeginHistory();
  /// Forgets the texts of the commits in the present line. The repository returns all of them.
  void ForgetHistory();

  /// Does what `Commit::Deserialize` says.
  cow_ptr<Commit> Load(const Id& id, Id& parentId);

 private:
  struct KnownCommit {
    StreamText text;
    std::optional<CommitFields> fields;  // views of the text; nothing for an unreadable commit
    std::uint64_t history = 0;           // the line in which it was last asked for
  };

  const CommitFields* ReadFields(const Id& id);

  IRepository* m_repository;
  Getter m_getter;
  LoadTarget m_target;
  TreeLoader m_trees;
  std::uint64_t m_history = 0;
  std::vector<Id> m_historyIds;
  IdMap<KnownCommit> m_commits;
  cow_ptr<Tree> m_lastRoot;
};

}  // namespace TalVcs
