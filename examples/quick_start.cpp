// Two branches add files, a merge brings them together, and the history is saved to a folder and
// opened again.

#include <kit/open/open.h>
#include <kit/open/save.h>
#include <kit/store/directory_object_store.h>
#include <kit/text.h>
#include <talvcs/talvcs.h>

#include <iostream>
#include <memory>

using namespace TalVcs;

void CommitFile(Repository& repository, const char* path, const char* text) {
  Commit commit(&repository, false);  // follows the head of the current branch
  commit.SetAuthorName(TAL_WIDE("Ada"));
  commit.SetDescription(TAL_WIDE("Add a file"));
  commit.AddBlob(&repository, Kit::ToWide(path), Kit::BlobFromBytes(text));
  repository.DoCommit(commit);
}

int main() {
  // Create a store in a folder and open it. value() returns the result, or throws the error.
  auto store = std::make_shared<Kit::DirectoryObjectStore>(
      Kit::DirectoryObjectStore::Create("quick-start-history").value());
  Kit::OpenedRepository opened = Kit::Open(store).value();
  Repository& repository = opened.GetRepository();

  // Commit on the branch "master", which a new repository starts with, and on a branch "topic".
  CommitFile(repository, "hello.txt", "Hello\n");
  repository.CreateBranch(TAL_WIDE("topic"), repository.GetHead());
  repository.Checkout(TAL_WIDE("topic"));
  CommitFile(repository, "topic/new.txt", "New\n");
  repository.Checkout(TAL_WIDE("master"));
  CommitFile(repository, "main.txt", "Main\n");

  // Merge entry by entry; where both sides changed one file, take the left one.
  const always_return_t<TreeConflictChoice> descend{TreeConflictChoice::Descend};
  const cow_ptr<Commit> topic = repository.GetHead(TAL_WIDE("topic"));
  if (!repository.Merge(topic, {AlwaysChooseLeft(), descend})) return 1;

  // Save what is new, and open the store again: objects are read when they are used.
  Kit::Save(opened).value();
  Kit::OpenedRepository again = Kit::Open(store).value();
  for (const auto& path : again->GetHead()->GetTree()->GetAllBlobPaths())
    std::cout << Kit::ToUtf8(path) << '\n';
}
