#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/repository/repository.h>
#include <talvcs/storage/on_demand_storage.h>

#include <algorithm>
#include <utility>

// A line of history gets a new starting point; each commit is made again with a new parent, the
// oldest first, since its id depends on that of its parent:
//
//   A - B - C      tip C                          R - A' - B' - C'
//                                 becomes
//   R              new base                       A - B - C        until a purge
//
// No tree is looked at: contents, authors, times and texts stay.

namespace TalVcs {

namespace {

cow_ptr<Commit> MakeRootCommit() {
  cow_ptr<Commit> commit;
  commit.write()->SetDescription(TalStringT<WideChar>(TAL_WIDE("Root commit")));
  return commit;
}

/// Reads the ancestors of `head` up to the common base with `root`, or all.
void ReadUpTo(const Repository& repository, const cow_ptr<Commit>& root,
              const cow_ptr<Commit>& head) {
  if (root) repository.GetCommonBase(head, root);
  if (root || !head) return;
  for (const Commit* at = head.get(); at != nullptr;) at = CommitAccess::Parent(*at).get();
}

/// Returns the tip and its ancestors above the stop, the oldest first. A tip that is the stop comes
/// alone.
std::vector<cow_ptr<Commit>> CollectChain(cow_ptr<Commit> tip, const cow_ptr<Commit>& stop) {
  std::vector<cow_ptr<Commit>> chain;
  if (tip == stop) {
    chain.push_back(std::move(tip));
    return chain;
  }
  for (cow_ptr<Commit> at = std::move(tip); at && !(at == stop); at = chain.back()->GetParent()) {
    chain.push_back(at);
  }
  std::reverse(chain.begin(), chain.end());
  return chain;
}

}  // namespace

bool Repository::EnsureCommonRootFor(TalStringViewT<WideChar> first,
                                     TalStringViewT<WideChar> second,
                                     TalStringViewT<WideChar> rootBranch) {
  IRepository& self = *this;
  const cow_ptr<Commit> first_head = self.GetHead(first);
  const cow_ptr<Commit> second_head = self.GetHead(second);
  if (first_head && second_head && self.GetCommonBase(first_head, second_head)) return true;
  cow_ptr<Commit> root = self.GetHead(rootBranch);
  // All that is walked over is read before a branch changes, so that a link that can't be followed
  // leaves all of them in place.
  if (OnDemandStorage::From(m_storage.get()) != nullptr) {
    for (const cow_ptr<Commit>& head : {first_head, second_head}) ReadUpTo(*this, root, head);
  }
  if (!root) {
    if (!self.CreateBranch(rootBranch, self.SyncWithStorage(MakeRootCommit()))) return false;
    root = self.GetHead(rootBranch);
    if (!root) return false;
  }
  return AttachToRoot(first, root) && AttachToRoot(second, root);
}

bool Repository::AttachToRoot(TalStringViewT<WideChar> branch, const cow_ptr<Commit>& root) {
  IRepository& self = *this;
  const cow_ptr<Commit> head = self.GetHead(branch);
  if (!head) return self.CreateBranch(branch, root) || self.MoveBranchTo(branch, root);
  if (self.GetCommonBase(head, root)) return true;
  return self.MoveBranchTo(branch, MergelessRebase(head, nullptr, root));
}

cow_ptr<Commit> Repository::MergelessRebase(cow_ptr<Commit> tip, cow_ptr<Commit> stop,
                                            cow_ptr<Commit> newBase) {
  if (!tip || !newBase) return nullptr;
  std::vector<cow_ptr<Commit>> chain = CollectChain(std::move(tip), stop);
  cow_ptr<Commit> previous = std::move(newBase);
  for (cow_ptr<Commit>& commit : chain) {
    // From here on the chain hangs on what has been rewritten.
    if (CommitAccess::Parent(*commit) == previous) break;
    CommitAccess::Rewrite(commit, std::move(previous), *this);
    previous = commit;
  }
  return chain.back();
}

cow_ptr<Commit> Repository::MergelessRebase(TalStringViewT<WideChar> branch,
                                            TalStringViewT<WideChar> onto) {
  const IRepository& self = *this;
  cow_ptr<Commit> tip = self.GetHead(branch);
  cow_ptr<Commit> base = self.GetHead(onto);
  cow_ptr<Commit> stop = self.GetCommonBase(tip, base);
  return MergelessRebase(std::move(tip), std::move(stop), std::move(base));
}

}  // namespace TalVcs
