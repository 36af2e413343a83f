// Two branches add files, a merge brings them together, and the history is saved to a folder and loaded.

#include <kit/directory_store.h>
#include <kit/save_repository.h>
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
  // Commit on the branch "master", which every repository starts with, and on a branch "topic".
  Repository repository(std::make_unique<MemObjectsStorage>());
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

  // Save to a folder. The store keeps its previous version until Commit succeeds.
  Kit::DirectoryStore store("quick-start-history");
  if (!Kit::SaveRepository(repository, store, TAL_WIDE("")) || !store.Commit()) {
    std::cerr << store.LastError() << '\n';
    return 1;
  }

  // Load everything into another repository.
  Repository loaded(std::make_unique<MemObjectsStorage>());
  if (!Deserializer(&store, TAL_WIDE("")).Deserialize(&loaded)) return 1;
  for (const auto& path : loaded.GetHead()->GetTree()->GetAllBlobPaths())
    std::cout << Kit::ToUtf8(path) << '\n';
}
