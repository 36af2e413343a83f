// Waiting for heads, by polling and in stores that wait by themselves; and workspaces on a far
// store, with a cache, online and offline.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/store/cache_store.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/head_watcher.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/recording_store.h>
#include <kit/text.h>
#include <kit/workspace/workspace.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

// The SHA-256 of "blob 3\0one" and of "blob 3\0two".
const Id kFirst(ToWide("437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3"));
const Id kSecond(ToWide("9d500193ed108f2f3ad67e1870148696dce98f56644f500176a1dc1cf1634f64"));

using Time = std::chrono::steady_clock::time_point;

/// A store that waits by itself, by putting a clock forward: it moves a head in the call number
/// `moveAt`. Each call waits for the time that it is given, or for `earlyTime` if that is set.
class WatchedStore final : public RecordingStore {
 public:
  WatchedStore(std::shared_ptr<IObjectStore> store, Time& now)
      : RecordingStore(std::move(store)), m_now(now) {}

  Result<std::vector<Head>> WaitForHeads(std::span<const Head> /*seen*/,
                                         milliseconds timeout) override {
    timeouts.push_back(timeout);
    m_now += earlyTime.value_or(timeout);
    if (timeouts.size() == moveAt) MoveHeads({{{"master", kFirst, kSecond}}}).value();
    return Heads();
  }

  std::vector<milliseconds> timeouts;
  std::size_t moveAt = 0;
  std::optional<milliseconds> earlyTime;

 private:
  Time& m_now;
};

class Waiting : public testing::Test {
 protected:
  Waiting() { m_store->MoveHeads({{{"master", Id(), kFirst}}}).value(); }

  /// Lets `sleep` count, and move a head at the sleep of that number.
  HeadWaitOptions Options(std::size_t moveAt = 0) {
    HeadWaitOptions options;
    options.timeout = milliseconds(2500);
    options.clock = [this] { return m_now; };
    options.sleep = [this, moveAt](milliseconds time) {
      m_now += time;
      m_sleeps.push_back(time);
      if (m_sleeps.size() == moveAt) m_store->MoveHeads({{{"master", kFirst, kSecond}}}).value();
    };
    return options;
  }

  std::shared_ptr<MemoryObjectStore> m_store = std::make_shared<MemoryObjectStore>();
  const std::vector<Head> m_seen = {{"master", kFirst}};
  std::vector<milliseconds> m_sleeps;
  Time m_now;
};

TEST_F(Waiting, MoveBeforeTheCallIsReturnedAtOnce) {
  const auto heads = WaitForHeads(*m_store, {}, Options());
  EXPECT_EQ(heads.value(), m_seen);
  EXPECT_THAT(m_sleeps, IsEmpty());
}

TEST_F(Waiting, PollingReturnsTheHeadsAfterAMove) {
  const auto heads = WaitForHeads(*m_store, m_seen, Options(2));
  EXPECT_EQ(heads.value(), (std::vector<Head>{{"master", kSecond}}));
  EXPECT_THAT(m_sleeps, ElementsAre(milliseconds(1000), milliseconds(1000)));
}

TEST_F(Waiting, PollingEndsAtTheTimeoutWithEqualHeads) {
  EXPECT_EQ(WaitForHeads(*m_store, m_seen, Options()).value(), m_seen);
  EXPECT_THAT(m_sleeps, ElementsAre(milliseconds(1000), milliseconds(1000), milliseconds(500)));
}

// The wait for an interval of nothing had no end.
TEST_F(Waiting, PollingWithoutAnIntervalEndsAtTheTimeout) {
  HeadWaitOptions options = Options();
  options.timeout = milliseconds(3);
  options.interval = milliseconds(0);
  EXPECT_EQ(WaitForHeads(*m_store, m_seen, options).value(), m_seen);
  EXPECT_THAT(m_sleeps, ElementsAre(milliseconds(1), milliseconds(1), milliseconds(1)));
}

TEST_F(Waiting, CancelEndsPollingAfterAnInterval) {
  HeadWaitOptions options = Options();
  int calls = 0;
  options.progress = [&calls](const ProgressStep& step) {
    EXPECT_EQ(step.phase, "wait");
    return ++calls < 3;
  };
  EXPECT_EQ(WaitForHeads(*m_store, m_seen, options).error().code, ErrorCode::Cancelled);
  EXPECT_EQ(m_sleeps.size(), 2U);
}

TEST_F(Waiting, StoreThatWaitsIsAskedOnceForTheWholeTime) {
  WatchedStore watched(m_store, m_now);
  watched.moveAt = 1;
  const auto heads = WaitForHeads(watched, m_seen, Options());
  EXPECT_EQ(heads.value(), (std::vector<Head>{{"master", kSecond}}));
  EXPECT_THAT(watched.timeouts, ElementsAre(milliseconds(2500)));
  EXPECT_THAT(m_sleeps, IsEmpty());
}

TEST_F(Waiting, StoreThatWaitsIsAskedInIntervalsIfTheHostMayCancel) {
  WatchedStore watched(m_store, m_now);
  watched.moveAt = 3;
  HeadWaitOptions options = Options();
  options.progress = [](const ProgressStep&) { return true; };
  EXPECT_EQ(WaitForHeads(watched, m_seen, options).value().front().id, kSecond);
  EXPECT_THAT(watched.timeouts,
              ElementsAre(milliseconds(1000), milliseconds(1000), milliseconds(500)));
}

// The wait ended with the first call that returned early.
TEST_F(Waiting, StoreThatReturnsEarlyWithEqualHeadsIsAskedForTheRest) {
  WatchedStore watched(m_store, m_now);
  watched.earlyTime = milliseconds(800);
  watched.moveAt = 3;
  EXPECT_EQ(WaitForHeads(watched, m_seen, Options()).value().front().id, kSecond);
  EXPECT_THAT(watched.timeouts,
              ElementsAre(milliseconds(2500), milliseconds(1700), milliseconds(900)));
  EXPECT_THAT(m_sleeps, IsEmpty());
}

TEST_F(Waiting, StoreThatReturnsEarlyEachTimeIsAskedUntilTheTimeout) {
  WatchedStore watched(m_store, m_now);
  watched.earlyTime = milliseconds(800);
  EXPECT_EQ(WaitForHeads(watched, m_seen, Options()).value(), m_seen);
  // The last call looks at the heads once more.
  EXPECT_THAT(watched.timeouts, ElementsAre(milliseconds(2500), milliseconds(1700),
                                            milliseconds(900), milliseconds(100), milliseconds(0)));
}

TEST_F(Waiting, StoreThatReturnsAtOnceIsAskedAHundredTimesASecond) {
  WatchedStore watched(m_store, m_now);
  watched.earlyTime = milliseconds(1);
  watched.moveAt = 4;
  EXPECT_EQ(WaitForHeads(watched, m_seen, Options()).value().front().id, kSecond);
  EXPECT_THAT(watched.timeouts, ElementsAre(milliseconds(2500), milliseconds(2490),
                                            milliseconds(2480), milliseconds(2470)));
  EXPECT_THAT(m_sleeps, ElementsAre(milliseconds(9), milliseconds(9), milliseconds(9)));
}

TEST_F(Waiting, DecoratorsLetTheStoreBelowWait) {
  auto watched = std::make_shared<WatchedStore>(m_store, m_now);
  watched->moveAt = 1;
  CacheStore cache(std::make_shared<MemoryObjectStore>(), watched);
  RecordingStore recording(cache);
  EXPECT_EQ(WaitForHeads(recording, m_seen, Options()).value().front().id, kSecond);
  EXPECT_EQ(watched->timeouts.size(), 1U);
  EXPECT_THAT(recording.GetLog(), ElementsAre("WaitForHeads 1"));
}

TEST_F(Waiting, DecoratorOfAStoreThatCannotWaitIsPolled) {
  RecordingStore recording(m_store);
  EXPECT_EQ(WatchHeads(recording, m_seen, milliseconds(1)).error().code, ErrorCode::Unsupported);
  EXPECT_EQ(WaitForHeads(recording, m_seen, Options(1)).value().front().id, kSecond);
  EXPECT_THAT(m_sleeps, ElementsAre(milliseconds(1000)));
  EXPECT_EQ(recording.CountCalls(StoreOperation::Heads), 2U);
}

/// A document of 2,000 files in a far store that can become unreachable.
class FarDocument : public testing::Test {
 protected:
  FarDocument() {
    Workspace workspace = Workspace::Open(m_memory, {.author = "Ada"}).value();
    for (int i = 0; i < 2000; ++i) {
      workspace.Write(PathOf(i), "file " + std::to_string(i)).value();
    }
    workspace.Commit("All").value();
  }

  static std::string PathOf(int i) {
    return std::to_string(i / 100) + "/" + std::to_string(i / 10) + "/" + std::to_string(i);
  }

  /// Opens the document through a cache, as another session would.
  Workspace OpenAgain() {
    m_cache = std::make_shared<CacheStore>(m_disk, m_far, CacheOptions{.keepsHeads = true});
    m_far->Restart();
    return Workspace::Open(m_cache, {.author = "Bob"}).value();
  }

  void Disconnect() { m_far->FailFrom(1, 1'000'000); }
  void Connect() { m_far->FailFrom(0); }

  std::shared_ptr<MemoryObjectStore> m_memory = std::make_shared<MemoryObjectStore>();
  std::shared_ptr<FaultInjectionStore> m_far = std::make_shared<FaultInjectionStore>(m_memory);
  std::shared_ptr<MemoryObjectStore> m_disk = std::make_shared<MemoryObjectStore>();
  std::shared_ptr<CacheStore> m_cache;
};

TEST_F(FarDocument, FetchesWhatIsTouchedAndNoMore) {
  Workspace workspace = OpenAgain();
  EXPECT_EQ(workspace.Read(PathOf(1234)).value().text(), "file 1234");
  // The commit, the root, two folders and the file.
  EXPECT_EQ(m_disk->GetCount(), 5U);
  EXPECT_LE(m_far->CountCalls(), 8U);
  m_far->Restart();
  EXPECT_EQ(workspace.Read(PathOf(1235)).value().text(), "file 1235");
  EXPECT_THAT(m_far->GetLog(), ElementsAre("Read 1"));
}

TEST_F(FarDocument, SaveWritesWhatIsNewAndAsksForLittle) {
  Workspace workspace = OpenAgain();
  workspace.Write(PathOf(1234), "edited").value();
  m_far->Restart();
  workspace.Commit("Edit").value();
  EXPECT_LE(m_far->CountCalls(), 9U);
  EXPECT_EQ(Workspace::Open(m_memory).value().Read(PathOf(1234)).value().text(), "edited");
  // What was written is in the cache too.
  m_far->Restart();
  EXPECT_EQ(workspace.Read(PathOf(1234)).value().text(), "edited");
  EXPECT_EQ(m_far->CountCalls(), 0U);
}

TEST_F(FarDocument, OpensOfflineReadsWhatTheCacheHasAndSaysWhatItLacks) {
  OpenAgain().Read(PathOf(7)).value();
  Disconnect();
  Workspace offline = OpenAgain();
  EXPECT_TRUE(m_cache->IsOffline());
  EXPECT_EQ(offline.Read(PathOf(7)).value().text(), "file 7");
  const auto lacking = offline.Read(PathOf(8));
  ASSERT_FALSE(lacking.ok());
  EXPECT_EQ(lacking.error().code, ErrorCode::Unavailable);
  const Id id = BlobFromBytes("file 8").GetId();
  EXPECT_EQ(lacking.error().subject, ToUtf8(id.View()));
  EXPECT_THAT(m_cache->FindUncached({{BlobFromBytes("file 7").GetId(), id}}), ElementsAre(id));
}

TEST_F(FarDocument, EditsMadeOfflineStayPendingAndAreSavedWhenTheStoreIsBack) {
  OpenAgain().Read(PathOf(7)).value();
  Disconnect();
  Workspace workspace = OpenAgain();
  workspace.Write(PathOf(7), "edited offline").value();
  const auto failed = workspace.Commit("Edit");
  ASSERT_FALSE(failed.ok());
  EXPECT_EQ(failed.error().code, ErrorCode::Unavailable);
  EXPECT_EQ(workspace.Read(PathOf(7)).value().text(), "edited offline");
  Connect();
  workspace.Commit("Edit").value();
  EXPECT_EQ(Workspace::Open(m_memory).value().Read(PathOf(7)).value().text(), "edited offline");
}

// Somebody else saved meanwhile. The kept heads are old, and nothing of theirs is lost.
TEST_F(FarDocument, EditsMadeOnOldHeadsMeetWhatOthersSaved) {
  OpenAgain().Read(PathOf(7)).value();
  Disconnect();
  Workspace workspace = OpenAgain();
  workspace.Write(PathOf(7), "edited offline").value();
  Workspace other = Workspace::Open(m_memory, {.author = "Ada"}).value();
  other.Write(PathOf(8), "meanwhile").value();
  other.Commit("Meanwhile").value();
  Connect();
  const auto refused = workspace.Commit("Edit");
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.error().code, ErrorCode::HeadMoved);
  workspace.Reload().value();
  workspace.Commit("Edit").value();
  const Workspace last = Workspace::Open(m_memory).value();
  EXPECT_EQ(last.Read(PathOf(7)).value().text(), "edited offline");
  EXPECT_EQ(last.Read(PathOf(8)).value().text(), "meanwhile");
}

}  // namespace
}  // namespace TalVcs::Kit
