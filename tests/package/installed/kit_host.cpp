// A host of the installed kit: saves a repository into a store in memory and into one in the folder
// that its argument names, and loads it back from both.

#include <kit/directory_store.h>
#include <kit/memory_store.h>
#include <kit/save_repository.h>
#include <kit/text.h>
#include <talvcs/talvcs.h>

#include <iostream>
#include <memory>

namespace vcs = TalVcs;

namespace {

/// Saves to the folder and loads again.
bool ComesBackFromFolder(vcs::Repository& repository, const char* folder) {
  using namespace TalVcs;
  Kit::DirectoryStore store(folder);
  const bool saved = Kit::SaveRepository(repository, store, TAL_WIDE("")) && store.Commit();
  if (!saved) std::cerr << store.LastError() << '\n';

  Repository loaded(std::make_unique<MemObjectsStorage>());
  const bool whole = Deserializer(&store, TAL_WIDE("")).Deserialize(&loaded);
  return saved && whole && loaded.GetHead()->GetId() == repository.GetHead()->GetId();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 1;
  vcs::Repository saved(std::make_unique<vcs::MemObjectsStorage>());
  vcs::Commit commit(&saved, false);
  commit.AddBlob(&saved, TAL_WIDE("hello.txt"), vcs::Kit::BlobFromBytes("Hello\n"));
  saved.DoCommit(commit);

  vcs::Kit::MemoryStore store;
  const auto folder = vcs::Kit::ToWide("store");
  if (!vcs::Kit::SaveRepository(saved, store, folder)) return 1;

  vcs::Repository loaded(std::make_unique<vcs::MemObjectsStorage>());
  if (!vcs::Deserializer(&store, folder).Deserialize(&loaded)) return 1;
  const auto blob = loaded.GetHead()->GetBlob(TAL_WIDE("hello.txt"));
  std::cout << vcs::Kit::BytesFromBlob(*blob);
  const bool same = loaded.GetHead()->GetId() == saved.GetHead()->GetId();
  return same && ComesBackFromFolder(saved, argv[1]) ? 0 : 1;
}
