#pragma once

#include <kit/text.h>
#include <talvcs/persistence/blob_io.h>
#include <talvcs/persistence/deserializer.h>
#include <talvcs/persistence/serializer.h>
#include <talvcs/repository/repository.h>
#include <talvcs/storage/mem_objects_storage.h>
#include <tests/support/contents.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What the tests of stores save and load.
namespace TalVcs::Testing {

using Kit::WideString;

/// Puts a commit with that file added on top of a branch, which is made if it is missing, and
/// returns it. The time is always the same.
inline cow_ptr<Commit> CommitFile(Repository& repository, const WideString& branch,
                                  std::string_view path, std::string_view bytes) {
  cow_ptr<Commit> commit = Make<Commit>(repository.GetHead(branch), false);
  commit.write()->AddBlob(&repository, Wide(path), BlobOf(bytes));
  commit.write()->SetDescription(Wide(path));
  commit.write()->SetCommitTime(Time::FromTimeT(1000000000));
  commit = repository.SyncWithStorage(std::move(commit));
  if (!repository.MoveBranchTo(branch, commit)) repository.CreateBranch(branch, commit);
  return commit;
}

/// Two states of a store that share some objects and not others.
inline Repository OldState() {
  Repository repository = NewRepository();
  CommitFile(repository, Wide("master"), "shared/file", "the same in both");
  CommitFile(repository, Wide("old"), "gone/file", "only in the old state");
  CommitFile(repository, Wide("old"), "gone/second", "also only in the old state");
  return repository;
}
inline Repository NewState() {
  Repository repository = NewRepository();
  CommitFile(repository, Wide("master"), "shared/file", "the same in both");
  CommitFile(repository, Wide("master"), "new/file", "only in the new state");
  CommitFile(repository, Wide("new"), "new/other", "also only in the new state");
  return repository;
}

inline bool Save(Repository& repository, IBlobWriter& writer) {
  return Serializer(&writer, WideString()).Serialize(repository.GetStorage());
}

/// Describes branches and number of objects, and whether all of it loaded.
inline std::string Describe(const Repository& repository, bool loaded = true) {
  std::vector<std::string> branches;
  for (const auto& [name, head] : repository.GetStorage()->GetRefs()) {
    if (head) branches.push_back(Ascii(name) + "=" + IdOf(*head));
  }
  std::sort(branches.begin(), branches.end());
  std::string text = loaded ? "" : "damaged ";
  for (const std::string& branch : branches) text += branch + "\n";
  return text + std::to_string(repository.GetCommitCount()) + " commits, " +
         std::to_string(repository.GetTreeCount()) + " trees, " +
         std::to_string(repository.GetBlobCount()) + " blobs";
}

/// Loads a store and describes what came.
///
/// The current branch is one that no store can name, so that it never gets a head: the first commit
/// of a history would get that head as its parent.
inline std::string Load(IBlobReader& reader, const WideString& rootPath = {}) {
  Repository repository(std::make_unique<MemObjectsStorage>(
      std::initializer_list<TalStringViewT<WideChar>>{TalStringViewT<WideChar>()}));
  repository.Checkout(TalStringViewT<WideChar>());
  repository.RemoveBranch(TalStringViewT<WideChar>());
  const bool loaded = Deserializer(&reader, rootPath).Deserialize(&repository);
  return Describe(repository, loaded);
}

}  // namespace TalVcs::Testing
