#include <gtest/gtest.h>
#include <kit/internal/store_access.h>
#include <kit/text.h>
#include <talvcs/persistence/packed_object.h>
#include <tests/kit/faulty_file_system.h>
#include <tests/kit/store/document_states.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/store/volatile_file_system.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/bytes.h>
#include <tests/support/ordinary_repository.h>
#include <tests/support/text.h>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::FaultyFileSystem;
using Testing::TemporaryFolder;
using Testing::VolatileFileSystem;

DirectoryObjectStoreOptions Options(bool durable) {
  return {.durable = durable, .busyTimeout = std::chrono::milliseconds(0)};
}

StoredObject Packed(const std::string& text) {
  const Buffer packed = Testing::BufferOf("blob " + text);
  return {Id(packed), packed};
}

/// Eight objects of a save, named after it: enough for a wait for all at once.
std::vector<StoredObject> ObjectsOf(const std::string& save) {
  std::vector<StoredObject> objects;
  for (char digit = '0'; digit <= '7'; ++digit) objects.push_back(Packed(save + digit));
  return objects;
}

/// Writes the objects of `save` and moves "master" to the first of them.
Status Save(IObjectStore& store, const std::string& save, const Id& expected) {
  const std::vector<StoredObject> objects = ObjectsOf(save);
  if (Status status = store.Write(objects); !status) return status;
  const HeadMove move{"master", expected, objects.front().id};
  return store.MoveHeads({&move, 1});
}

/// Shows which save a store holds, and requires that all of its objects are whole.
std::string Show(IObjectStore& store, const std::vector<std::string>& saves) {
  const Result<std::vector<Head>> heads = store.Heads();
  if (!heads) return Describe(heads.error());
  if (heads->empty()) return "nothing";
  for (const std::string& save : saves) {
    const std::vector<StoredObject> objects = ObjectsOf(save);
    if (heads->front().id != objects.front().id) continue;
    for (const StoredObject& object : objects) {
      std::string bytes;
      const Status status = store.Read({{object.id}}, [&](const Id&, Result<Buffer> packed) {
        if (packed) bytes = Testing::Bytes(*packed);
      });
      if (!status || bytes != Testing::Bytes(object.packed)) return save + ", damaged";
    }
    return save;
  }
  return "another head";
}

struct Fault {
  const char* name;
  std::errc error;
  int count;
  ErrorCode code;
  bool syncsMedium;
};

class DirectoryObjectStoreFaults : public testing::TestWithParam<Fault> {};

// The store is the old one or the new one; it is the new one if the save says so, and the old one
// if the save fails for certain.
TEST_P(DirectoryObjectStoreFaults, SaveLeavesTheOldStateOrTheNew) {
  const Fault fault = GetParam();
  int failed = 0;
  int unknown = 0;
  for (int number = 1;; ++number) {
    const TemporaryFolder folder;
    const auto files = std::make_shared<FaultyFileSystem>();
    if (fault.syncsMedium) files->OfferSyncMedium();
    DirectoryObjectStore store = StoreAccess::Create(folder.Path(), Options(true), files).value();
    ASSERT_TRUE(Save(store, "old", Id()).ok());
    files->Restart();
    files->FailWith(fault.error);
    files->FailFrom(number, fault.count);
    const Status status = Save(store, "new", ObjectsOf("old").front().id);
    const bool fired = files->HasFailed();
    files->FailFrom(0);
    DirectoryObjectStore other = DirectoryObjectStore::Open(folder.Path(), Options(false)).value();
    const std::string found = Show(other, {"old", "new"});
    if (status) {
      ASSERT_EQ(found, "new") << number;
    } else if (status.error().code == ErrorCode::Unknown) {
      ++unknown;
      ASSERT_TRUE(found == "old" || found == "new") << number << ": " << found;
    } else {
      ++failed;
      ASSERT_EQ(found, "old") << number << ": " << Describe(status.error());
      ASSERT_STREQ(ToString(status.error().code), ToString(fault.code)) << number;
      ASSERT_FALSE(status.error().subject.empty()) << number;
    }
    if (found == "old") {
      const Status again = Save(store, "new", ObjectsOf("old").front().id);
      ASSERT_TRUE(again.ok()) << number << ": " << Describe(again.error());
    }
    ASSERT_EQ(Show(other, {"old", "new"}), "new") << number;
    if (!fired) break;
  }
  EXPECT_GT(failed, 15);
  EXPECT_GT(unknown, 0);
}

/// Three commits of nested folders.
std::vector<StoredObject> NestedHistory() {
  Repository repository = Testing::NewOrdinaryRepository();
  for (const char* content : {"1", "2", "3"}) {
    Commit commit(&repository, false);
    commit.AddBlob(&repository, TAL_WIDE("a/b/c"), Blob(Testing::BufferOf(content)));
    repository.DoCommit(commit);
  }
  std::vector<StoredObject> objects;
  const auto add = [&](const auto& table) {
    for (const auto& [id, object] : table) objects.push_back({id, object->GetPackedData()});
  };
  add(repository.GetStorage()->GetBlobs());
  add(repository.GetStorage()->GetTrees());
  add(repository.GetStorage()->GetCommits());
  return objects;
}

// A later save takes what is there for whole, with all that it names.
TEST(DirectoryObjectStoreRemoval, RemovesEverythingAtOnce) {
  const std::vector<StoredObject> history = NestedHistory();
  int unchanged = 0;
  for (int number = 1;; ++number) {
    const TemporaryFolder folder;
    const auto files = std::make_shared<FaultyFileSystem>();
    DirectoryObjectStore store = StoreAccess::Create(folder.Path(), Options(false), files).value();
    ASSERT_TRUE(store.Write(history).ok());
    files->Restart();
    files->FailFrom(number, 1000);
    const auto nothing = [](std::span<const Head>) {
      return Result<std::vector<Id>>(std::vector<Id>());
    };
    const bool removed = store.RemoveUnmarked(nothing).ok();
    files->FailFrom(0);
    std::size_t left = 0;
    for (const StoredObject& object : history) {
      if (!store.Missing({&object.id, 1}).value().empty()) continue;
      ++left;
    }
    ASSERT_TRUE(left == 0 || left == history.size()) << number << ": " << left;
    unchanged += left == 0 ? 0 : 1;
    if (removed) break;
  }
  EXPECT_GT(unchanged, 8);
}

TEST_P(DirectoryObjectStoreFaults, FirstSaveAndUpgradeFailWithAReason) {
  const Fault fault = GetParam();
  int failed = 0;
  for (int number = 1;; ++number) {
    const TemporaryFolder folder;
    const auto files = std::make_shared<FaultyFileSystem>();
    files->FailWith(fault.error);
    files->FailFrom(number, fault.count);
    const Result<DirectoryObjectStore> created =
        StoreAccess::Create(folder.Path(), Options(true), files);
    if (!files->HasFailed()) break;
    if (!created) {
      ++failed;
      EXPECT_FALSE(created.error().message.empty());
      // It can be made now, or was made by the call that failed.
      const Result<DirectoryObjectStore> again =
          DirectoryObjectStore::Create(folder.Path(), Options(false));
      ASSERT_TRUE(again.ok() || again.error().code == ErrorCode::Conflict) << number;
    }
    Result<DirectoryObjectStore> store = DirectoryObjectStore::Open(folder.Path(), Options(false));
    ASSERT_TRUE(store.ok()) << number;
    EXPECT_EQ(Show(*store, {}), "nothing") << number;
  }
  EXPECT_GT(failed, 5);
}

TEST_P(DirectoryObjectStoreFaults, RemovalNeverTakesWhatIsMarked) {
  const Fault fault = GetParam();
  int failed = 0;
  for (int number = 1;; ++number) {
    const TemporaryFolder folder;
    const auto files = std::make_shared<FaultyFileSystem>();
    DirectoryObjectStore store = StoreAccess::Create(folder.Path(), Options(true), files).value();
    ASSERT_TRUE(Save(store, "old", Id()).ok());
    ASSERT_TRUE(store.Write(ObjectsOf("unused")).ok());
    files->Restart();
    files->FailWith(fault.error);
    files->FailFrom(number, fault.count);
    const auto mark_old = [](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> {
      std::vector<Id> ids;
      for (const StoredObject& object : ObjectsOf("old")) ids.push_back(object.id);
      return ids;
    };
    const Result<RemovedObjects> removed = store.RemoveUnmarked(mark_old);
    const bool fired = files->HasFailed();
    files->FailFrom(0);
    failed += removed ? 0 : 1;
    ASSERT_EQ(Show(store, {"old"}), "old") << number;
    ASSERT_TRUE(store.RemoveUnmarked(mark_old).ok()) << number;
    std::size_t count = 0;
    ASSERT_TRUE(store
                    .List([&](std::span<const Id> ids) {
                      count += ids.size();
                      return true;
                    })
                    .ok());
    ASSERT_EQ(count, 8U) << number;
    if (!fired) break;
  }
  EXPECT_GT(failed, 10);
}

// A removal encodes what loses its base anew. A version after that was a difference from what is
// nowhere.
TEST_P(DirectoryObjectStoreFaults, VersionsAfterARemovalThatFailedAreWhole) {
  const Fault fault = GetParam();
  const auto next = [](std::vector<StoredObject>& versions) {
    const StoredObject& last = versions.back();
    versions.push_back(Packed(BytesFromBuffer(last.packed).substr(5) + "more"));
    versions.back().previous = versions[versions.size() - 2].id;
  };
  int failed = 0;
  for (int number = 1;; ++number) {
    const TemporaryFolder folder;
    const auto files = std::make_shared<FaultyFileSystem>();
    DirectoryObjectStore store = StoreAccess::Create(folder.Path(), Options(true), files).value();
    std::vector<StoredObject> versions{Packed(Testing::RandomBytes(3000))};
    while (versions.size() < 10) next(versions);
    ASSERT_TRUE(store.Write(versions).ok());
    ASSERT_TRUE(store.MoveHeads({{HeadMove{"master", Id(), versions.back().id}}}).ok());
    files->Restart();
    files->FailWith(fault.error);
    files->FailFrom(number, fault.count);
    const Result<RemovedObjects> removed =
        store.RemoveUnmarked([&](std::span<const Head> /*heads*/) {
          return std::vector<Id>{versions[5].id, versions[9].id};
        });
    const bool fired = files->HasFailed();
    files->FailFrom(0);
    failed += removed ? 0 : 1;
    const std::size_t first = versions.size();
    while (versions.size() < 16) next(versions);
    ASSERT_TRUE(store.Write(std::span(versions).subspan(first)).ok()) << number;
    ASSERT_TRUE(store.MoveHeads({{HeadMove{"master", versions[9].id, versions.back().id}}}).ok());
    DirectoryObjectStore again = DirectoryObjectStore::Open(folder.Path(), Options(false)).value();
    for (std::size_t index = 9; index < versions.size(); ++index) {
      const Status status =
          again.Read({{versions[index].id}}, [&](const Id& id, Result<Buffer> packed) {
            EXPECT_TRUE(packed && Id(*packed) == id) << number << ": " << index;
          });
      ASSERT_TRUE(status.ok());
    }
    if (!fired) break;
  }
  EXPECT_GT(failed, 5);
}

INSTANTIATE_TEST_SUITE_P(
    , DirectoryObjectStoreFaults,
    testing::Values(Fault{"OneError", std::errc::io_error, 1, ErrorCode::Unavailable, false},
                    Fault{"ManyErrors", std::errc::io_error, 1000000, ErrorCode::Unavailable, true},
                    Fault{"Full", std::errc::no_space_on_device, 1, ErrorCode::Full, false},
                    Fault{"Denied", std::errc::permission_denied, 1, ErrorCode::Denied, true}),
    [](const testing::TestParamInfo<Fault>& fault) { return std::string(fault.param.name); });

/// Saves three times on a file system that loses its power at call number `call`, cleans up before
/// the last one, and returns the last save that succeeded and the one that was being made.
std::pair<std::string, std::string> SaveUntilPowerIsLost(
    const std::shared_ptr<VolatileFileSystem>& files, int call) {
  const std::vector<std::string> saves = {"nothing", "a", "b", "c"};
  files->LosePowerAt(call);
  Result<DirectoryObjectStore> store = StoreAccess::Create("store", Options(true), files);
  std::size_t done = 0;
  const auto mark = [&](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> {
    std::vector<Id> ids;
    for (const StoredObject& object : ObjectsOf(saves[done])) ids.push_back(object.id);
    return ids;
  };
  bool good = store.ok();
  while (good && done + 1 < saves.size()) {
    const Id head = done == 0 ? Id() : ObjectsOf(saves[done]).front().id;
    good = (done != 2 || store->RemoveUnmarked(mark)) && Save(*store, saves[done + 1], head);
    if (good) ++done;
  }
  return {saves[done], saves[std::min(done + 1, saves.size() - 1)]};
}

TEST(DirectoryObjectStorePower, LossLeavesTheLastSaveOrTheOneBeingMade) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::map<std::string, int> results;
  bool lost = true;
  for (int call = 1; lost; ++call) {
    for (int round = 0; round < 20; ++round) {
      const auto files = std::make_shared<VolatileFileSystem>();
      const auto [before, after] = SaveUntilPowerIsLost(files, call);
      lost = files->HasLostPower();
      files->Restart(random);
      Result<DirectoryObjectStore> store = StoreAccess::Open("store", Options(true), files);
      if (!store && before == "nothing") {
        ASSERT_EQ(store.error().code, ErrorCode::NotFound) << call;
        store = StoreAccess::Create("store", Options(true), files);
        ++results["no store"];
      }
      ASSERT_TRUE(store.ok()) << call << ": " << Describe(store.error());
      const std::string found = Show(*store, {"a", "b", "c"});
      ASSERT_TRUE(found == before || found == after) << call << ": " << found;
      ++results[found == before ? "before" : "after"];
      const Id head = found == "nothing" ? Id() : ObjectsOf(found).front().id;
      ASSERT_TRUE(Save(*store, "d", head).ok()) << call;
      ASSERT_EQ(Show(*store, {"d"}), "d") << call;
      DirectoryObjectStore other = StoreAccess::Open("store", Options(true), files).value();
      ASSERT_EQ(Show(other, {"d"}), "d") << call;
    }
  }
  EXPECT_GT(results["no store"], 10);
  EXPECT_GT(results["before"], 100);
  EXPECT_GT(results["after"], 3);
}

}  // namespace
}  // namespace TalVcs::Kit
