// Workspaces that share a history: what each sees after a sync, conflicts, races, faults.

#include <kit/open/clean_up.h>
#include <kit/store/cache_store.h>
#include <kit/text.h>
#include <tests/kit/sharing/sharing_fixture.h>
#include <tests/support/text.h>

#include <algorithm>
#include <set>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::StoreOperation;
using testing::ElementsAre;
using testing::IsEmpty;

class SyncTest : public SharingTest {
 protected:
  /// Has a version of "first" at two sites and in the remote.
  SyncTest() : ada(MakeSite("Ada")), bob(MakeSite("Bob")) {
    Edit(ada, "first", "1");
    Sync(ada);
    Sync(bob);
  }

  Id SharedHead() { return shared->Heads().value().front().id; }

  Site ada;
  Site bob;
};

TEST_F(SyncTest, FirstSyncFillsAnEmptyRemoteAndAnEmptyDocument) {
  EXPECT_EQ(FilesOf(bob.workspace), (FileTexts{{"first", "1"}}));
  EXPECT_EQ(bob.workspace.GetHead().value()->id, ada.workspace.GetHead().value()->id);
  EXPECT_EQ(SharedHead(), ada.workspace.GetHead().value()->id);
  shared = std::make_shared<Kit::MemoryObjectStore>();
  Site nobody = MakeSite("Nobody");
  EXPECT_EQ(Sync(nobody).remoteHead, Id()) << "neither side has a version";
}

TEST_F(SyncTest, CrissCrossEndsWithOneLineOfBothsVersions) {
  Edit(ada, "a", "1");
  Edit(ada, "a", "2");
  Edit(bob, "b", "1");
  Edit(bob, "b", "2");
  Sync(ada);
  EXPECT_EQ(Sync(bob).replayedVersions, 2U);
  Edit(bob, "b", "3");
  Edit(ada, "a", "3");
  Sync(bob);
  EXPECT_EQ(Sync(ada).replayedVersions, 1U);
  Sync(bob);
  const std::vector<std::string> line = {"a = 3", "b = 3", "b = 2",    "b = 1",
                                         "a = 2", "a = 1", "first = 1"};
  for (Site* site : {&ada, &bob}) {
    EXPECT_EQ(Summaries(site->workspace), line);
    EXPECT_EQ(FilesOf(site->workspace), (FileTexts{{"a", "3"}, {"b", "3"}, {"first", "1"}}));
    EXPECT_EQ(site->workspace.GetHead().value()->id, SharedHead());
    ExpectWhole(*site->memory);
  }
  ExpectWhole(*shared);
}

TEST_F(SyncTest, ReplayedVersionKeepsItsAuthorMessageAndTimeAndHasTheSameIdEachTime) {
  const Kit::Version before = Edit(bob, "b", "1");
  Kit::MemoryObjectStore copy = *bob.memory;
  Edit(ada, "a", "1");
  Sync(ada);
  Sync(bob);
  const Kit::Version after = *bob.workspace.GetHead().value();
  EXPECT_NE(after.id, before.id);
  EXPECT_EQ(after.author, "Bob");
  EXPECT_EQ(after.message, before.message);
  EXPECT_EQ(after.time, before.time);
  Site again = MakeSite("Somebody else");
  *again.memory = copy;
  again.workspace = OpenOn(again.local, "Somebody else");
  again.workspace.Pull(again.remote, Options()).value();
  EXPECT_EQ(again.workspace.GetHead().value()->id, after.id);
}

TEST_F(SyncTest, VersionWhoseChangesAreThereAlreadyIsLeftOut) {
  Edit(ada, "same", "1");
  Edit(bob, "same", "1");
  Sync(ada);
  const Kit::SyncReport report = Sync(bob);
  EXPECT_EQ(report.replayedVersions, 0U);
  EXPECT_EQ(bob.workspace.GetHead().value()->id, SharedHead());
}

TEST_F(SyncTest, SyncReadsNoFileThatTheOtherSideAloneHasChanged) {
  Edit(ada, "dir/a", "base of a");
  Edit(ada, "dir/b", "base of b");
  Sync(ada);
  Sync(bob);
  Edit(ada, "dir/a", "of Ada");
  Edit(ada, "new", "of Ada, new");
  Sync(ada);
  Edit(bob, "dir/b", "of Bob");
  bob.workspace = OpenOn(bob.local, "Bob");
  bob.local->Restart();
  EXPECT_EQ(Sync(bob).replayedVersions, 1U);
  std::set<std::string> read;
  for (const Kit::RecordedCall& call : bob.local->GetCalls()) {
    if (call.operation != Kit::StoreOperation::Read) continue;
    for (const Id& id : call.ids) read.insert(Ascii(id));
  }
  for (const char* text : {"base of a", "base of b", "of Ada", "of Ada, new"}) {
    EXPECT_FALSE(read.contains(Ascii(Kit::BlobFromBytes(text).GetId()))) << text;
  }
  EXPECT_EQ(FilesOf(bob.workspace),
            (FileTexts{
                {"first", "1"}, {"dir/a", "of Ada"}, {"dir/b", "of Bob"}, {"new", "of Ada, new"}}));
}

TEST_F(SyncTest, UndecidedConflictsComeBackAsAListAndMoveNothing) {
  Edit(ada, "x", "Ada's");
  Edit(ada, "y", "Ada's");
  Sync(ada);
  bob.workspace.Write("x", "Bob's").value();
  Edit(bob, "y", "Bob's");
  const Kit::Version mine = Edit(bob, "z", "Bob's");
  const Id before = SharedHead();
  const Kit::SyncReport report = Sync(bob);
  ASSERT_TRUE(report.undecided.has_value());
  EXPECT_EQ(report.undecided->version.summary, "y = Bob's");
  ASSERT_EQ(report.undecided->conflicts.size(), 2U);
  EXPECT_EQ(report.undecided->conflicts[0].path, "x");
  EXPECT_EQ(report.undecided->conflicts[0].ours.content->text(), "Ada's");
  EXPECT_EQ(report.undecided->conflicts[0].theirs.content->text(), "Bob's");
  EXPECT_EQ(report.undecided->conflicts[1].path, "y");
  EXPECT_EQ(SharedHead(), before);
  EXPECT_EQ(bob.workspace.GetHead().value()->id, mine.id);
  EXPECT_EQ(OpenOn(bob.memory, "").GetHead().value()->id, mine.id);

  Kit::SyncOptions options = Options();
  options.decide = [](const Kit::MergePreview& preview) {
    Kit::Decisions decisions;
    for (const Kit::Conflict& conflict : preview.conflicts) {
      decisions.emplace(conflict.path, Kit::Decision::Theirs());
    }
    return Kit::Result(decisions);
  };
  EXPECT_FALSE(bob.workspace.Sync(bob.remote, options).value().undecided.has_value());
  EXPECT_EQ(FilesOf(bob.workspace),
            (FileTexts{{"first", "1"}, {"x", "Bob's"}, {"y", "Bob's"}, {"z", "Bob's"}}));
  EXPECT_EQ(SharedHead(), bob.workspace.GetHead().value()->id);
}

TEST_F(SyncTest, MergersOfTheHostDecideWhatTheyCan) {
  Kit::WorkspaceOptions wishes;
  wishes.author = "Bob";
  wishes.mergers.Add("*", [](const Kit::ContentToMerge& content) {
    Kit::MergedContent merged;
    merged.bytes = std::string(content.left) + " and " + std::string(content.right);
    return Kit::Result<Kit::MergedContent>(merged);
  });
  bob.workspace = Kit::Workspace::Open(bob.local, wishes).value();
  Edit(ada, "x", "Ada's");
  Edit(bob, "x", "Bob's");
  Sync(ada);
  Sync(bob);
  EXPECT_EQ(FilesOf(bob.workspace).at("x"), "Ada's and Bob's");
}

TEST_F(SyncTest, PendingEditsAreRefusedByPullAndStayInAPush) {
  Edit(bob, "b", "1");
  bob.workspace.Write("b", "pending").value();
  EXPECT_THAT(bob.workspace.Sync(bob.remote), FailsWith(ErrorCode::Undecided));
  bob.workspace.Push(bob.remote).value();
  EXPECT_EQ(bob.workspace.Read("b").value().text(), "pending");
  EXPECT_EQ(SharedHead(), bob.workspace.GetHead().value()->id);
}

TEST_F(SyncTest, ObserverSeesTheMovesAndTheBranchesAreListed) {
  std::vector<std::string> moves;
  bob.workspace.Observe([&moves](const Kit::Workspace::Move& move) {
    moves.push_back(move.name + (move.isBySomebodyElse ? " theirs" : " ours"));
  });
  Edit(ada, "a", "1");
  Sync(ada);
  Edit(bob, "b", "1");
  Sync(bob);
  EXPECT_THAT(moves, ElementsAre("master ours", "remote/master theirs", "master ours",
                                 "remote/master theirs"));
  EXPECT_EQ(bob.workspace.GetBranches().size(), 2U);
  EXPECT_EQ(bob.workspace.Find("remote/master").value().id, SharedHead());
  EXPECT_FALSE(bob.workspace.IsBehind().value());
}

TEST_F(SyncTest, LoserOfARaceTriesAgainAndEveryVersionIsThereOnce) {
  Edit(bob, "b", "1");
  int races = 3;
  const auto race = [&] { Edit(ada, "a", std::to_string(races)), Sync(ada); };
  // Bob's first three moves of the head come too late.
  class BeforeMoves final : public Kit::PassingStore {
   public:
    using Kit::PassingStore::PassingStore;
    std::function<void()> act;

   protected:
    Kit::Status Before(const Kit::StoreCall& call) override {
      if (call.operation == StoreOperation::MoveHeads) act();
      return {};
    }
  };
  auto moves = std::make_shared<BeforeMoves>(bob.far);
  moves->act = [&] {
    if (races-- > 0) race();
  };
  Kit::Remote remote(moves);
  const Kit::SyncReport report = bob.workspace.Sync(remote, Options()).value();
  EXPECT_EQ(report.lostRaces, 3U);
  EXPECT_THAT(Summaries(bob.workspace),
              ElementsAre("b = 1", "a = 0", "a = 1", "a = 2", "first = 1"));
  EXPECT_EQ(SharedHead(), bob.workspace.GetHead().value()->id);
  EXPECT_EQ(shared->Value("sync/master").value(), std::nullopt) << "too few losses for a lock";

  races = 7;
  Edit(bob, "b", "2");
  std::vector<bool> locked;
  moves->act = [&] {
    locked.push_back(shared->Value("sync/master").value().has_value());
    if (races-- > 0) race();
  };
  EXPECT_EQ(bob.workspace.Sync(remote, Options()).value().lostRaces, 7U);
  EXPECT_EQ(locked, (std::vector<bool>{false, false, false, false, false, true, true, true}));
  EXPECT_EQ(shared->Value("sync/master").value(), std::nullopt);

  races = 1000;
  Edit(bob, "b", "3");
  Kit::SyncOptions options = Options();
  options.mostLosses = 6;
  EXPECT_THAT(bob.workspace.Sync(remote, options), FailsWith(ErrorCode::Conflict));
  EXPECT_EQ(shared->Value("sync/master").value(), std::nullopt);
}

TEST_F(SyncTest, LockOfOneWhoIsGoneIsTakenOverAfterALease) {
  shared->SetValue("sync/master", "of somebody who is gone").value();
  Edit(bob, "b", "1");
  class Refusing final : public Kit::PassingStore {
   public:
    using Kit::PassingStore::PassingStore;
    int left = 5;
    Kit::Status MoveHeads(std::span<const Kit::HeadMove> moves) override {
      if (left-- > 0) return Kit::Error{ErrorCode::Conflict, "too late", "", "", "", {}};
      return Kit::PassingStore::MoveHeads(moves);
    }
  };
  auto refusing = std::make_shared<Refusing>(shared);
  Kit::Remote remote(refusing);
  EXPECT_EQ(bob.workspace.Sync(remote, Options()).value().lostRaces, 5U);
  EXPECT_GE(slept, 5 * std::chrono::milliseconds(5000));
  EXPECT_LT(slept, 6 * std::chrono::milliseconds(5000));
  EXPECT_EQ(shared->Value("sync/master").value(), std::nullopt);
  EXPECT_EQ(SharedHead(), bob.workspace.GetHead().value()->id);
}

TEST_F(SyncTest, LostAnswerOfAMoveIsFoundOut) {
  Edit(bob, "b", "1");
  bool is_lost = false;
  class LosingAnswers final : public Kit::PassingStore {
   public:
    using Kit::PassingStore::PassingStore;
    std::function<void()> act;
    Kit::Status MoveHeads(std::span<const Kit::HeadMove> moves) override {
      const Kit::Status status = Kit::PassingStore::MoveHeads(moves);
      if (!status || !act) return status;
      std::exchange(act, {})();
      return Kit::Error{ErrorCode::Unknown, "the answer is lost", "", "", "", {}};
    }
  };
  auto losing = std::make_shared<LosingAnswers>(shared);
  Kit::Remote remote(losing);
  losing->act = [&] { is_lost = true; };
  EXPECT_EQ(bob.workspace.Sync(remote, Options()).value().lostRaces, 0U);
  EXPECT_TRUE(is_lost);
  // Somebody else goes on from there before the heads are read.
  losing->act = [&] { Sync(ada), Edit(ada, "a", "1"), Sync(ada); };
  Edit(bob, "b", "2");
  EXPECT_EQ(bob.workspace.Sync(remote, Options()).value().lostRaces, 1U);
  EXPECT_THAT(Summaries(bob.workspace), ElementsAre("a = 1", "b = 2", "b = 1", "first = 1"));
}

TEST_F(SyncTest, FaultAtAnyCallLosesNothingAndTheNextSyncEndsIt) {
  Edit(ada, "a", "1");
  Sync(ada);
  Edit(bob, "b", "1");
  Edit(bob, "b", "2");
  const Kit::MemoryObjectStore far_before = *shared;
  const Kit::MemoryObjectStore local_before = *bob.memory;
  int faults = 0;
  for (const bool is_far : {true, false}) {
    for (const bool is_afterwards : {false, true}) {
      for (std::uint64_t call = 1;; ++call) {
        *shared = far_before;
        *bob.memory = local_before;
        bob.workspace = OpenOn(bob.local, "Bob");
        Kit::FaultInjectionStore& faulty = is_far ? *bob.far : *bob.local;
        faulty.Restart();
        faulty.FailAfterwards(is_afterwards);
        faulty.FailWith(is_afterwards ? ErrorCode::Unknown : ErrorCode::Unavailable);
        faulty.FailFrom(call);
        const auto synced = bob.workspace.Sync(bob.remote, Options());
        faulty.FailFrom(0);
        if (!faulty.HasFailed()) break;
        ++faults;
        if (!synced) Sync(bob);
        EXPECT_THAT(Summaries(bob.workspace), ElementsAre("b = 2", "b = 1", "a = 1", "first = 1"))
            << call;
        EXPECT_EQ(SharedHead(), bob.workspace.GetHead().value()->id);
        EXPECT_THAT(Summaries(OpenOn(bob.memory, "")), Summaries(bob.workspace));
        ExpectWhole(*shared);
        ExpectWhole(*bob.memory);
      }
    }
  }
  EXPECT_GT(faults, 40);
}

TEST_F(SyncTest, CancelAtAnyStepLosesNothing) {
  Edit(ada, "a", "1");
  Sync(ada);
  Edit(bob, "b", "1");
  const Kit::MemoryObjectStore far_before = *shared;
  const Kit::MemoryObjectStore local_before = *bob.memory;
  int cancels = 0;
  for (bool is_done = false; !is_done; ++cancels) {
    *shared = far_before;
    *bob.memory = local_before;
    bob.workspace = OpenOn(bob.local, "Bob");
    Kit::SyncOptions options = Options();
    int left = cancels;
    options.progress = [&left](const Kit::ProgressStep&) { return left-- > 0; };
    const auto synced = bob.workspace.Sync(bob.remote, options);
    is_done = synced.ok();
    if (!is_done) {
      EXPECT_THAT(synced, FailsWith(ErrorCode::Cancelled));
      EXPECT_EQ(SharedHead(), ada.workspace.GetHead().value()->id);
      Sync(bob);
    }
    EXPECT_THAT(Summaries(bob.workspace), ElementsAre("b = 1", "a = 1", "first = 1"));
    EXPECT_EQ(SharedHead(), bob.workspace.GetHead().value()->id);
  }
  EXPECT_GT(cancels, 12);
}

TEST_F(SyncTest, CleanUpsOfBothStoresDuringASyncDoNoHarm) {
  bob = MakeSite("Bob", false);
  for (std::uint64_t call = 1; call < 20; ++call) {
    Edit(ada, "a", std::to_string(call));
    Sync(ada);
    Edit(bob, "b", std::to_string(call));
    bob.far->Restart();
    bob.far->InterruptAt(call, [&] {
      Kit::CleanUp(*shared).value();
      Kit::CleanUp(*bob.memory).value();
    });
    Sync(bob);
    bob.far->InterruptAt(0, {});
    Sync(ada);
    EXPECT_EQ(SharedHead(), bob.workspace.GetHead().value()->id);
    ExpectWhole(*shared);
    ExpectWhole(*bob.memory);
  }
  EXPECT_EQ(Summaries(ada.workspace).size(), 1U + 2 * 19);
}

TEST_F(SyncTest, WatchOfAWorkspaceWakesUpForItsOwnStore) {
  Kit::HeadWaitOptions options;
  options.timeout = std::chrono::seconds(2);
  options.sleep = [](std::chrono::milliseconds) {};
  EXPECT_FALSE(bob.workspace.Watch(options).value());
  Edit(bob, "b", "1");
  EXPECT_FALSE(bob.workspace.Watch(options).value()) << "its own version";
  options.sleep = [&](std::chrono::milliseconds) {
    Kit::Workspace other = OpenOn(bob.memory, "Another session");
    other.CreateBranch("topic").value();
  };
  EXPECT_TRUE(bob.workspace.Watch(options).value());
  bob.workspace.Reload().value();
  EXPECT_FALSE(bob.workspace.Watch({.timeout = std::chrono::milliseconds(0)}).value());
}

}  // namespace
}  // namespace TalVcs::Testing
