// Each call of the store fails in turn, and each call of the progress cancels in turn.

#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/load.h>
#include <kit/open/save.h>
#include <kit/open/statistics.h>
#include <kit/open/try.h>
#include <kit/open/verify.h>
#include <kit/store/fault_injection_store.h>
#include <tests/kit/open/histories.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// Returns a progress callback that cancels at its n-th call, and counts the calls.
Progress CancelAt(int call, int& calls) {
  calls = 0;
  return [call, &calls](const ProgressStep& step) {
    EXPECT_FALSE(step.phase.empty());
    return ++calls != call;
  };
}

TEST(EachCallFails, OfOpeningEditingAndSaving) {
  for (const ErrorCode code : {ErrorCode::Unavailable, ErrorCode::Full, ErrorCode::Busy}) {
    for (int call = 1;; ++call) {
      const auto memory = SmallStore();
      const std::string heads = HeadsOf(*memory);
      const auto store = std::make_shared<FaultInjectionStore>(*memory);
      store->FailFrom(call);
      store->FailWith(code);
      const auto scenario = [&]() -> Result<SaveReport> {
        Result<OpenedRepository> opened = Open(store);
        if (!opened) return opened.error();
        AddCommit(opened->GetRepository(), "master", {{"a/b/c", "next"}, {"a/b/e", "more"}});
        AddCommit(opened->GetRepository(), "topic", {{"a/b/c", "another"}});
        return Save(*opened);
      };
      const Result<SaveReport> result = Try(scenario);
      EXPECT_TRUE(Verify(*memory).value().IsWhole());
      if (!store->HasFailed()) {
        EXPECT_TRUE(result.ok());
        break;
      }
      // A failure that says busy makes the save begin anew.
      if (result.ok()) continue;
      EXPECT_EQ(HeadsOf(*memory), heads) << call;
      store->FailFrom(0);
      EXPECT_TRUE(Try(scenario).ok()) << call;
    }
  }
}

TEST(EachCallFails, OfASaveThatIsRepeatedOnTheSameRepository) {
  for (int call = 1;; ++call) {
    const auto memory = SmallStore();
    const std::string heads = HeadsOf(*memory);
    const auto store = std::make_shared<FaultInjectionStore>(*memory);
    OpenedRepository opened = Open(store).value();
    AddCommit(opened.GetRepository(), "master", {{"a/b/c", "next"}});
    store->Restart();
    store->FailFrom(call);
    const Result<SaveReport> failed = Save(opened);
    if (!store->HasFailed()) break;
    // Only the name of the current branch may be missing after a success.
    EXPECT_EQ(HeadsOf(*memory) == heads, !failed.ok());
    store->FailFrom(0);
    EXPECT_TRUE(Save(opened).ok());
    EXPECT_EQ(HistoryOf(Open(memory).value().GetRepository()), HistoryOf(opened.GetRepository()));
  }
}

// A call that did its work and lost its answer: the branches are where they were or where they were
// to be, and the same save succeeds afterwards.
TEST(EachCallLosesItsAnswer, OfASave) {
  for (int call = 1;; ++call) {
    const auto memory = SmallStore();
    const auto store = std::make_shared<FaultInjectionStore>(*memory);
    OpenedRepository opened = Open(store).value();
    AddCommit(opened.GetRepository(), "master", {{"a/b/c", "next"}});
    store->Restart();
    store->FailFrom(call, 1000);
    store->FailWith(ErrorCode::Unknown);
    store->FailAfterwards();
    const Result<SaveReport> lost = Save(opened);
    if (!store->HasFailed()) break;
    EXPECT_TRUE(Verify(*memory).value().IsWhole());
    store->FailFrom(0);
    EXPECT_TRUE(Save(opened).ok());
    EXPECT_EQ(HistoryOf(Open(memory).value().GetRepository()), HistoryOf(opened.GetRepository()));
  }
}

TEST(EachCallFails, OfACopy) {
  const auto from = SmallStore();
  for (const bool fails_source : {true, false}) {
    for (int call = 1;; ++call) {
      MemoryObjectStore memory;
      FaultInjectionStore source(*from);
      FaultInjectionStore target(memory);
      FaultInjectionStore& faulty = fails_source ? source : target;
      faulty.FailFrom(call);
      const Result<CopyReport> result = Copy(source, target);
      if (!faulty.HasFailed()) {
        EXPECT_TRUE(result.ok());
        break;
      }
      EXPECT_EQ(CodeOf(result), "Unavailable");
      EXPECT_EQ(HeadsOf(memory), "");
      EXPECT_TRUE(Copy(*from, memory).ok());
      EXPECT_EQ(HeadsOf(memory), HeadsOf(*from));
      EXPECT_TRUE(Verify(memory).value().IsWhole());
    }
  }
}

TEST(EachCallFails, OfACleanUp) {
  const auto memory = SmallStore();
  const std::size_t count = memory->GetCount();
  for (int call = 1;; ++call) {
    FaultInjectionStore store(*memory);
    store.FailFrom(call);
    const Result<RemovedObjects> result = CleanUp(store);
    if (!store.HasFailed()) break;
    EXPECT_EQ(CodeOf(result), "Unavailable");
    EXPECT_EQ(memory->GetCount(), count);
  }
}

/// Runs an operation on a store whose n-th call fails, for every n, and requires that it fails.
template <class Operation>
void ExpectEachCallFails(Operation operation) {
  const auto memory = SmallStore();
  for (int call = 1;; ++call) {
    const auto store = std::make_shared<FaultInjectionStore>(*memory);
    store->FailFrom(call);
    const bool succeeds = operation(store).ok();
    EXPECT_EQ(succeeds, !store->HasFailed());
    if (!store->HasFailed()) break;
  }
}

using FaultyStore = std::shared_ptr<FaultInjectionStore>;

TEST(EachCallFails, OfLoadingVerifyingAndCounting) {
  ExpectEachCallFails([](const FaultyStore& store) { return Load(store); });
  ExpectEachCallFails([](const FaultyStore& store) { return Verify(*store); });
  ExpectEachCallFails([](const FaultyStore& store) { return Statistics(*store); });
  ExpectEachCallFails(
      [](const FaultyStore& store) { return Open(store, {.check = OpenCheck::Heads}); });
}

TEST(EachProgressCall, CancelsASave) {
  int calls = 0;
  for (int call = 1;; ++call) {
    const auto store = SmallStore();
    const std::string heads = HeadsOf(*store);
    OpenedRepository opened = Open(store).value();
    AddCommit(opened.GetRepository(), "master", {{"next", "x"}});
    const Result<SaveReport> result = Save(opened, {.progress = CancelAt(call, calls)});
    if (calls < call) break;
    EXPECT_EQ(CodeOf(result), "Cancelled");
    EXPECT_EQ(HeadsOf(*store), heads);
    EXPECT_TRUE(Save(opened).ok());
  }
  EXPECT_EQ(calls, 4);
}

TEST(EachProgressCall, CancelsACopy) {
  const auto from = SmallStore();
  int calls = 0;
  for (int call = 1;; ++call) {
    MemoryObjectStore to;
    const Result<CopyReport> result = Copy(*from, to, {.progress = CancelAt(call, calls)});
    if (calls < call) break;
    EXPECT_EQ(CodeOf(result), "Cancelled");
    EXPECT_EQ(HeadsOf(to), "");
    EXPECT_TRUE(Copy(*from, to).ok());
  }
  EXPECT_EQ(calls, 12);
}

TEST(EachProgressCall, CancelsACleanUp) {
  const auto store = SmallStore();
  store->MoveHeads(std::vector<HeadMove>{{"other", store->Heads().value()[1].id, Id()}}).value();
  const std::size_t count = store->GetCount();
  int calls = 0;
  for (int call = 1;; ++call) {
    const Result<RemovedObjects> result = CleanUp(*store, {.progress = CancelAt(call, calls)});
    if (calls < call) break;
    EXPECT_EQ(CodeOf(result), "Cancelled");
    EXPECT_EQ(store->GetCount(), count);
  }
  EXPECT_LT(store->GetCount(), count);
}

/// Runs an operation whose n-th call of the progress cancels, for every n, and requires that it
/// does.
template <class Operation>
void ExpectEachCallCancels(Operation operation) {
  int calls = 0;
  for (int call = 1;; ++call) {
    const std::string code = CodeOf(operation(CancelAt(call, calls)));
    EXPECT_EQ(code, calls < call ? "ok" : "Cancelled");
    if (calls < call) break;
  }
  EXPECT_GT(calls, 0);
}

TEST(EachProgressCall, CancelsWhatOnlyReads) {
  const auto store = SmallStore();
  ExpectEachCallCancels([&](Progress progress) { return Load(store, {.progress = progress}); });
  ExpectEachCallCancels([&](Progress progress) { return Verify(*store, {.progress = progress}); });
  ExpectEachCallCancels(
      [&](Progress progress) { return Statistics(*store, {.progress = progress}); });
  ExpectEachCallCancels([&](Progress progress) {
    return Open(store, {.check = OpenCheck::Everything, .progress = progress});
  });
}

TEST(ProgressCalls, SayWhatWasDone) {
  const auto store = SmallStore();
  std::vector<std::string> steps;
  const auto note = [&steps](const ProgressStep& step) {
    steps.push_back(std::string(step.phase) + " " + std::to_string(step.done));
    return true;
  };
  Verify(*store, {.progress = note}).value();
  EXPECT_EQ(steps.front(), "history 0");
  EXPECT_EQ(steps[1], "history 3");
  EXPECT_EQ(steps[2], "contents 0");
  EXPECT_EQ(steps.back(), "unreferenced " + std::to_string(store->GetCount()));
}

}  // namespace
}  // namespace TalVcs::Kit
