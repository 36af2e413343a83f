#include <talvcs/foundation/internal/exact_type.h>
#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/objects/internal/in_hand.h>
#include <talvcs/repository/repository.h>
#include <talvcs/storage/on_demand_storage.h>

#include <iterator>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

// Of a history its shape is kept: the tips of the branches and the forks where two of them part.
//
//   A - B - C - D      one                     B' - D'
//       |                         becomes      |
//       + - E - F      other                   + - F'
//
// Walking up from one tip after the other, the first commit that an earlier walk has stood on is
// the fork of the two, and above it everything is known. So each commit is visited once.

namespace TalVcs {

namespace {

using IdSet = std::unordered_set<Id>;

/// What is kept and how it hangs together.
struct KeptGraph {
  IdSet kept;
  std::unordered_map<Id, std::vector<Id>> children;
  IdSet linked;  // those that have a kept ancestor
};

/// Adds every commit at which the histories of two heads part, or at which one ends.
void CollectForks(const std::vector<const Commit*>& heads, IdSet& kept) {
  IdSet visited;
  for (const Commit* at : heads) {
    for (; at != nullptr; at = CommitAccess::Parent(*at).get()) {
      const Id& id = CommitAccess::GetId(*at);
      if (visited.insert(id).second) continue;
      kept.insert(id);
      break;
    }
  }
}

/// Adds the common base of each two branches, for a host's repository, which may find another one.
void AskForForks(const RefTable& refs, const IRepository& repository, IdSet& kept) {
  for (auto earlier = refs.begin(); earlier != refs.end(); ++earlier) {
    for (auto later = std::next(earlier); later != refs.end(); ++later) {
      const cow_ptr<Commit> base = repository.GetCommonBase(earlier->second, later->second);
      if (base) kept.insert(base->GetId());
    }
  }
}

/// Links each kept commit above `tip` to the kept one below it. From a kept commit on where an
/// earlier walk has been, the rest is linked already.
void LinkAncestors(const Commit& tip, KeptGraph& graph, IdSet& visited) {
  Id current = CommitAccess::GetId(tip);
  visited.insert(current);
  for (const Commit* at = CommitAccess::Parent(tip).get(); at != nullptr;
       at = CommitAccess::Parent(*at).get()) {
    const Id& id = CommitAccess::GetId(*at);
    const bool known = !visited.insert(id).second;
    if (!graph.kept.contains(id)) continue;
    if (graph.linked.insert(current).second) graph.children[id].push_back(current);
    if (known) break;
    current = id;
  }
}

KeptGraph FindKeptGraph(const RefTable& refs, const Repository& repository,
                        const IObjectsStorage& storage) {
  KeptGraph graph;
  std::vector<const Commit*> heads;
  for (const auto& [name, head] : refs) {
    if (head && graph.kept.insert(head->GetId()).second) heads.push_back(head.get());
  }
  if (TalUtils::IsExactly<Repository>(repository)) {
    CollectForks(heads, graph.kept);
  } else {
    AskForForks(refs, repository, graph.kept);
  }
  IdSet visited;
  for (const Commit* head : heads) {
    if (const cow_ptr<Commit> tip = storage.GetCommit(head->GetId())) {
      LinkAncestors(*tip, graph, visited);
    }
  }
  return graph;
}

/// Reads the kept commits, before a branch moves.
void ReadKept(const KeptGraph& graph, const IObjectsStorage& storage) {
  if (OnDemandStorage::From(&storage) == nullptr) return;
  for (const Id& id : graph.kept) storage.GetCommit(id);
}

cow_ptr<Commit> FindInHand(const IObjectsStorage& storage, const Id& id) {
  const LookUpInHand in_hand;
  return storage.GetCommit(id);
}

/// Gives the kept commits their new parents, the oldest first, and takes the branches along.
void RewriteKept(const KeptGraph& graph, const RefTable& refs, IRepository& repository,
                 const IObjectsStorage& storage) {
  std::unordered_map<Id, std::vector<TalStringT<WideChar>>> branches;
  for (const auto& [name, head] : refs) {
    if (head) branches[head->GetId()].push_back(name);
  }
  struct Task {
    Id id;
    cow_ptr<Commit> parent;
  };
  std::vector<Task> tasks;
  for (const Id& id : graph.kept) {
    if (!graph.linked.contains(id)) tasks.push_back({id, nullptr});
  }
  while (!tasks.empty()) {
    const Task task = std::move(tasks.back());
    tasks.pop_back();
    cow_ptr<Commit> commit = FindInHand(storage, task.id);
    if (!commit) continue;
    CommitAccess::Rewrite(commit, task.parent, repository);
    const auto names = branches.find(task.id);
    if (names != branches.end()) {
      for (const auto& name : names->second) {
        if (repository.BranchExist(name)) {
          repository.MoveBranchTo(name, commit);
        } else {
          repository.CreateBranch(name, commit);
        }
      }
    }
    const auto children = graph.children.find(task.id);
    if (children == graph.children.end()) continue;
    for (const Id& child : children->second) tasks.push_back({child, commit});
  }
}

}  // namespace

bool Repository::SimplifyCommitGraph(bool updateStorage) {
  if (m_storage == nullptr) return false;
  {
    // The branches change on the way. The copy's handles have to go before the purge counts
    // holders.
    const RefTable refs = m_storage->GetRefs();
    const KeptGraph graph = FindKeptGraph(refs, *this, *m_storage);
    ReadKept(graph, *m_storage);
    RewriteKept(graph, refs, *this, *m_storage);
  }
  IRepository& self = *this;
  if (updateStorage) self.UpdateStorage();
  return true;
}

}  // namespace TalVcs
