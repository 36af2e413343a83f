// Saves the two states of the tests into an object store in a folder, removes what they don't need,
// and describes the store, for tests that do something to the process.
//
// save_objects FOLDER old|new   saves that state; exits with 1 and prints why if that fails
// save_objects FOLDER former    saves the old state by a DirectoryStore
// save_objects FOLDER describe  prints what the store holds: a line, and what is damaged
// save_objects FOLDER count     prints how many objects the store has

#include <kit/directory_store.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/object_store_as_blobs.h>
#include <talvcs/persistence/packed_object.h>
#include <tests/kit/saved_states.h>

#include <iostream>
#include <unordered_set>

using namespace TalVcs;

namespace {

Kit::Result<Kit::DirectoryObjectStore> OpenOrCreate(const char* folder) {
  Kit::Result<Kit::DirectoryObjectStore> store = Kit::DirectoryObjectStore::Open(folder);
  if (store || store.error().code != Kit::ErrorCode::NotFound) return store;
  return Kit::DirectoryObjectStore::Create(folder);
}

/// Returns all that the heads reach.
Kit::Result<std::vector<Id>> Mark(Kit::IObjectStore& store, std::span<const Kit::Head> heads) {
  std::vector<Id> marked;
  for (const Kit::Head& head : heads) marked.push_back(head.id);
  std::unordered_set<Id> seen(marked.begin(), marked.end());
  for (std::size_t index = 0; index < marked.size(); ++index) {
    const Id id = marked[index];
    Kit::Status failure;
    Kit::Status status = store.Read({&id, 1}, [&](const Id& /*id*/, Kit::Result<Buffer> packed) {
      if (!packed) {
        failure = std::move(packed).error();
        return;
      }
      std::vector<Id> found;
      const auto visit = [](void* target, const PackedReference& reference) {
        static_cast<std::vector<Id>*>(target)->push_back(reference.id);
      };
      VisitReferences(*packed, Delegate<void(const PackedReference&)>(&found, visit));
      for (const Id& next : found) {
        if (seen.insert(next).second) marked.push_back(next);
      }
    });
    if (!status || !failure) return status ? failure.error() : status.error();
  }
  return marked;
}

Kit::Status SaveAndCleanUp(Kit::IObjectStore& store, Repository repository) {
  Kit::ObjectStoreAsBlobs blobs(store);
  Testing::Save(repository, blobs);
  if (Kit::Status status = blobs.Commit(); !status) return status;
  const Kit::Result<Kit::RemovedObjects> removed =
      store.RemoveUnmarked([&](std::span<const Kit::Head> heads) { return Mark(store, heads); });
  return removed ? Kit::Status() : Kit::Status(removed.error());
}

int Describe(const char* folder) {
  Kit::Result<Kit::DirectoryObjectStore> store = Kit::DirectoryObjectStore::Open(folder);
  if (!store) {
    if (store.error().code != Kit::ErrorCode::NotFound) return 1;
    std::cout << "0 commits, 0 trees, 0 blobs, 0 damaged\n";
    return 0;
  }
  Kit::ObjectStoreAsBlobs blobs(*store);
  int damaged = 0;
  const Kit::Status listed = store->List([&](std::span<const Id> ids) {
    const Kit::Status read = store->Read(ids, [&](const Id& id, Kit::Result<Buffer> packed) {
      if (!packed || CheckPackedObject(id, *packed)) ++damaged;
    });
    return read.ok();
  });
  std::cout << Testing::Load(blobs) << ", " << damaged << " damaged\n";
  return listed ? 0 : 1;
}

int Count(const char* folder) {
  Kit::Result<Kit::DirectoryObjectStore> store = Kit::DirectoryObjectStore::Open(folder);
  if (!store) return 1;
  std::size_t count = 0;
  const Kit::Status listed = store->List([&count](std::span<const Id> ids) {
    count += ids.size();
    return true;
  });
  std::cout << count << '\n';
  return listed ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string command = argv[2];
  if (command == "describe") return Describe(argv[1]);
  if (command == "count") return Count(argv[1]);
  if (command == "former") {
    Kit::DirectoryStore former(argv[1]);
    Repository repository = Testing::OldState();
    return Testing::Save(repository, former) && former.Commit() ? 0 : 1;
  }
  Kit::Result<Kit::DirectoryObjectStore> store = OpenOrCreate(argv[1]);
  const Kit::Status status =
      store ? SaveAndCleanUp(*store, command == "old" ? Testing::OldState() : Testing::NewState())
            : Kit::Status(store.error());
  if (status) return 0;
  std::cerr << Kit::Describe(status.error()) << '\n';
  return 1;
}
