#include <gtest/gtest.h>
#include <kit/open/copy.h>
#include <kit/store/cache_store.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/recording_store.h>
#include <kit/store/tee_store.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/store/repairable_memory_store.h>
#include <tests/kit/store/two_stores.h>
#include <tests/kit/store/unrepairable_store.h>
#include <tests/kit/temporary_folder.h>

#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

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

/// A store over one in memory that counts how often it is trimmed.
class TrimCounter final : public PassingStore {
 public:
  TrimCounter() : PassingStore(std::make_shared<MemoryObjectStore>()) {}
  void Trim() noexcept override { ++m_count; }
  int GetCount() const { return m_count; }

 private:
  int m_count = 0;
};

TEST_F(TwoStores, OpeningAndNewHeadsOfATeeAreThoseOfTheFirstStore) {
  class FarStore final : public PassingStore {
   public:
    using PassingStore::PassingStore;
    Result<StoreOpening> ReadOpening(std::string_view, std::string_view,
                                     std::string_view) override {
      return StoreOpening{{{"far", kOne.id}}, "far", {kOne}};
    }
    Result<std::vector<Head>> WaitForHeads(std::span<const Head>,
                                           std::chrono::milliseconds) override {
      return std::vector<Head>{{"far", kTwo.id}};
    }
  };
  TeeStore tee(std::make_shared<FarStore>(m_first), m_second);
  EXPECT_EQ(ReadOpening(tee, "", "branch", "master").value().objects.size(), 1U);
  EXPECT_EQ(WatchHeads(tee, {}, std::chrono::milliseconds(0)).value(),
            (std::vector<Head>{{"far", kTwo.id}}));
  EXPECT_EQ(m_first->CountCalls() + m_second->CountCalls(), 0U);
}

TEST_F(TwoStores, TrimOfARepositoryReachesEveryStoreBelow) {
  const auto first = std::make_shared<TrimCounter>();
  const auto second = std::make_shared<TrimCounter>();
  const auto cached = std::make_shared<TrimCounter>();
  const auto tee = std::make_shared<TeeStore>(first, second);
  const auto cache = std::make_shared<CacheStore>(cached, std::make_shared<RecordingStore>(tee));
  Open(cache).value().Trim();
  EXPECT_EQ(first->GetCount(), 1);
  EXPECT_EQ(second->GetCount(), 1);
  EXPECT_EQ(cached->GetCount(), 1);
}

TEST_F(TwoStores, ReplaceIsUnsupportedWhereTheStoreBelowCanNot) {
  const auto unrepairable = std::make_shared<UnrepairableStore>();
  TeeStore tee(unrepairable, m_second);
  CacheStore cache(m_first, unrepairable);
  EXPECT_EQ(CodeOf(tee.Replace({})), "Unsupported");
  EXPECT_EQ(CodeOf(cache.Replace({})), "Unsupported");
  EXPECT_EQ(CodeOf(ReplaceObjects(*unrepairable, {})), "Unsupported");
}

}  // namespace
}  // namespace TalVcs::Kit
