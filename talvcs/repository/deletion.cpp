#include <talvcs/foundation/internal/exact_type.h>
#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/repository/repository.h>
#include <talvcs/storage/mem_objects_storage.h>
#include <talvcs/storage/on_demand_storage.h>

#include <unordered_map>
#include <utility>
#include <vector>

// History is cut at its old end. Of the run that goes, the commits on which a branch stands are
// kept and strung together:
//
//   A - B - C - D - E    DeleteCommits(D)       B - D'    and E, untouched, still holds D
//       |       |               becomes         |   |
//      old    stable                           old stable

namespace TalVcs {

namespace {

using BranchNames = std::vector<TalStringT<WideChar>>;

bool IsOwnStorage(const IObjectsStorage& storage) {
  return TalUtils::IsExactly<MemObjectsStorage>(storage) ||
         TalUtils::IsExactly<OnDemandStorage>(storage);
}

/// Finds the branches that stand on a commit. A host's storage is called for each commit. The
/// library's own storages would look at every branch each time, so their branches are sorted by
/// the instances of their heads first.
class BranchFinder {
 public:
  explicit BranchFinder(const IObjectsStorage& storage)
      : m_storage(storage), m_isSorted(IsOwnStorage(storage)) {
    if (!m_isSorted) return;
    for (const auto& [name, head] : storage.GetRefs()) {
      if (head) m_branches[head.get()].push_back(name);
    }
  }

  BranchNames Find(const cow_ptr<Commit>& commit) const {
    if (!m_isSorted) return m_storage.GetCommitBranches(commit);
    const auto found = m_branches.find(commit.get());
    return found == m_branches.end() ? BranchNames() : found->second;
  }

 private:
  const IObjectsStorage& m_storage;
  bool m_isSorted;
  std::unordered_map<const Commit*, BranchNames> m_branches;
};

}  // namespace

bool Repository::DeleteCommits(cow_ptr<Commit> commit) {
  if (m_storage == nullptr) return false;
  if (!commit || !CommitAccess::Parent(*commit)) return true;
  // All of the history is read before anything goes, so that a link that can't be followed leaves
  // everything in place.
  for (const Commit* at = commit.get(); at != nullptr;) at = CommitAccess::Parent(*at).get();
  std::vector<cow_ptr<Commit>> kept;
  std::vector<BranchNames> branches_of_kept;
  const BranchFinder branches(*m_storage);
  for (cow_ptr<Commit> at = std::move(commit); at;) {
    BranchNames names = branches.Find(at);
    if (!names.empty()) {
      kept.push_back(at);
      kept.back().write()->SetParent(nullptr);
      branches_of_kept.push_back(std::move(names));
    }
    m_storage->DeleteCommit(at);
    cow_ptr<Commit> parent = at->GetParent();
    at = std::move(parent);
  }
  if (kept.empty()) return true;
  Commit::MakeCommitLinksInOrder(kept, this);
  IRepository& self = *this;
  for (std::size_t index = 0; index < kept.size(); ++index) {
    for (const auto& name : branches_of_kept[index]) {
      if (!self.MoveBranchTo(name, kept[index])) break;
    }
  }
  // The purge counts holders, so the handles have to go first.
  kept.clear();
  self.UpdateStorage();
  return true;
}

}  // namespace TalVcs
