// What fetches, pushes and syncs report, what they try again, and what they leave alone.

#include <tests/kit/sharing/sharing_fixture.h>

#include <algorithm>
#include <functional>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::StoreOperation;
using testing::ElementsAre;
using testing::IsEmpty;

/// Calls `act` before each move of heads. May refuse to set values.
class BeforeMoves final : public Kit::PassingStore {
 public:
  using Kit::PassingStore::PassingStore;
  std::function<Kit::Status()> act = [] { return Kit::Status(); };
  bool refusesValues = false;

 protected:
  Kit::Status Before(const Kit::StoreCall& call) override {
    if (refusesValues && call.operation == StoreOperation::SetValue) {
      return Kit::Error{ErrorCode::Denied, "no values here", "", "", "", {}};
    }
    return call.operation == StoreOperation::MoveHeads ? act() : Kit::Status();
  }
};

class ReportsTest : public SharingTest {
 protected:
  ReportsTest() { shared = SmallStore(); }

  /// Returns the bytes of all objects of a store.
  static std::uint64_t BytesOf(Kit::IObjectStore& store) {
    std::uint64_t bytes = 0;
    const std::vector<std::optional<std::uint64_t>> sizes = store.Sizes(ObjectsOf(store)).value();
    for (const auto& size : sizes) bytes += size.value();
    return bytes;
  }

  static Kit::Error BusyError() { return {ErrorCode::Busy, "somebody writes", "", "", "", {}}; }
};

TEST_F(ReportsTest, BytesThatWereWrittenAreCounted) {
  Site site = MakeSite("A");
  EXPECT_EQ(site.remote.Fetch(*site.local).value().writtenBytes, BytesOf(*shared));
  site.memory->MoveHeads({{{"master", Id(), HeadOf(*shared, "master")}}}).value();
  Add(site.memory, "master", {{"a/b/c", "pushed"}});
  const std::uint64_t before = BytesOf(*shared);
  const std::uint64_t written = site.remote.Push(*site.local, "master").value().writtenBytes;
  EXPECT_GT(written, 0U);
  EXPECT_EQ(written, BytesOf(*shared) - before);
}

TEST_F(ReportsTest, OnlyBranchesThatMoveAreListed) {
  Site site = MakeSite("A");
  EXPECT_EQ(site.remote.Fetch(*site.local).value().moves.size(), shared->Heads()->size());
  const Id head = HeadOf(*shared, "master");
  site.memory->MoveHeads({{{"master", Id(), head}}}).value();
  EXPECT_THAT(site.remote.Push(*site.local, "master").value().moves, IsEmpty());
  const Id next = Add(site.memory, "master", {{"a", "pushed"}});
  const std::vector<Kit::HeadMove> moves = site.remote.Push(*site.local, "master").value().moves;
  ASSERT_EQ(moves.size(), 1U);
  EXPECT_EQ(moves[0].name, "remote/master");
  EXPECT_EQ(moves[0].expected, head);
  EXPECT_EQ(moves[0].desired, next);
}

TEST_F(ReportsTest, FetchWithNothingNewAsksTheLocalStoreForItsHeadsAndTheirCommits) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  site.memory->SetValue("branch", "master").value();
  site.local->Restart();
  site.remote.Fetch(*site.local).value();
  EXPECT_EQ(site.local->CountCalls(StoreOperation::Heads), 1U);
  EXPECT_EQ(site.local->CountCalls(StoreOperation::Missing), 1U);
  EXPECT_EQ(site.local->CountCalls(StoreOperation::Read), 0U);
}

TEST_F(ReportsTest, FetchOfAnEmptyRemoteSetsNoBranch) {
  shared = std::make_shared<Kit::MemoryObjectStore>();
  shared->SetValue("branch", "topic").value();
  Site site = MakeSite("A");
  EXPECT_THAT(site.remote.Fetch(*site.local).value().heads, IsEmpty());
  EXPECT_EQ(site.memory->Value("branch").value(), std::nullopt);
}

TEST_F(ReportsTest, RemovingWhatIsGoneKeepsTheBranchesThatWereNotAskedFor) {
  Site site = MakeSite("A");
  site.remote.Fetch(*site.local).value();
  for (const char* name : {"topic", "other"}) {
    shared->MoveHeads({{{name, HeadOf(*shared, name), Id()}}}).value();
  }
  const Kit::FetchReport report =
      site.remote.Fetch(*site.local, {.branches = {"master", "topic"}, .removesGone = true})
          .value();
  ASSERT_EQ(report.moves.size(), 1U);
  EXPECT_EQ(report.moves[0].name, "remote/topic");
  EXPECT_NE(HeadOf(*site.memory, "remote/other"), Id());
  EXPECT_EQ(HeadOf(*site.memory, "remote/topic"), Id());
}

TEST_F(ReportsTest, DamageOfAHeadThatStaysIsReportedAfterASecondLookAtTheHeads) {
  Site site = MakeSite("A");
  site.far->FailObject(HeadOf(*shared, "topic"), ErrorCode::NotFound);
  EXPECT_THAT(site.remote.Fetch(*site.local), FailsWith(ErrorCode::Damaged));
  EXPECT_EQ(site.far->CountCalls(StoreOperation::Heads), 2U);
}

// Two fetches into one store: the other one is faster, and brings a newer head.
TEST_F(ReportsTest, FetchBesideAnotherOneTakesTheNewerHead) {
  auto memory = std::make_shared<Kit::MemoryObjectStore>();
  BeforeMoves local(memory);
  Id newest;
  local.act = [&] {
    if (newest.View().IsEmpty()) {
      newest = Add(shared, "master", {{"new", "1"}});
      Kit::Remote(shared).Fetch(*memory).value();
    }
    return Kit::Status();
  };
  const Kit::FetchReport report = Kit::Remote(shared).Fetch(local).value();
  EXPECT_THAT(report.moves, IsEmpty()) << "the other one has moved them all";
  EXPECT_EQ(HeadOf(*memory, "remote/master"), newest);
  ExpectWhole(*memory);
}

TEST_F(ReportsTest, BusyStoreIsAskedAgain) {
  int left = 1;
  const auto busy_at_first = [&left]() -> Kit::Status {
    if (left-- > 0) return BusyError();
    return {};
  };
  auto memory = std::make_shared<Kit::MemoryObjectStore>();
  BeforeMoves local(memory);
  local.act = busy_at_first;
  Kit::Remote(shared).Fetch(local).value();
  EXPECT_EQ(HeadOf(*memory, "remote/master"), HeadOf(*shared, "master"));

  memory->MoveHeads({{{"master", Id(), HeadOf(*shared, "master")}}}).value();
  const Id head = Add(memory, "master", {{"new", "1"}});
  auto far = std::make_shared<BeforeMoves>(shared);
  far->act = busy_at_first;
  left = 1;
  Kit::Remote(far).Push(*memory, "master").value();
  EXPECT_EQ(HeadOf(*shared, "master"), head);

  left = 1000;
  const Id next = Add(memory, "master", {{"new", "2"}});
  EXPECT_THAT(Kit::Remote(far).Push(*memory, "master"), FailsWith(ErrorCode::Busy));
  Kit::Remote(shared).Push(*memory, "master").value();
  EXPECT_EQ(HeadOf(*shared, "master"), next);
}

TEST_F(ReportsTest, SyncCountsTheObjectsAndRacesOfAllAttempts) {
  shared = std::make_shared<Kit::MemoryObjectStore>();
  Site ada = MakeSite("Ada");
  Site bob = MakeSite("Bob");
  Edit(ada, "first", "1");
  Sync(ada);
  Sync(bob);
  Edit(bob, "b", "of Bob");
  int races = 0;
  auto far = std::make_shared<BeforeMoves>(shared);
  far->act = [&] {
    if (races++ < 3) {
      Edit(ada, "a", std::to_string(races));
      Sync(ada);
    }
    return Kit::Status();
  };
  Kit::Remote remote(far);
  const Kit::SyncReport report = bob.workspace.Sync(remote, Options()).value();
  EXPECT_EQ(report.lostRaces, 3U);
  EXPECT_EQ(report.replayedVersions, 1U);
  EXPECT_EQ(report.remoteHead, bob.workspace.GetHead().value()->id);
  // Each of Ada's versions has a commit, a folder and a file; one file is as in the first version.
  EXPECT_EQ(report.fetchedObjects, 3U * 3 - 1);
  // The last attempt writes a commit and a folder. The file came with the first one.
  EXPECT_EQ(report.pushedObjects, 2U);

  races = -1000;
  Edit(bob, "b", "of Bob, again");
  Kit::SyncOptions options = Options();
  options.mostLosses = 6;
  EXPECT_THAT(bob.workspace.Sync(remote, options), FailsWith(ErrorCode::Conflict));
  EXPECT_EQ(races, -1000 + 7) << "six losses, and one more that isn't tried again";
}

/// A sync that loses so many races, and how long it waits each time.
class LosingSync : public ReportsTest {
 protected:
  using Times = std::vector<std::chrono::milliseconds>;

  LosingSync() : bob(MakeSite("Bob")), far(std::make_shared<BeforeMoves>(shared)) {
    Sync(bob);
    Edit(bob, "b", "of Bob");
  }

  Times TimesOf(int losses, const std::function<void()>& on_sleep = {}) {
    int races = 0;
    far->act = [&]() -> Kit::Status {
      if (races++ < losses) return Kit::Error{ErrorCode::Conflict, "too late", "", "", "", {}};
      if (beforeLastMove) beforeLastMove();
      return {};
    };
    Times times;
    Kit::SyncOptions options;
    options.sleep = [&](std::chrono::milliseconds time) {
      times.push_back(time);
      if (on_sleep) on_sleep();
    };
    Kit::Remote remote(far);
    EXPECT_EQ(bob.workspace.Sync(remote, options).value().lostRaces,
              static_cast<std::uint64_t>(losses));
    EXPECT_EQ(HeadOf(*shared, "master"), bob.workspace.GetHead().value()->id);
    return times;
  }

  /// Returns how often it looked at the lock of somebody else. The other pauses are shorter.
  static std::ptrdiff_t CountLooks(const Times& times) {
    return std::ranges::count(times, std::chrono::milliseconds(50));
  }

  Site bob;
  std::shared_ptr<BeforeMoves> far;
  std::function<void()> beforeLastMove;
};

TEST_F(LosingSync, WaitsForATimeThatGrows) {
  const Times times = TimesOf(5);
  // After the fifth one, it takes the lock and looks 20 ms later whether it has it.
  ASSERT_EQ(times.size(), 6U);
  for (int i = 0; i < 5; ++i) {
    EXPECT_GE(times[i].count(), 0);
    EXPECT_LE(times[i].count(), 2 << i);
  }
  EXPECT_EQ(times[5].count(), 20);
  EXPECT_EQ(shared->Value("sync/master").value(), std::nullopt);
}

TEST_F(LosingSync, LeavesALockThatSomebodyElseHasTakenOver) {
  beforeLastMove = [&] {
    EXPECT_TRUE(shared->Value("sync/master").value().has_value());
    shared->SetValue("sync/master", "of somebody else").value();
  };
  TimesOf(5);
  EXPECT_EQ(shared->Value("sync/master").value(), "of somebody else");
}

TEST_F(LosingSync, WaitsALeaseForOneWhoIsGone) {
  shared->SetValue("sync/master", "of somebody who is gone").value();
  EXPECT_EQ(CountLooks(TimesOf(1)), 5000 / 50);
}

TEST_F(LosingSync, WaitsThreeLeasesForOthersWhoTakeTurns) {
  int turns = 0;
  const auto take_turns = [&] {
    if (turns++ % 40 == 0) shared->SetValue("sync/master", std::to_string(turns)).value();
  };
  EXPECT_EQ(CountLooks(TimesOf(1, take_turns)), 3 * 5000 / 50);
}

TEST_F(LosingSync, GoesOnWithoutALockIfNoneCanBeTaken) {
  far->refusesValues = true;
  EXPECT_EQ(TimesOf(6).size(), 6U);
}

TEST_F(ReportsTest, SyncWithConflictsNamesTheHeadOfTheRemote) {
  Site ada = MakeSite("Ada");
  Site bob = MakeSite("Bob");
  Sync(ada);
  Sync(bob);
  Edit(ada, "x", "of Ada");
  Sync(ada);
  Edit(bob, "x", "of Bob");
  const Kit::SyncReport report = Sync(bob);
  EXPECT_TRUE(report.undecided.has_value());
  EXPECT_EQ(report.remoteHead, HeadOf(*shared, "master"));
  EXPECT_EQ(report.replayedVersions, 0U);
}

}  // namespace
}  // namespace TalVcs::Testing
