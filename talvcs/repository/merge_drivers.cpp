#include <talvcs/merge/three_way_merge.h>
#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/repository/repository.h>

#include <utility>

// A merge commit has one parent, the former head; the incoming commit isn't linked:
//
//   A - B - C - M      current     M holds the merged tree of C and E over B
//       |
//       + - D - E      incoming    a later merge of E's branch starts from B again

namespace TalVcs {

namespace {

cow_ptr<Tree> RootOf(const cow_ptr<Commit>& commit) {
  const cow_ptr<CommitTree> handle = commit ? commit->GetTree() : nullptr;
  return handle ? handle->GetRoot() : nullptr;
}

}  // namespace

bool Repository::Merge(cow_ptr<Commit> commit, Resolvers resolvers) {
  IRepository& self = *this;
  if (!commit) return false;
  if (!self.GetHead()) return self.MoveBranchTo(self.GetCurentBranch(), std::move(commit));
  if (self.FastForwardMerge(commit)) return true;
  return self.Merge3Way(std::move(commit), std::move(resolvers));
}

bool Repository::FastForwardMerge(cow_ptr<Commit> commit) {
  IRepository& self = *this;
  if (!commit) return false;
  const cow_ptr<Commit> head = self.GetHead();
  if (!(self.GetCommonBase(head, commit) == head)) return false;
  return self.MoveBranchTo(self.GetCurentBranch(), std::move(commit));
}

bool Repository::Merge3Way(cow_ptr<Commit> commit, Resolvers resolvers) {
  IRepository& self = *this;
  if (!commit) return false;
  const cow_ptr<Commit> head = self.GetHead();
  if (!head) return false;
  const cow_ptr<Commit> base = self.GetCommonBase(head, commit);
  const cow_ptr<Commit> commits[] = {head, base, commit};
  CommitAccess::ExpectRoots(commits);
  MergeTrees trees{RootOf(head), RootOf(base), RootOf(commit)};
  cow_ptr<Tree> merged = ThreeWayMerge(this, std::move(trees), std::move(resolvers));
  if (!merged) return false;
  Commit merge_commit(head, false);
  merge_commit.ReplaceRoot(this, std::move(merged));
  return static_cast<bool>(self.DoCommit(merge_commit));
}

}  // namespace TalVcs
