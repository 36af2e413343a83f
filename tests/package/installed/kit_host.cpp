// A host of the installed kit: saves a repository into a store in memory and loads it back.

#include <kit/memory_store.h>
#include <kit/save_repository.h>
#include <kit/text.h>
#include <talvcs/talvcs.h>

#include <iostream>
#include <memory>

namespace vcs = TalVcs;

int main() {
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
  return loaded.GetHead()->GetId() == saved.GetHead()->GetId() ? 0 : 1;
}
