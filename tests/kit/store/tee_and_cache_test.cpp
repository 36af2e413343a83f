// The decorators over two stores.

#include <gtest/gtest.h>
#include <kit/open/copy.h>
#include <kit/open/open.h>
#include <kit/open/save.h>
#include <kit/open/try.h>
#include <kit/open/verify.h>
#include <kit/store/cache_store.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/tee_store.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/store/repairable_memory_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/bytes.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// Opens the store in a folder, which is made if it is missing.
std::shared_ptr<IObjectStore> OpenFolder(const std::filesystem::path& path) {
  const DirectoryObjectStoreOptions options{.durable = false,
                                            .busyTimeout = std::chrono::milliseconds(20)};
  Result<DirectoryObjectStore> store = std::filesystem::exists(path)
                                           ? DirectoryObjectStore::Open(path, options)
                                           : DirectoryObjectStore::Create(path, options);
  return std::make_shared<DirectoryObjectStore>(std::move(store).value());
}

INSTANTIATE_TEST_SUITE_P(TeeInMemory, ObjectStoreSuite, testing::Values(StoreKind{[] {
                           return [] {
                             return std::make_unique<TeeStore>(
                                 std::make_shared<MemoryObjectStore>(),
                                 std::make_shared<MemoryObjectStore>());
                           };
                         }}));

INSTANTIATE_TEST_SUITE_P(TeeOfFolders, ObjectStoreSuite,
                         testing::Values(StoreKind{[]() -> StoreOpener {
                                                     auto folder =
                                                         std::make_shared<TemporaryFolder>();
                                                     return [folder] {
                                                       return std::make_unique<TeeStore>(
                                                           OpenFolder(folder->Path() / "1"),
                                                           OpenFolder(folder->Path() / "2"));
                                                     };
                                                   },
                                                   true}));

// Each store object has a cache of its own.
INSTANTIATE_TEST_SUITE_P(Cache, ObjectStoreSuite,
                         testing::Values(StoreKind{[]() -> StoreOpener {
                                                     auto folder =
                                                         std::make_shared<TemporaryFolder>();
                                                     return [folder] {
                                                       return std::make_unique<CacheStore>(
                                                           std::make_shared<MemoryObjectStore>(),
                                                           OpenFolder(folder->Path() / "slow"));
                                                     };
                                                   },
                                                   true}));

INSTANTIATE_TEST_SUITE_P(TinyCache, ObjectStoreSuite, testing::Values(StoreKind{[] {
                           return [] {
                             return std::make_unique<CacheStore>(
                                 std::make_shared<MemoryObjectStore>(),
                                 std::make_shared<MemoryObjectStore>(), CacheOptions{100});
                           };
                         }}));

const StoredObject kOne =
    Stored("437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3", {"blob 3\0one", 10});
const StoredObject kTwo =
    Stored("9d500193ed108f2f3ad67e1870148696dce98f56644f500176a1dc1cf1634f64", {"blob 3\0two", 10});
const StoredObject kThree = Stored(
    "b0784b7d2033618177b361977e0f1572f5d0d2a0d103cba0e6a56fe7412f9624", {"blob 5\0three", 12});

std::string ReadOne(IObjectStore& store, const Id& id) {
  std::string shown = "not passed";
  const Status status = store.Read({&id, 1}, [&](const Id&, Result<Buffer> packed) {
    shown = packed ? Bytes(*packed) : ToString(packed.error().code);
  });
  return status ? shown : std::string("failed: ") + ToString(status.error().code);
}

/// Two stores in memory whose calls can fail.
class TwoStores : public testing::Test {
 protected:
  std::shared_ptr<MemoryObjectStore> m_firstMemory = std::make_shared<MemoryObjectStore>();
  std::shared_ptr<MemoryObjectStore> m_secondMemory = std::make_shared<MemoryObjectStore>();
  std::shared_ptr<FaultInjectionStore> m_first =
      std::make_shared<FaultInjectionStore>(m_firstMemory);
  std::shared_ptr<FaultInjectionStore> m_second =
      std::make_shared<FaultInjectionStore>(m_secondMemory);
};

/// Opens a store, adds a commit and a branch to what it has, and saves.
Status EditAndSave(const std::shared_ptr<IObjectStore>& store, const std::string& text) {
  return Try([&] {
    OpenedRepository opened = Open(store).value();
    AddCommit(opened.GetRepository(), "master", {{"a/file", text}});
    AddCommit(opened.GetRepository(), text, {{"b/file", text}});
    Save(opened).value();
  });
}

/// Each branch of the store is whole.
void ExpectWhole(IObjectStore& store, const std::string& when) {
  const Result<VerifyReport> report = Verify(store);
  ASSERT_TRUE(report.ok()) << when;
  EXPECT_TRUE(report->IsWhole()) << when;
}

class Tee : public TwoStores {
 protected:
  std::shared_ptr<TeeStore> m_tee = std::make_shared<TeeStore>(m_first, m_second);
};

TEST_F(Tee, BothStoresGetTheSame) {
  ASSERT_TRUE(EditAndSave(m_tee, "1").ok());
  ASSERT_TRUE(m_tee->SetValue("name", "value").ok());
  ASSERT_TRUE(EditAndSave(m_tee, "2").ok());
  EXPECT_TRUE(m_tee->GetSecondStatus().ok());
  EXPECT_EQ(HeadsOf(*m_firstMemory), HeadsOf(*m_secondMemory));
  EXPECT_EQ(ObjectsOf(*m_firstMemory), ObjectsOf(*m_secondMemory));
  EXPECT_EQ(m_secondMemory->Value("name").value(), "value");
}

TEST_F(Tee, EachFailureOfTheSecondIsHiddenAndLeavesItWhole) {
  for (const bool afterwards : {false, true}) {
    for (int call = 1;; ++call) {
      m_firstMemory = SmallStore();
      m_secondMemory = SmallStore();
      const auto second = std::make_shared<FaultInjectionStore>(m_secondMemory);
      const auto tee = std::make_shared<TeeStore>(m_firstMemory, second);
      second->FailFrom(call);
      second->FailWith(ErrorCode::Full);
      second->FailAfterwards(afterwards);
      ASSERT_TRUE(EditAndSave(tee, "1").ok()) << call;
      ASSERT_TRUE(EditAndSave(tee, "2").ok()) << call;
      const std::string when = "call " + std::to_string(call);
      ExpectWhole(*m_firstMemory, when);
      ExpectWhole(*m_secondMemory, when);
      EXPECT_EQ(tee->GetSecondStatus().ok(), !second->HasFailed()) << call;
      if (!second->HasFailed()) {
        EXPECT_GT(call, 6);
        break;
      }
      EXPECT_EQ(tee->GetSecondStatus().error().code, ErrorCode::Full);
      Copy(*m_firstMemory, *m_secondMemory, {.replaceHeads = true}).value();
      ASSERT_TRUE(tee->Rejoin().ok()) << call;
      ASSERT_TRUE(EditAndSave(tee, "3").ok());
      EXPECT_TRUE(tee->GetSecondStatus().ok()) << call;
      EXPECT_EQ(HeadsOf(*m_firstMemory), HeadsOf(*m_secondMemory));
      ExpectWhole(*m_secondMemory, when);
    }
  }
}

TEST_F(Tee, EachFailureOfTheFirstIsReturnedAndLeavesBothWhole) {
  for (const ErrorCode code : {ErrorCode::Full, ErrorCode::Unknown}) {
    for (const bool afterwards : {false, true}) {
      for (int call = 1;; ++call) {
        m_firstMemory = SmallStore();
        m_secondMemory = SmallStore();
        const auto first = std::make_shared<FaultInjectionStore>(m_firstMemory);
        const auto tee = std::make_shared<TeeStore>(first, m_secondMemory);
        first->FailFrom(call);
        first->FailWith(code);
        first->FailAfterwards(afterwards);
        const Status saved = EditAndSave(tee, "1");
        const std::string when = "call " + std::to_string(call);
        if (!first->HasFailed()) break;
        first->FailFrom(0);
        ExpectWhole(*m_firstMemory, when);
        ExpectWhole(*m_secondMemory, when);
        // Later saves go on; the second takes part as long as it has the heads of the first.
        ASSERT_TRUE(EditAndSave(tee, "2").ok()) << when;
        ExpectWhole(*m_secondMemory, when);
        EXPECT_EQ(tee->GetSecondStatus().ok(), HeadsOf(*first) == HeadsOf(*m_secondMemory)) << when;
      }
    }
  }
}

// A process that ends between two calls leaves what calls that all fail from there on leave.
TEST_F(Tee, KillBetweenTheStoresLeavesTheSecondWholeAndIsNoticed) {
  for (const bool kills_first : {false, true}) {
    for (int call = 1;; ++call) {
      m_firstMemory = SmallStore();
      m_secondMemory = SmallStore();
      const auto first = std::make_shared<FaultInjectionStore>(m_firstMemory);
      const auto second = std::make_shared<FaultInjectionStore>(m_secondMemory);
      FaultInjectionStore& counted = kills_first ? *first : *second;
      counted.InterruptAt(call, [&] {
        first->FailFrom(1, 1000);
        second->FailFrom(1, 1000);
      });
      const Status saved = EditAndSave(std::make_shared<TeeStore>(first, second), "1");
      const bool was_killed = counted.CountCalls() >= static_cast<std::uint64_t>(call);
      EXPECT_TRUE(saved.ok() || was_killed);
      // A new process.
      const auto tee = std::make_shared<TeeStore>(m_firstMemory, m_secondMemory);
      const bool were_equal = HeadsOf(*m_firstMemory) == HeadsOf(*m_secondMemory);
      ASSERT_TRUE(EditAndSave(tee, "2").ok());
      const std::string when = "call " + std::to_string(call);
      ExpectWhole(*m_firstMemory, when);
      ExpectWhole(*m_secondMemory, when);
      EXPECT_EQ(CodeOf(tee->GetSecondStatus()), were_equal ? "ok" : "Conflict") << when;
      if (!was_killed) break;
    }
  }
}

TEST_F(Tee, ReadsFromTheSecondWhatTheFirstCanNotReturn) {
  ASSERT_TRUE(m_tee->Write({{kOne, kTwo, kThree}}).ok());
  m_first->FailObject(kOne.id, ErrorCode::Damaged);
  EXPECT_EQ(ReadOne(*m_tee, kOne.id), Bytes(kOne.packed));
  m_second->FailObject(kOne.id, ErrorCode::NotFound);
  EXPECT_EQ(ReadOne(*m_tee, kOne.id), "Damaged");
  EXPECT_EQ(ReadOne(*m_tee, kTwo.id), Bytes(kTwo.packed));
  m_first->Restart();
  m_first->FailFrom(1);
  EXPECT_EQ(ReadOne(*m_tee, kTwo.id), Bytes(kTwo.packed));
  m_first->Restart();
  EXPECT_EQ(ReadOne(*m_tee, kOne.id), "failed: Unavailable");
}

TEST_F(Tee, HistoryGoesOnInTheSecondWhereTheFirstFails) {
  Repository repository = SmallHistory();
  Save(repository, *m_tee).value();
  const auto read = [&] {
    std::vector<Id> ids;
    EXPECT_TRUE(m_tee
                    ->ReadHistory(repository.GetHead(Wide("master"))->GetId(), 10,
                                  [&](const Id& id, const Result<Buffer>& packed) {
                                    EXPECT_TRUE(packed.ok());
                                    ids.push_back(id);
                                  })
                    .ok());
    return ids;
  };
  const std::vector<Id> whole = read();
  ASSERT_EQ(whole.size(), 3U);
  m_first->FailObject(whole[1], ErrorCode::Damaged);
  EXPECT_EQ(read(), whole);
  m_first->FailFrom(1, 1000);
  m_first->Restart();
  EXPECT_EQ(read(), whole);
}

TEST_F(Tee, StoreThatHasFallenBehindIsNotChanged) {
  ASSERT_TRUE(EditAndSave(m_tee, "1").ok());
  ASSERT_TRUE(EditAndSave(m_firstMemory, "2").ok());
  const std::string before = HeadsOf(*m_secondMemory);
  ASSERT_TRUE(EditAndSave(m_tee, "3").ok());
  EXPECT_EQ(m_tee->GetSecondStatus().error().code, ErrorCode::Conflict);
  EXPECT_EQ(HeadsOf(*m_secondMemory), before);
  EXPECT_EQ(m_tee->Rejoin().error().code, ErrorCode::Conflict);
}

TEST_F(Tee, RejoinRemovesBranchesThatTheFirstLacks) {
  ASSERT_TRUE(EditAndSave(m_tee, "1").ok());
  const Id head = m_secondMemory->Heads().value().front().id;
  ASSERT_TRUE(m_secondMemory->MoveHeads({{HeadMove{"extra", Id(), head}}}).ok());
  ASSERT_TRUE(m_tee->Rejoin().ok());
  EXPECT_EQ(HeadsOf(*m_firstMemory), HeadsOf(*m_secondMemory));
}

TEST_F(Tee, CleanUpOfASecondWithOtherHeadsRemovesNothingThere) {
  ASSERT_TRUE(m_tee->Write({{kOne}}).ok());
  ASSERT_TRUE(m_secondMemory->MoveHeads({{HeadMove{"own", Id(), kOne.id}}}).ok());
  const auto nothing = [](std::span<const Head>) -> Result<std::vector<Id>> {
    return std::vector<Id>();
  };
  EXPECT_EQ(m_tee->RemoveUnmarked(nothing).value().count, 1U);
  EXPECT_EQ(m_secondMemory->GetCount(), 1U);
  EXPECT_EQ(m_tee->GetSecondStatus().error().code, ErrorCode::Conflict);
}

TEST_F(TwoStores, ReplacesObjectsWhereTheStoreBelowCan) {
  const Buffer other = BufferOf("other");
  const StoredObject replacement{kOne.id, other};
  const auto repairable = std::make_shared<RepairableMemoryStore>(*m_first);
  TeeStore tee(repairable, m_second);
  ASSERT_TRUE(tee.Write({{kOne}}).ok());
  ASSERT_TRUE(tee.Replace({{replacement}}).ok());
  EXPECT_EQ(ReadOne(tee, kOne.id), "other");
  EXPECT_EQ(ReadOne(*m_second, kOne.id), Bytes(kOne.packed));
  CacheStore cache(m_secondMemory, repairable);
  ASSERT_TRUE(cache.Replace({{kOne}}).ok());
  EXPECT_EQ(ReadOne(*repairable, kOne.id), Bytes(kOne.packed));
  RecordingStore passing(repairable);
  ASSERT_TRUE(passing.Replace({{replacement}}).ok());
  EXPECT_EQ(ReadOne(passing, kOne.id), "other");
  EXPECT_EQ(passing.GetLog().front(), "Replace 1");
  EXPECT_EQ(passing.GetCalls().front().sizeBytes, 5U);
}

TEST_F(TwoStores, ReplaceIsUnsupportedWhereTheStoreBelowCanNot) {
  TeeStore tee(m_first, m_second);
  CacheStore cache(m_first, m_second);
  EXPECT_EQ(CodeOf(tee.Replace({})), "Unsupported");
  EXPECT_EQ(CodeOf(cache.Replace({})), "Unsupported");
  EXPECT_EQ(CodeOf(ReplaceObjects(*m_firstMemory, {})), "Unsupported");
}

class Cache : public TwoStores {
 protected:
  CacheStore Make(std::uint64_t mostBytes = 1000) {
    return CacheStore(m_first, m_second, {.mostBytes = mostBytes});
  }
  /// The fast store is `m_first`.
  FaultInjectionStore& Fast() { return *m_first; }
  FaultInjectionStore& Slow() { return *m_second; }
};

TEST_F(Cache, SecondReadDoesNotAskTheSlowStore) {
  ASSERT_TRUE(m_secondMemory->Write({{kOne}}).ok());
  CacheStore cache = Make();
  EXPECT_EQ(ReadOne(cache, kOne.id), Bytes(kOne.packed));
  EXPECT_EQ(ReadOne(cache, kOne.id), Bytes(kOne.packed));
  EXPECT_EQ(Slow().CountCalls(), 1U);
  EXPECT_EQ(cache.GetCachedBytes(), 10U);
}

TEST_F(Cache, WritesReachBothAndANewCacheTakesUpWhatIsThere) {
  {
    CacheStore cache = Make();
    ASSERT_TRUE(cache.Write({{kOne, kTwo}}).ok());
  }
  EXPECT_EQ(m_secondMemory->GetCount(), 2U);
  CacheStore again = Make();
  Slow().Restart();
  EXPECT_EQ(ReadOne(again, kTwo.id), Bytes(kTwo.packed));
  EXPECT_EQ(Slow().CountCalls(), 0U);
  EXPECT_EQ(again.GetCachedBytes(), 20U);
}

TEST_F(Cache, FailedWriteIsNotCached) {
  CacheStore cache = Make();
  Slow().FailFrom(1);
  EXPECT_FALSE(cache.Write({{kOne}}).ok());
  EXPECT_EQ(m_firstMemory->GetCount(), 0U);
}

TEST_F(Cache, OldestUsesMakeRoom) {
  // Room for four objects of ten bytes; three quarters of it are three.
  CacheStore cache = Make(40);
  std::vector<StoredObject> objects;
  for (const char letter : {'a', 'b', 'c', 'd', 'e'}) {
    const Buffer packed = BufferOf(std::string(10, letter));
    objects.push_back({Id(packed), packed});
  }
  ASSERT_TRUE(cache.Write(std::span(objects).first(4)).ok());
  EXPECT_EQ(ReadOne(cache, objects[0].id), "aaaaaaaaaa");
  ASSERT_TRUE(cache.Write({{objects[4]}}).ok());
  EXPECT_EQ(cache.GetCachedBytes(), 30U);
  std::vector<Id> kept = {objects[0].id, objects[3].id, objects[4].id};
  EXPECT_EQ(m_firstMemory->Missing(kept).value(), std::vector<Id>());
  EXPECT_EQ(m_firstMemory->GetCount(), 3U);
  EXPECT_EQ(ReadOne(cache, objects[1].id), "bbbbbbbbbb");
}

TEST_F(Cache, LargeObjectIsNotCached) {
  CacheStore cache = Make(40);
  const Buffer packed = BufferOf("eleven byte");
  ASSERT_TRUE(cache.Write({{StoredObject{Id(packed), packed}}}).ok());
  EXPECT_EQ(cache.GetCachedBytes(), 0U);
  EXPECT_EQ(ReadOne(cache, Id(packed)), "eleven byte");
  EXPECT_EQ(m_firstMemory->GetCount(), 0U);
}

TEST_F(Cache, ReadsFromTheCacheWhileTheSlowStoreIsOffline) {
  CacheStore cache = Make();
  ASSERT_TRUE(cache.Write({{kOne}}).ok());
  ASSERT_TRUE(m_secondMemory->Write({{kTwo}}).ok());
  EXPECT_FALSE(cache.IsOffline());
  Slow().Restart();
  Slow().FailFrom(1, 1000);
  EXPECT_EQ(ReadOne(cache, kOne.id), Bytes(kOne.packed));
  EXPECT_FALSE(cache.IsOffline());
  EXPECT_EQ(ReadOne(cache, kTwo.id), "failed: Unavailable");
  EXPECT_TRUE(cache.IsOffline());
  EXPECT_EQ(cache.Heads().error().code, ErrorCode::Unavailable);
  EXPECT_EQ(cache.Missing({{kOne.id}}).error().code, ErrorCode::Unavailable);
  EXPECT_EQ(ReadOne(cache, kOne.id), Bytes(kOne.packed));
  EXPECT_TRUE(cache.IsOffline());
  Slow().FailFrom(0);
  EXPECT_TRUE(cache.Heads().ok());
  EXPECT_FALSE(cache.IsOffline());
}

TEST_F(Cache, OtherFailuresOfTheSlowStoreAreNotOffline) {
  CacheStore cache = Make();
  Slow().FailFrom(1);
  Slow().FailWith(ErrorCode::Denied);
  EXPECT_EQ(cache.Heads().error().code, ErrorCode::Denied);
  EXPECT_FALSE(cache.IsOffline());
}

TEST_F(Cache, DamagedCopyIsReadFromTheSlowStore) {
  CacheStore cache = Make();
  ASSERT_TRUE(cache.Write({{kOne}}).ok());
  Fast().ReplaceObject(kOne.id, BufferOf("blob 3"));
  EXPECT_EQ(ReadOne(cache, kOne.id), Bytes(kOne.packed));
  EXPECT_TRUE(cache.GetFastStatus().ok());
}

TEST_F(Cache, DamagedObjectOfTheSlowStoreIsNotCached) {
  ASSERT_TRUE(m_secondMemory->Write({{StoredObject{kOne.id, kTwo.packed}}}).ok());
  CacheStore cache = Make();
  EXPECT_EQ(ReadOne(cache, kOne.id), Bytes(kTwo.packed));
  EXPECT_EQ(m_firstMemory->GetCount(), 0U);
}

TEST_F(Cache, HistoryIsReadFromTheCacheUpToAGap) {
  Repository repository = SmallHistory();
  Save(repository, *m_secondMemory).value();
  CacheStore cache = Make(1 << 20);
  const Id head = repository.GetHead(Wide("master"))->GetId();
  const auto count = [&](std::uint64_t most) {
    std::size_t commits = 0;
    EXPECT_TRUE(cache
                    .ReadHistory(head, most,
                                 [&](const Id&, const Result<Buffer>& packed) {
                                   commits += packed.ok() ? 1 : 0;
                                 })
                    .ok());
    return commits;
  };
  EXPECT_EQ(count(2), 2U);
  EXPECT_EQ(count(2), 2U);
  EXPECT_EQ(Slow().CountCalls(), 1U);
  EXPECT_EQ(count(10), 3U);
  EXPECT_EQ(Slow().GetLog().back(), "ReadHistory 8");
  Slow().Restart();
  EXPECT_EQ(count(10), 3U);
  EXPECT_EQ(Slow().CountCalls(), 0U);
}

TEST_F(Cache, EachFailureOfTheFastStoreIsHidden) {
  for (const ErrorCode code : {ErrorCode::Full, ErrorCode::Unavailable}) {
    for (int call = 1;; ++call) {
      m_secondMemory = SmallStore();
      const auto fast = std::make_shared<FaultInjectionStore>(*m_firstMemory);
      const auto cache =
          std::make_shared<CacheStore>(fast, m_secondMemory, CacheOptions{.mostBytes = 2000});
      fast->FailFrom(call);
      fast->FailWith(code);
      ASSERT_TRUE(EditAndSave(cache, "1").ok()) << call;
      ExpectWhole(*cache, "call " + std::to_string(call));
      EXPECT_EQ(cache->GetFastStatus().ok(), !fast->HasFailed()) << call;
      EXPECT_FALSE(cache->IsOffline());
      if (!fast->HasFailed()) break;
    }
  }
}

TEST_F(Cache, EachFailureOfTheSlowStoreIsReturnedOrCoveredByTheCache) {
  for (int call = 1;; ++call) {
    m_secondMemory = SmallStore();
    const auto slow = std::make_shared<FaultInjectionStore>(m_secondMemory);
    const auto cache = std::make_shared<CacheStore>(std::make_shared<MemoryObjectStore>(), slow);
    slow->FailFrom(call);
    const Status saved = EditAndSave(cache, "1");
    ExpectWhole(*m_secondMemory, "call " + std::to_string(call));
    if (!slow->HasFailed()) break;
    slow->FailFrom(0);
    ASSERT_TRUE(EditAndSave(cache, "2").ok()) << call;
    ExpectWhole(*m_secondMemory, "call " + std::to_string(call));
  }
}

}  // namespace
}  // namespace TalVcs::Kit
