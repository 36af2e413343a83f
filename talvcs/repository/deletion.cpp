#include <talvcs/objects/commit_access.h>
#include <talvcs/repository/repository.h>

#include <unordered_set>
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

std::unordered_set<const Commit*> Heads(const RefTable& refs) {
  std::unordered_set<const Commit*> heads;
  for (const auto& [name, head] : refs) heads.insert(head.get());
  return heads;
}

}  // namespace

bool Repository::DeleteCommits(cow_ptr<Commit> commit) {
  if (m_storage == nullptr) return false;
  if (!commit || !CommitAccess::Parent(*commit)) return true;
  std::vector<cow_ptr<Commit>> kept;
  std::vector<std::vector<TalStringT<WideChar>>> branches_of_kept;
  const auto heads = Heads(m_storage->GetRefs());
  for (cow_ptr<Commit> at = std::move(commit); at;) {
    if (heads.contains(at.get())) {
      branches_of_kept.push_back(m_storage->GetCommitBranches(at));
      kept.push_back(at);
      kept.back().write()->SetParent(nullptr);
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
