// Adds a branch to the store of a folder whose files have paths of any kind, also ones that the
// program tal would never commit: make_branch FOLDER BRANCH (PATH CONTENT)...
// With --former before them, it makes a store of the former format in the folder instead, with a
// current branch as the program kept it then.

#include <kit/directory_store.h>
#include <kit/open/open.h>
#include <kit/open/save.h>
#include <kit/store/directory_object_store.h>
#include <kit/text.h>
#include <talvcs/talvcs.h>

#include <fstream>
#include <memory>
#include <string_view>

namespace {

namespace Kit = TalVcs::Kit;

/// Commits the files on a branch that is new.
void CommitOn(TalVcs::Repository& repository, int argc, char** argv) {
  const Kit::WideString branch = Kit::ToWide(argv[2]);
  TalVcs::Commit commit(&repository, false);
  commit.ReplaceRoot(&repository, nullptr);
  for (int i = 3; i + 1 < argc; i += 2) {
    commit.AddBlob(&repository, Kit::ToWide(argv[i]),
                   Kit::BlobFromBytes(std::string_view(argv[i + 1])));
  }
  repository.CreateBranch(branch, nullptr);
  repository.Checkout(branch);
  repository.DoCommit(commit);
}

int AddBranch(int argc, char** argv) {
  auto opened = Kit::Open(std::make_shared<Kit::DirectoryObjectStore>(
      Kit::DirectoryObjectStore::Open(argv[1]).value()));
  const Kit::WideString before = opened->GetRepository().GetCurentBranch();
  CommitOn(opened->GetRepository(), argc, argv);
  opened->GetRepository().Checkout(before);
  return Kit::Save(*opened) ? 0 : 1;
}

int MakeFormerStore(int argc, char** argv) {
  Kit::DirectoryStore store(argv[1]);
  TalVcs::Repository repository(std::make_unique<TalVcs::MemObjectsStorage>());
  CommitOn(repository, argc, argv);
  repository.UpdateStorage();
  TalVcs::Serializer serializer(&store, Kit::WideString());
  if (!store.Lock() || !serializer.Serialize(repository.GetStorage()) || !store.Commit()) return 1;
  std::ofstream(std::string(argv[1]) + "/.vcs/tal-branch") << argv[2];
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const bool is_former = argc > 1 && std::string_view(argv[1]) == "--former";
  if (is_former) {
    --argc;
    ++argv;
  }
  if (argc < 5) return 2;
  return is_former ? MakeFormerStore(argc, argv) : AddBranch(argc, argv);
}
