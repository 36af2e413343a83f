// The decorators that pass calls of one store on: each alone, and all under the suite of the
// stores.

#include <gtest/gtest.h>
#include <kit/store/checksum_store.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/progress_store.h>
#include <kit/store/rate_limit_store.h>
#include <kit/store/recording_store.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/support/bytes.h>
#include <tests/support/text.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

template <class Store, class... Options>
StoreKind Over(Options... options) {
  return StoreKind{[options...] {
    return [options...] {
      return std::make_unique<Store>(std::make_shared<MemoryObjectStore>(), options...);
    };
  }};
}

INSTANTIATE_TEST_SUITE_P(Passing, ObjectStoreSuite, testing::Values(Over<PassingStore>()));
INSTANTIATE_TEST_SUITE_P(Checksum, ObjectStoreSuite, testing::Values([] {
                           StoreKind kind = Over<ChecksumStore>();
                           kind.checksIds = true;
                           return kind;
                         }()));
INSTANTIATE_TEST_SUITE_P(FaultInjection, ObjectStoreSuite,
                         testing::Values(Over<FaultInjectionStore>()));
INSTANTIATE_TEST_SUITE_P(Progress, ObjectStoreSuite,
                         testing::Values(Over<ProgressStore>(ProgressStoreOptions{
                             [](const ProgressStep&) { return true; }, {}})));
INSTANTIATE_TEST_SUITE_P(RateLimit, ObjectStoreSuite,
                         testing::Values(Over<RateLimitStore>(RateLimits{
                             1, 1, {}, [](nanoseconds) {}})));

const StoredObject kOne =
    Stored("437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3", {"blob 3\0one", 10});
const StoredObject kTwo =
    Stored("9d500193ed108f2f3ad67e1870148696dce98f56644f500176a1dc1cf1634f64", {"blob 3\0two", 10});
const StoredObject kParent =
    Stored("4b2c5f74a133b3ecaee8d2d9647ef0bf54f804aef9ea52fdb4b8f3693447b9b0",
           {"commit 58\0tree \nauthor A <a> 0 +0000\ncommitter A <a> 0 +0000\n\nfirst\n", 68});
const StoredObject kCommit =
    Stored("f3aa4a13a44b53ebdf33069aee6d81ff801b48d6937d0d1f7000c2b5374f1048",
           {"commit 131\0tree \n"
            "parent 4b2c5f74a133b3ecaee8d2d9647ef0bf54f804aef9ea52fdb4b8f3693447b9b0\n"
            "author A <a> 0 +0000\ncommitter A <a> 0 +0000\n\nsecond\n",
            142});

std::string Show(const Result<Buffer>& packed) {
  return packed ? Testing::Bytes(*packed) : ToString(packed.error().code);
}

/// Returns the bytes of an object, or the name of an error's code.
std::string ReadOne(IObjectStore& store, const Id& id) {
  std::string shown = "not passed";
  const Status status =
      store.Read({&id, 1}, [&](const Id&, Result<Buffer> packed) { shown = Show(packed); });
  return status ? shown : ToString(status.error().code);
}

std::vector<std::string> HistoryOf(IObjectStore& store, const Id& id) {
  std::vector<std::string> shown;
  EXPECT_TRUE(store
                  .ReadHistory(id, 10,
                               [&](const Id&, Result<Buffer> packed) {
                                 shown.push_back(packed ? "found" : ToString(packed.error().code));
                               })
                  .ok());
  return shown;
}

/// A clock that stands still until it is set.
struct Clock {
  steady_clock::time_point now{std::chrono::hours(1)};

  std::function<steady_clock::time_point()> Function() {
    return [this] { return now; };
  }
};

TEST(ChecksumStore, ObjectWithOtherBytesIsDamaged) {
  MemoryObjectStore memory;
  ASSERT_TRUE(memory.Write({{kOne, {kTwo.id, kOne.packed}}}).ok());
  ChecksumStore store(memory);
  EXPECT_EQ(ReadOne(store, kOne.id), Testing::Bytes(kOne.packed));
  EXPECT_EQ(ReadOne(store, kTwo.id), "Damaged");
  EXPECT_EQ(ReadOne(store, kCommit.id), "NotFound");
}

TEST(ChecksumStore, EmptyObjectIsDamaged) {
  MemoryObjectStore memory;
  ASSERT_TRUE(memory.Write({{StoredObject{kOne.id, Buffer()}}}).ok());
  ChecksumStore store(memory);
  EXPECT_EQ(ReadOne(store, kOne.id), "Damaged");
}

TEST(ChecksumStore, HistoryEndsAtADamagedCommit) {
  MemoryObjectStore memory;
  Buffer changed = kCommit.packed;
  changed.WriteAt(kCommit.packed.GetSize() - 2, "D", 1);
  ASSERT_TRUE(memory.Write({{kParent, {kCommit.id, changed}}}).ok());
  ChecksumStore store(memory);
  EXPECT_EQ(HistoryOf(memory, kCommit.id), (std::vector<std::string>{"found", "found"}));
  EXPECT_EQ(HistoryOf(store, kCommit.id), std::vector<std::string>{"Damaged"});
}

/// A store that opens in one round trip, and counts how often.
class OpeningStore final : public PassingStore {
 public:
  using PassingStore::PassingStore;

  Result<StoreOpening> ReadOpening(std::string_view branch, std::string_view valueName,
                                   std::string_view otherwise) override {
    asked.push_back(std::string(branch) + "," + std::string(valueName) + "," +
                    std::string(otherwise));
    return StoreOpening{{{"master", kOne.id}}, "master", {kOne, {kTwo.id, kOne.packed}}};
  }

  std::vector<std::string> asked;
};

std::vector<std::string> IdsOf(const std::vector<StoredObject>& objects) {
  std::vector<std::string> ids;
  for (const StoredObject& object : objects) ids.push_back(Testing::Ascii(object.id));
  return ids;
}

TEST(PassingStore, OpeningIsOneCallOfAStoreThatReadsItAtOnce) {
  MemoryObjectStore memory;
  OpeningStore below(memory);
  RecordingStore store(below);
  const StoreOpening opening = ReadOpening(store, "topic", "branch", "master").value();
  EXPECT_EQ(below.asked, std::vector<std::string>{"topic,branch,master"});
  EXPECT_EQ(opening.heads, (std::vector<Head>{{"master", kOne.id}}));
  EXPECT_EQ(opening.value, "master");
  EXPECT_EQ(opening.objects.size(), 2U);
  EXPECT_EQ(store.GetLog(), std::vector<std::string>{"ReadOpening branch"});
  EXPECT_EQ(store.GetCalls()[0].sizeBytes, 20U);
  EXPECT_TRUE(store.Heads().value().empty()) << "what came with the opening is used once";
}

TEST(PassingStore, OpeningOfAnotherStoreIsItsHeadsAndItsValue) {
  MemoryObjectStore memory;
  ASSERT_TRUE(memory.SetValue("branch", "topic").ok());
  RecordingStore store(memory);
  EXPECT_EQ(ReadOpening(store, "", "branch", "master").value().value, "topic");
  EXPECT_EQ(store.GetLog(), (std::vector<std::string>{"Heads", "Value branch"}));
}

TEST(PassingStore, HeadsAndValuesOfADerivedClassAreThoseOfTheOpening) {
  class OtherHeads final : public PassingStore {
   public:
    using PassingStore::PassingStore;
    Result<std::vector<Head>> Heads() override {
      Result<std::vector<Head>> heads = PassingStore::Heads();
      if (heads) heads->push_back({"own", kTwo.id});
      return heads;
    }
    Result<std::optional<std::string>> Value(std::string_view name) override {
      return std::optional("own " + std::string(name));
    }
  };
  MemoryObjectStore memory;
  OpeningStore below(memory);
  OtherHeads store(below);
  const StoreOpening opening = ReadOpening(store, "", "branch", "master").value();
  EXPECT_EQ(opening.heads, (std::vector<Head>{{"master", kOne.id}, {"own", kTwo.id}}));
  EXPECT_EQ(opening.value, "own branch");
  EXPECT_EQ(opening.objects.size(), 2U);
}

TEST(PassingStore, FailedOpeningIsReturned) {
  MemoryObjectStore memory;
  OpeningStore below(memory);
  FaultInjectionStore store(below);
  store.FailFrom(1);
  EXPECT_EQ(ReadOpening(store, "", "branch", "master").error().code, ErrorCode::Unavailable);
  EXPECT_TRUE(below.asked.empty());
}

TEST(PassingStore, GradualRemovalIsPassedOnWhereTheStoreBelowCan) {
  class Remover final : public PassingStore {
   public:
    using PassingStore::PassingStore;
    Result<RemovedObjects> RemoveGradually(const MarkObjects&, milliseconds grace) override {
      return RemovedObjects{static_cast<std::uint64_t>(grace.count()), 0};
    }
  };
  const MarkObjects mark = [](std::span<const Head>) { return std::vector<Id>(); };
  MemoryObjectStore memory;
  Remover below(memory);
  RecordingStore store(below);
  EXPECT_EQ(RemoveGradually(store, mark, milliseconds(7)).value().count, 7U);
  EXPECT_EQ(store.GetLog(), std::vector<std::string>{"RemoveGradually"});
  PassingStore plain(memory);
  EXPECT_EQ(RemoveGradually(plain, mark, milliseconds(7)).error().code, ErrorCode::Unsupported);
}

TEST(ChecksumStore, OpeningLeavesOutWhatDoesNotFitItsId) {
  MemoryObjectStore memory;
  OpeningStore below(memory);
  ChecksumStore store(below);
  EXPECT_EQ(IdsOf(ReadOpening(store, "", "branch", "master").value().objects),
            std::vector<std::string>{Testing::Ascii(kOne.id)});
}

TEST(FaultInjectionStore, FailsTheChosenCallsAndRecordsAll) {
  MemoryObjectStore memory;
  FaultInjectionStore store(memory);
  store.FailFrom(2, 2);
  store.FailWith(ErrorCode::Full);
  EXPECT_TRUE(store.Missing({{kOne.id}}).ok());
  EXPECT_FALSE(store.HasFailed());
  EXPECT_EQ(store.Write({{kOne}}).error().code, ErrorCode::Full);
  EXPECT_EQ(store.Heads().error().code, ErrorCode::Full);
  EXPECT_TRUE(store.SetValue("current", "master").ok());
  EXPECT_TRUE(store.HasFailed());
  EXPECT_EQ(store.GetLog(),
            (std::vector<std::string>{"Missing 1", "Write 1", "Heads", "SetValue current"}));
  EXPECT_EQ(store.GetCalls()[1].failure, ErrorCode::Full);
  EXPECT_EQ(store.GetCalls()[3].failure, std::nullopt);
  EXPECT_EQ(memory.GetCount(), 0U);
}

TEST(FaultInjectionStore, RestartCountsFromOneAgain) {
  MemoryObjectStore memory;
  FaultInjectionStore store(memory);
  ASSERT_TRUE(store.Heads().ok());
  store.Restart();
  store.FailFrom(2);
  EXPECT_TRUE(store.Heads().ok());
  EXPECT_FALSE(store.Heads().ok());
  EXPECT_EQ(store.CountCalls(), 2U);
  store.Restart();
  EXPECT_FALSE(store.HasFailed());
  EXPECT_EQ(store.CountCalls(), 0U);
}

TEST(FaultInjectionStore, CallThatFailsAfterwardsHasDoneItsWork) {
  MemoryObjectStore memory;
  FaultInjectionStore store(memory);
  store.FailFrom(1);
  store.FailAfterwards();
  store.FailWith(ErrorCode::Unknown);
  EXPECT_EQ(store.Write({{kOne}}).error().code, ErrorCode::Unknown);
  EXPECT_EQ(memory.GetCount(), 1U);
}

TEST(FaultInjectionStore, ChosenObjectsFailUntilTheyAreHealed) {
  MemoryObjectStore memory;
  ASSERT_TRUE(memory.Write({{kOne}}).ok());
  FaultInjectionStore store(memory);
  store.FailObject(kOne.id, ErrorCode::Damaged);
  EXPECT_EQ(ReadOne(store, kOne.id), "Damaged");
  store.ReplaceObject(kOne.id, Testing::BufferOf("other"));
  EXPECT_EQ(ReadOne(store, kOne.id), "other");
  store.Heal();
  EXPECT_EQ(ReadOne(store, kOne.id), std::string("blob 3\0one", 10));
  EXPECT_EQ(store.CountReadIds(), 3U);
}

TEST(FaultInjectionStore, HistoryEndsAfterAChosenObject) {
  MemoryObjectStore memory;
  ASSERT_TRUE(memory.Write({{kCommit, kParent}}).ok());
  FaultInjectionStore store(memory);
  store.FailObject(kCommit.id, ErrorCode::Damaged);
  EXPECT_EQ(HistoryOf(store, kCommit.id), std::vector<std::string>{"Damaged"});
}

TEST(FaultInjectionStore, CallIsInterruptedBeforeItsWork) {
  MemoryObjectStore memory;
  FaultInjectionStore store(memory);
  store.InterruptAt(1, [&] { ASSERT_TRUE(memory.Write({{kOne}}).ok()); });
  EXPECT_TRUE(store.Missing({{kOne.id}}).value().empty());
}

TEST(RecordingStore, KeepsNamesIdsSizesAndDurations) {
  MemoryObjectStore memory;
  Clock clock;
  RecordingStore store(memory, {.now = [&] { return clock.now += milliseconds(3); }});
  ASSERT_TRUE(store.Write({{kOne, kTwo}}).ok());
  ASSERT_EQ(ReadOne(store, kOne.id), Testing::Bytes(kOne.packed));
  ASSERT_TRUE(store.MoveHeads({{HeadMove{"master", Id(), kTwo.id}}}).ok());
  ASSERT_FALSE(store.MoveHeads({{HeadMove{"master", Id(), kOne.id}}}).ok());
  ASSERT_EQ(store.CountCalls(), 4U);
  const RecordedCall& write = store.GetCalls()[0];
  EXPECT_EQ(write.operation, StoreOperation::Write);
  EXPECT_EQ(write.ids, (std::vector<Id>{kOne.id, kTwo.id}));
  EXPECT_EQ(write.sizeBytes, 20U);
  EXPECT_EQ(write.duration, milliseconds(3));
  EXPECT_EQ(store.GetCalls()[1].sizeBytes, 10U);
  EXPECT_EQ(store.GetCalls()[2].ids, std::vector<Id>{kTwo.id});
  EXPECT_EQ(store.GetCalls()[2].failure, std::nullopt);
  EXPECT_EQ(store.GetCalls()[3].failure, ErrorCode::Conflict);
  EXPECT_EQ(store.CountCalls(StoreOperation::MoveHeads), 2U);
}

TEST(RecordingStore, DropsTheOldestCalls) {
  MemoryObjectStore memory;
  RecordingStore store(memory, {.mostCalls = 2});
  ASSERT_TRUE(store.Heads().ok());
  ASSERT_TRUE(store.Value("a").ok());
  ASSERT_TRUE(store.Value("b").ok());
  EXPECT_EQ(store.GetLog(), (std::vector<std::string>{"Value a", "Value b"}));
  EXPECT_EQ(store.GetCalls().front().number, 2U);
}

TEST(RecordingStore, CallsWithinAMarkHaveTheirOwnDurations) {
  MemoryObjectStore memory;
  Clock clock;
  RecordingStore store(memory, {.now = [&] { return clock.now += milliseconds(1); }});
  ASSERT_TRUE(store
                  .RemoveUnmarked([&](std::span<const Head>) -> Result<std::vector<Id>> {
                    EXPECT_EQ(ReadOne(store, kOne.id), "NotFound");
                    return std::vector<Id>();
                  })
                  .ok());
  EXPECT_EQ(store.GetLog(), (std::vector<std::string>{"RemoveUnmarked", "Read 1"}));
  EXPECT_EQ(store.GetCalls()[0].duration, milliseconds(3));
  EXPECT_EQ(store.GetCalls()[1].duration, milliseconds(1));
}

TEST(RecordingStore, CallWhoseCallbackThrewHasNoDuration) {
  MemoryObjectStore memory;
  RecordingStore store(memory);
  const auto read = [&] {
    return store.Read({{kOne.id}}, [](const Id&, const Result<Buffer>&) { throw 1; }).ok();
  };
  EXPECT_THROW(read(), int);
  ASSERT_TRUE(store.Heads().ok());
  EXPECT_EQ(store.GetCalls()[0].duration, std::nullopt);
  EXPECT_NE(store.GetCalls()[1].duration, std::nullopt);
}

/// Refuses every call before the recording store sees it.
class RefusingStore final : public RecordingStore {
 public:
  using RecordingStore::RecordingStore;

 protected:
  Status Before(const StoreCall& /*call*/) override {
    return Error{ErrorCode::Denied, "refused", {}, {}, {}, {}};
  }
};

// The end of a call whose beginning was not recorded read beyond an empty list.
TEST(RecordingStore, CallThatADerivedClassRefusesIsNotRecorded) {
  MemoryObjectStore memory;
  RefusingStore store(memory);
  EXPECT_EQ(store.Heads().error().code, ErrorCode::Denied);
  EXPECT_EQ(store.CountCalls(), 0U);
}

/// Steps of a progress store, as "phase done/bytes".
struct Steps {
  std::vector<std::string> shown;
  std::size_t cancelAt = 0;
  Clock clock;

  ProgressStoreOptions Options() {
    return {[this](const ProgressStep& step) {
              shown.push_back(std::string(step.phase) + ' ' + std::to_string(step.done) + '/' +
                              std::to_string(step.sizeBytes));
              return shown.size() != cancelAt;
            },
            clock.Function()};
  }
};

/// Objects without sense, each of some bytes.
std::vector<StoredObject> ObjectsOf(std::size_t count, std::size_t size) {
  std::vector<StoredObject> objects;
  for (std::size_t index = 0; index < count; ++index) {
    Buffer packed(size);
    packed.WriteAt(0, &index, sizeof(index));
    objects.push_back({Id(packed), packed});
  }
  return objects;
}

TEST(ProgressStore, CountsTheCallsOfEachOperation) {
  MemoryObjectStore memory;
  Steps steps;
  ProgressStore store(memory, steps.Options());
  ASSERT_TRUE(store.Write({{kOne}}).ok());
  ASSERT_TRUE(store.Heads().ok());
  ASSERT_TRUE(store.Write({{kTwo}}).ok());
  EXPECT_EQ(steps.shown, (std::vector<std::string>{"Write 0/0", "Heads 0/0"}));
  steps.clock.now += milliseconds(20);
  ASSERT_TRUE(store.Write({{kOne}}).ok());
  EXPECT_EQ(steps.shown.back(), "Write 2/20");
  steps.clock.now += milliseconds(19);
  ASSERT_TRUE(store.Write({{kOne}}).ok());
  EXPECT_EQ(steps.shown.size(), 3U);
}

TEST(ProgressStore, CancelsBeforeTheStoreIsCalled) {
  for (int operation = 0; operation < 3; ++operation) {
    MemoryObjectStore memory;
    Steps steps;
    steps.cancelAt = 1;
    ProgressStore store(memory, steps.Options());
    const auto call = [&]() -> Status {
      if (operation == 0) return store.Write({{kOne}});
      if (operation == 1) return store.MoveHeads({{HeadMove{"master", Id(), kOne.id}}});
      return store.SetValue("name", "value");
    };
    const Status status = call();
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().code, ErrorCode::Cancelled);
    EXPECT_EQ(memory.GetCount(), 0U);
    EXPECT_TRUE(memory.Heads().value().empty());
    EXPECT_FALSE(memory.Value("name").value());
    EXPECT_TRUE(call().ok());
  }
}

TEST(ProgressStore, CancelsALongWriteBetweenBatches) {
  MemoryObjectStore memory;
  Steps steps;
  steps.cancelAt = 3;
  ProgressStoreOptions options = steps.Options();
  options.now = [&] { return steps.clock.now += milliseconds(20); };
  ProgressStore store(memory, options);
  EXPECT_EQ(store.Write(ObjectsOf(1000, 8)).error().code, ErrorCode::Cancelled);
  EXPECT_EQ(memory.GetCount(), 512U);
  EXPECT_EQ(steps.shown,
            (std::vector<std::string>{"Write 0/0", "Write 256/2048", "Write 512/4096"}));
}

TEST(ProgressStore, BatchesAreBoundedInBytes) {
  MemoryObjectStore memory;
  RecordingStore recording(memory);
  ProgressStore store(recording, {});
  ASSERT_TRUE(store.Write(ObjectsOf(5, 700 << 10)).ok());
  ASSERT_TRUE(store.Write(ObjectsOf(4, 512 << 10)).ok());
  EXPECT_EQ(recording.GetLog(),
            (std::vector<std::string>{"Write 1", "Write 1", "Write 1", "Write 1", "Write 1",
                                      "Write 2", "Write 2"}));
}

TEST(ProgressStore, CancelsALongReadBetweenBatchesAndAListing) {
  MemoryObjectStore memory;
  const std::vector<StoredObject> objects = ObjectsOf(300, 8);
  ASSERT_TRUE(memory.Write(objects).ok());
  std::vector<Id> ids;
  for (const StoredObject& object : objects) ids.push_back(object.id);
  Steps steps;
  steps.cancelAt = 2;
  ProgressStoreOptions options = steps.Options();
  options.now = [&] { return steps.clock.now += milliseconds(20); };
  ProgressStore store(memory, options);
  std::size_t read = 0;
  EXPECT_EQ(store.Read(ids, [&](const Id&, const Result<Buffer>&) { ++read; }).error().code,
            ErrorCode::Cancelled);
  EXPECT_EQ(read, 256U);
  steps.cancelAt = 4;
  std::size_t listed = 0;
  const auto count = [&](std::span<const Id> batch) {
    listed += batch.size();
    return true;
  };
  EXPECT_EQ(store.List(count).error().code, ErrorCode::Cancelled);
  EXPECT_EQ(listed, 0U);
  ASSERT_TRUE(store.List(count).ok());
  EXPECT_EQ(listed, 300U);
}

/// A rate limit whose sleep moves the clock.
struct Sleeper {
  Clock clock;
  std::vector<nanoseconds> slept;

  RateLimits Limits(std::uint64_t bytesPerSecond, std::uint64_t callsPerSecond) {
    return {bytesPerSecond, callsPerSecond, clock.Function(), [this](nanoseconds time) {
              slept.push_back(time);
              clock.now += time;
            }};
  }
};

TEST(RateLimitStore, CallsWaitForThoseBefore) {
  MemoryObjectStore memory;
  Sleeper sleeper;
  RateLimitStore store(memory, sleeper.Limits(0, 10));
  ASSERT_TRUE(store.Heads().ok());
  ASSERT_TRUE(store.Heads().ok());
  sleeper.clock.now += milliseconds(30);
  ASSERT_TRUE(store.Heads().ok());
  EXPECT_EQ(sleeper.slept, (std::vector<nanoseconds>{milliseconds(100), milliseconds(70)}));
}

TEST(RateLimitStore, BytesThatWereReadAndWrittenCount) {
  MemoryObjectStore memory;
  Sleeper sleeper;
  RateLimitStore store(memory, sleeper.Limits(100, 0));
  ASSERT_TRUE(store.Write({{kOne, kTwo}}).ok());
  EXPECT_EQ(ReadOne(store, kOne.id), Testing::Bytes(kOne.packed));
  ASSERT_TRUE(store.Heads().ok());
  ASSERT_TRUE(store.Heads().ok());
  EXPECT_EQ(sleeper.slept, (std::vector<nanoseconds>{milliseconds(200), milliseconds(100)}));
}

TEST(RateLimitStore, IdleTimeIsNotSavedUp) {
  MemoryObjectStore memory;
  Sleeper sleeper;
  RateLimitStore store(memory, sleeper.Limits(0, 1));
  ASSERT_TRUE(store.Heads().ok());
  sleeper.clock.now += std::chrono::hours(1);
  ASSERT_TRUE(store.Heads().ok());
  ASSERT_TRUE(store.Heads().ok());
  EXPECT_EQ(sleeper.slept, std::vector<nanoseconds>{std::chrono::seconds(1)});
}

}  // namespace
}  // namespace TalVcs::Kit
