#pragma once

#include <talvcs/repository/repository.h>
#include <talvcs/storage/on_demand_storage.h>
#include <tests/support/map_object_reader.h>
#include <tests/support/objects.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {

/// A store in memory, with its heads, and the repositories that are opened on it.
class OnDemandStore {
 public:
  /// Opens the repository that was saved last, at first an empty one with the branch "master".
  Repository Open() const { return Repository(std::make_unique<OnDemandStorage>(reader, heads)); }

  static OnDemandStorage& StorageOf(Repository& repository) {
    return *OnDemandStorage::From(repository.GetStorage());
  }

  /// Writes what the repository has and the store lacks. Returns the number of objects.
  std::uint64_t Save(Repository& repository) {
    OnDemandStorage& storage = StorageOf(repository);
    const auto put = [](void* to, const Id& id, const Buffer& packed) {
      static_cast<MapObjectReader*>(to)->Put(id, packed);
    };
    const std::uint64_t count = storage.VisitUnsaved({reader.get(), put});
    storage.MarkSaved();
    heads = storage.GetHeadIds();
    return count;
  }

  /// Returns the number of reads since the last call.
  std::uint64_t TakeReads() const { return std::exchange(reader->calls, 0); }

  std::shared_ptr<MapObjectReader> reader = std::make_shared<MapObjectReader>();
  std::vector<OnDemandStorage::BranchHead> heads = {{Wide("master"), Id()}};
};

/// Commits a file at each path, with that content, on the current branch.
inline cow_ptr<Commit> CommitFiles(Repository& repository,
                                   const std::vector<std::pair<std::string, std::string>>& files) {
  Commit commit(&repository, false);
  for (const auto& [path, content] : files) {
    commit.AddBlob(&repository, Wide(path), BlobOf(content));
  }
  return repository.DoCommit(commit);
}

}  // namespace TalVcs::Testing
