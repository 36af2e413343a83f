// Commits, branches and merges in memory: two branches add to a folder, and a merge brings them
// together.

#include <talvcs/talvcs.h>

#include <iostream>
#include <memory>

namespace vcs = TalVcs;

int main() {
  vcs::Repository repository(std::make_unique<vcs::MemObjectsStorage>());
  vcs::Buffer text;
  vcs::Helpers::AppendToBuffer(text, "Hello\n");

  vcs::Commit first(&repository, false);  // follows the head of the current branch, "master"
  first.SetDescription(TAL_WIDE("Say hello"));
  first.AddBlob(&repository, TAL_WIDE("hello.txt"), vcs::Blob(text));
  repository.DoCommit(first);

  repository.CreateBranch(TAL_WIDE("topic"), repository.GetHead());
  repository.Checkout(TAL_WIDE("topic"));
  vcs::Commit second(&repository, false);
  second.AddBlob(&repository, TAL_WIDE("topic/new.txt"), vcs::Blob(text));
  repository.DoCommit(second);

  repository.Checkout(TAL_WIDE("master"));
  vcs::Commit third(&repository, false);
  third.AddBlob(&repository, TAL_WIDE("main.txt"), vcs::Blob(text));
  repository.DoCommit(third);

  const vcs::always_return_t<vcs::TreeConflictChoice> descend{vcs::TreeConflictChoice::Descend};
  const bool merged =
      repository.Merge(repository.GetHead(TAL_WIDE("topic")), {vcs::AlwaysChooseLeft(), descend});
  for (const auto& path : repository.GetHead()->GetTree()->GetAllBlobPaths())
    std::cout << TalUtils::DataEncoding::Utf8Encode(path) << '\n';
  return merged && repository.GetHead()->GetTree()->GetBlobCount() == 3 ? 0 : 1;
}
