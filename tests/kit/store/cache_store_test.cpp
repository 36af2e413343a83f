#include <gtest/gtest.h>
#include <kit/store/cache_store.h>
#include <kit/store/memory_object_store.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/store/two_stores.h>
#include <tests/kit/temporary_folder.h>

#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

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

// A removal lets the next write of a folder fail with Busy.
TEST_F(Cache, FolderAsTheFastStoreMakesRoomAgainAndAgain) {
  const TemporaryFolder folder;
  const std::shared_ptr<IObjectStore> fast = OpenFolder(folder.Path() / "fast");
  CacheStore cache(fast, m_second, {.mostBytes = 40});
  std::vector<Id> ids;
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    const Buffer packed = BufferOf(std::string(10, letter));
    ids.push_back(Id(packed));
    ASSERT_TRUE(cache.Write({{{ids.back(), packed}}}).ok());
    ASSERT_TRUE(cache.GetFastStatus().ok()) << letter;
  }
  Slow().FailWith(ErrorCode::Unavailable);
  Slow().FailFrom(1);
  EXPECT_EQ(ReadOne(cache, ids.back()), std::string(10, 'z'));
  const auto uncached = static_cast<std::ptrdiff_t>(fast->Missing(ids).value().size());
  EXPECT_EQ(cache.FindUncached(ids), std::vector<Id>(ids.begin(), ids.begin() + uncached));
  EXPECT_GE(uncached, 22);
  EXPECT_LE(uncached, 23);
}

TEST_F(Cache, LargeObjectIsNotCached) {
  CacheStore cache = Make(40);
  const Buffer packed = BufferOf("eleven byte");
  ASSERT_TRUE(cache.Write({{StoredObject{Id(packed), packed}}}).ok());
  EXPECT_EQ(cache.GetCachedBytes(), 0U);
  EXPECT_EQ(ReadOne(cache, Id(packed)), "eleven byte");
  EXPECT_EQ(m_firstMemory->GetCount(), 0U);
}

TEST_F(Cache, OpeningIsOneCallWhoseObjectsAreKept) {
  class OpeningStore final : public PassingStore {
   public:
    using PassingStore::PassingStore;
    Result<StoreOpening> ReadOpening(std::string_view, std::string_view,
                                     std::string_view) override {
      return StoreOpening{{{"master", kOne.id}}, "master", {kOne, {kTwo.id, kThree.packed}}};
    }
  };
  const CacheOptions options{.mostBytes = 1000, .keepsHeads = true};
  auto slow = std::make_shared<FaultInjectionStore>(std::make_shared<OpeningStore>(m_second));
  {
    CacheStore cache(m_first, slow, options);
    EXPECT_EQ(ReadOpening(cache, "", "branch", "other").value().objects.size(), 1U)
        << "bytes that don't fit their id aren't passed on";
    EXPECT_EQ(ReadOne(cache, kOne.id), Bytes(kOne.packed));
    EXPECT_EQ(cache.FindUncached({{kOne.id, kTwo.id}}), std::vector<Id>{kTwo.id});
  }
  EXPECT_EQ(slow->GetLog(), std::vector<std::string>{"ReadOpening branch"});
  slow->Restart();
  slow->FailFrom(1, 1000);
  CacheStore cache(m_first, slow, options);
  const StoreOpening offline = ReadOpening(cache, "", "branch", "other").value();
  EXPECT_TRUE(cache.IsOffline());
  EXPECT_EQ(offline.heads, (std::vector<Head>{{"master", kOne.id}}));
  EXPECT_EQ(offline.value, "master");
  CacheStore empty(std::make_shared<MemoryObjectStore>(), slow, options);
  EXPECT_EQ(ReadOpening(empty, "", "branch", "other").error().code, ErrorCode::Unavailable);
}

TEST_F(Cache, KeptHeadsAndValuesAreReturnedOffline) {
  const std::string name = "a branch\nof two lines";
  {
    CacheStore cache(m_first, m_second, {.mostBytes = 1000, .keepsHeads = true});
    ASSERT_TRUE(cache.Write({{kOne, kTwo}}).ok());
    ASSERT_TRUE(cache.Heads().ok());
    ASSERT_TRUE(cache.MoveHeads({{{name, Id(), kOne.id}, {"x", Id(), kTwo.id}}}).ok());
    ASSERT_TRUE(cache.SetValue("branch", name).ok());
    EXPECT_EQ(cache.Value("absent").value(), std::nullopt);
  }
  Slow().Restart();
  Slow().FailFrom(1, 1000);
  CacheStore cache(m_first, m_second, {.mostBytes = 1000, .keepsHeads = true});
  EXPECT_EQ(cache.Heads().value(), (std::vector<Head>{{name, kOne.id}, {"x", kTwo.id}}));
  EXPECT_TRUE(cache.IsOffline());
  EXPECT_EQ(cache.Value("branch").value(), name);
  EXPECT_EQ(cache.Value("absent").value(), std::nullopt);
  EXPECT_EQ(cache.MoveHeads({{{"x", kTwo.id, Id()}}}).error().code, ErrorCode::Unavailable);
  EXPECT_EQ(cache.FindUncached({{kOne.id, kThree.id}}), std::vector<Id>{kThree.id});
  // The one that the slow store wrote last, for instance by another program.
  Slow().FailFrom(0);
  ASSERT_TRUE(m_secondMemory->MoveHeads({{{"x", kTwo.id, Id()}}}).ok());
  EXPECT_EQ(cache.Heads().value(), (std::vector<Head>{{name, kOne.id}}));
  Slow().Restart();
  Slow().FailFrom(1, 1000);
  EXPECT_EQ(cache.Heads().value(), (std::vector<Head>{{name, kOne.id}}));
  ASSERT_TRUE(m_firstMemory->SetValue("cache/heads", "damaged").ok());
  EXPECT_EQ(cache.Heads().error().code, ErrorCode::Unavailable);
}

// A value that can't be known counted as absent.
TEST_F(Cache, ValueThatCannotBeKnownOfflineFails) {
  const CacheOptions options{.mostBytes = 1000, .keepsHeads = true};
  const auto open = [&](std::string_view value) {
    CacheStore cache(m_first, m_second, options);
    return ReadOpening(cache, "", value, "other");
  };
  {
    CacheStore cache(m_first, m_second, options);
    ASSERT_TRUE(cache.Heads().ok());
    ASSERT_TRUE(cache.SetValue("branch", "master").ok());
    ASSERT_TRUE(cache.SetValue("removed", "text").ok());
    ASSERT_TRUE(cache.SetValue("removed", std::nullopt).ok());
  }
  Slow().FailFrom(1, 1000);
  CacheStore cache(m_first, m_second, options);
  EXPECT_EQ(cache.Value("never read").error().code, ErrorCode::Unavailable);
  EXPECT_EQ(cache.Value("removed").value(), std::nullopt);
  EXPECT_EQ(open("never read").error().code, ErrorCode::Unavailable);
  EXPECT_EQ(open("branch")->value, "master");
  EXPECT_EQ(open("removed")->value, std::nullopt);
  Fast().Restart();
  Fast().FailFrom(1, 1000);
  EXPECT_EQ(cache.Value("branch").error().code, ErrorCode::Unavailable);
  EXPECT_FALSE(cache.GetFastStatus().ok());
  EXPECT_EQ(open("branch").error().code, ErrorCode::Unavailable);
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
