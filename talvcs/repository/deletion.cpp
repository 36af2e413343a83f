#include <talvcs/objects/commit_access.h>
#include <talvcs/repository/repository.h>

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

/// The branches by the instance of their head, each commit's in the order of the table. The storage
/// would look at every branch for each commit.
std::unordered_map<const Commit*, BranchNames> BranchesByHead(const RefTable& refs) {
  std::unordered_map<const Commit*, BranchNames> branches;
  for (const auto& [name, head] : refs) {
    if (head) branches[head.get()].push_back(name);
  }
  return branches;
}

}  // namespace

bool Repository::DeleteCommits(cow_ptr<Commit> commit) {
  if (m_storage == nullptr) return false;
  if (!commit || !CommitAccess::Parent(*commit)) return true;
  std::vector<cow_ptr<Commit>> kept;
  std::vector<BranchNames> branches_of_kept;
  auto branches = BranchesByHead(m_storage->GetRefs());
  for (cow_ptr<Commit> at = std::move(commit); at;) {
    const auto found = branches.find(at.get());
    if (found != branches.end()) {
      kept.push_back(at);
      kept.back().write()->SetParent(nullptr);
      branches_of_kept.push_back(std::move(found->second));
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
