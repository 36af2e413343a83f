// Adds a branch to the store of a folder whose one file has a path of any kind, also one that the
// program tal would never commit: make_branch FOLDER BRANCH PATH

#include <kit/directory_store.h>
#include <kit/text.h>
#include <talvcs/talvcs.h>

#include <memory>

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const TalVcs::Kit::WideString root;
  TalVcs::Kit::DirectoryStore store(argv[1]);
  TalVcs::Repository repository(std::make_unique<TalVcs::MemObjectsStorage>());
  if (!TalVcs::Deserializer(&store, root).Deserialize(&repository)) return 1;

  const TalVcs::Kit::WideString branch = TalVcs::Kit::ToWide(argv[2]);
  TalVcs::Commit commit(&repository, false);
  commit.ReplaceRoot(&repository, nullptr);
  commit.AddBlob(&repository, TalVcs::Kit::ToWide(argv[3]),
                 TalVcs::Kit::BlobFromBytes(std::string_view("hostile")));
  repository.CreateBranch(branch, nullptr);
  repository.Checkout(branch);
  repository.DoCommit(commit);
  repository.UpdateStorage();
  TalVcs::Serializer serializer(&store, root);
  return serializer.Serialize(repository.GetStorage()) && store.Commit() ? 0 : 1;
}
