#include <talvcs/repository/repository.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <initializer_list>
#include <memory>
#include <utility>

namespace TalVcs::Testing {
namespace {

Repository WithBranches(std::initializer_list<TalStringViewT<WideChar>> names) {
  return Repository(std::make_unique<MemObjectsStorage>(names));
}

// A commit with one file over the present head. Its time is stamped when it is committed.
Commit Edited(Repository& repository, const char* bytes) {
  Commit commit(&repository, false);
  commit.AddBlob(&repository, TAL_WIDE("file"), BlobOf(bytes));
  return commit;
}

// Waits until a new second has just begun, so that what follows lies within one second.
void AwaitNextSecond() {
  const std::int64_t now = Time::Now().ToTimeT();
  while (Time::Now().ToTimeT() == now) {
  }
}

TEST(Repository, NewOneTakesTheStorageAndStandsOnMaster) {
  auto storage = std::make_unique<MemObjectsStorage>();
  const IObjectsStorage* address = storage.get();
  std::unique_ptr<IObjectsStorage> handed = std::move(storage);
  Repository repository(std::move(handed));
  EXPECT_FALSE(handed);
  EXPECT_EQ(repository.GetStorage(), address);
  EXPECT_EQ(std::as_const(repository).GetStorage(), address);
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
}

TEST(Repository, CurrentBranchIsMasterAlsoWhereThatDoesNotExist) {
  Repository repository = WithBranches({TAL_WIDE("trunk")});
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("master")));
}

TEST(RepositoryWithoutStorage, EveryLookUpGivesNothing) {
  const Repository repository(nullptr);
  EXPECT_FALSE(repository.GetHead());
  EXPECT_FALSE(repository.GetHead(TAL_WIDE("master")));
  EXPECT_FALSE(repository.GetCommitFromStorage(Make<Commit>()->GetId()));
  EXPECT_FALSE(repository.GetTreeFromStorage(Make<Tree>()->GetId()));
  EXPECT_FALSE(repository.GetBlobFromStorage(Make<Blob>()->GetId()));
  EXPECT_EQ(repository.GetCommitCount(), 0u);
  EXPECT_EQ(repository.GetTreeCount(), 0u);
  EXPECT_EQ(repository.GetBlobCount(), 0u);
  EXPECT_EQ(repository.GetStorage(), nullptr);
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
}

TEST(RepositoryWithoutStorage, EveryChangeIsRefused) {
  Repository repository(nullptr);
  const auto commit = Make<Commit>();
  EXPECT_FALSE(repository.DeleteCommits(commit));
  EXPECT_FALSE(repository.DeleteCommits(nullptr));
  EXPECT_FALSE(repository.SimplifyCommitGraph(true));
  EXPECT_FALSE(repository.SimplifyCommitGraph(false));
  EXPECT_FALSE(repository.Checkout(TAL_WIDE("master")));
  EXPECT_FALSE(repository.CreateBranch(TAL_WIDE("topic"), commit));
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("master")));
  EXPECT_FALSE(repository.MoveBranchTo(TAL_WIDE("master"), commit));
  EXPECT_FALSE(repository.RemoveBranch(TAL_WIDE("master")));
  EXPECT_FALSE(repository.EnsureCommonRootFor(TAL_WIDE("a"), TAL_WIDE("b"), TAL_WIDE("root")));
  EXPECT_FALSE(repository.FastForwardMerge(commit));
  EXPECT_FALSE(repository.Merge3Way(commit, Resolvers()));
  EXPECT_FALSE(repository.Merge(commit, Resolvers()));
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetStorage(), nullptr);
}

TEST(RepositoryWithoutStorage, SyncGivesTheArgumentBack) {
  Repository repository(nullptr);
  const auto commit = Make<Commit>();
  const auto tree = Make<Tree>();
  const auto blob = Make<Blob>();
  EXPECT_EQ(repository.SyncWithStorage(commit), commit);
  EXPECT_EQ(repository.SyncWithStorage(tree), tree);
  EXPECT_EQ(repository.SyncWithStorage(blob), blob);
}

TEST(RepositoryWithoutStorage, DoCommitGivesNullAndLeavesTheCommitUntouched) {
  Repository repository(nullptr);
  Commit commit;
  commit.SetCommitTime(Time::FromTimeT(5));
  EXPECT_FALSE(repository.DoCommit(commit));
  EXPECT_EQ(commit.GetCommitTime().ToTimeT(), 5);
}

TEST(Repository, CopyIsIndependentAndSharesOldObjects) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  Repository copy(repository);
  EXPECT_EQ(copy.GetHead(), repository.GetHead());
  Commit commit = Edited(copy, "new");
  ASSERT_TRUE(copy.DoCommit(commit));
  EXPECT_EQ(ChainOf(repository, "master"), "A");
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(repository.GetBlobCount(), 2u);
  EXPECT_EQ(copy.GetCommitCount(), 2u);
  EXPECT_EQ(copy.GetHead()->GetParent(), repository.GetHead());
}

TEST(Repository, CopyTakesTheCurrentBranchAlong) {
  Repository repository = WithBranches({TAL_WIDE("master"), TAL_WIDE("topic")});
  repository.Checkout(TAL_WIDE("topic"));
  const Repository copy(repository);
  EXPECT_EQ(Ascii(copy.GetCurentBranch()), "topic");
}

TEST(Repository, CopyOfOneWithoutStorageHasNone) {
  const Repository empty(nullptr);
  const Repository copy(empty);
  EXPECT_EQ(copy.GetStorage(), nullptr);
  Repository assigned = NewRepository();
  assigned = empty;
  EXPECT_EQ(assigned.GetStorage(), nullptr);
}

TEST(Repository, CopyAssignmentReplacesStorageAndBranch) {
  Repository source = WithBranches({TAL_WIDE("topic")});
  source.Checkout(TAL_WIDE("topic"));
  Repository target = NewRepository();
  target = source;
  EXPECT_TRUE(target.BranchExist(TAL_WIDE("topic")));
  EXPECT_FALSE(target.BranchExist(TAL_WIDE("master")));
  EXPECT_NE(target.GetStorage(), source.GetStorage());
  EXPECT_EQ(Ascii(target.GetCurentBranch()), "topic");
}

TEST(Repository, MoveLeavesTheSourceWithoutStorage) {
  Repository source = NewRepository();
  IObjectsStorage* storage = source.GetStorage();
  Repository target(std::move(source));
  EXPECT_EQ(target.GetStorage(), storage);
  EXPECT_EQ(source.GetStorage(), nullptr);
  EXPECT_FALSE(source.BranchExist(TAL_WIDE("master")));
  EXPECT_EQ(Ascii(target.GetCurentBranch()), "master");
}

TEST(Repository, MoveAssignmentReleasesTheOldStorage) {
  Repository target = NewRepository();
  const cow_ptr<Blob> blob = target.SyncWithStorage(SharedBlob("old"));
  Repository source = WithBranches({TAL_WIDE("topic")});
  target = std::move(source);
  EXPECT_EQ(blob.use_count(), 1);
  EXPECT_TRUE(target.BranchExist(TAL_WIDE("topic")));
  EXPECT_EQ(source.GetStorage(), nullptr);
}

TEST(Repository, AssignmentToItselfChangesNothing) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  IObjectsStorage* storage = repository.GetStorage();
  Repository& alias = repository;
  repository = alias;
  repository = std::move(alias);
  EXPECT_EQ(repository.GetStorage(), storage);
  EXPECT_EQ(ChainOf(repository, "master"), "A");
}

TEST(Repository, GetHeadOfAnUnknownBranchIsNull) {
  const Repository repository = NewRepository();
  EXPECT_NO_THROW(EXPECT_FALSE(repository.GetHead(TAL_WIDE("unknown"))));
}

TEST(Repository, LookUpsGiveTheStoredInstances) {
  Repository repository = NewRepository();
  const History history = DrawHistory(repository, "A");
  const cow_ptr<Commit> commit = history.at("A");
  EXPECT_EQ(repository.GetCommitFromStorage(commit->GetId()), commit);
  const cow_ptr<Tree> tree = commit->GetTree()->GetRoot();
  EXPECT_EQ(repository.GetTreeFromStorage(tree->GetId()), tree);
  const cow_ptr<Blob> blob = commit->GetBlob(TAL_WIDE("name"));
  EXPECT_EQ(repository.GetBlobFromStorage(blob->GetId()), blob);
}

TEST(SyncWithStorage, NullGivesNull) {
  Repository repository = NewRepository();
  EXPECT_FALSE(repository.SyncWithStorage(cow_ptr<Commit>()));
  EXPECT_FALSE(repository.SyncWithStorage(cow_ptr<Tree>()));
  EXPECT_FALSE(repository.SyncWithStorage(cow_ptr<Blob>()));
  EXPECT_EQ(repository.GetCommitCount() + repository.GetTreeCount() + repository.GetBlobCount(),
            0u);
}

TEST(SyncWithStorage, NewObjectIsStoredAndGivenBack) {
  Repository repository = NewRepository();
  const auto commit = Make<Commit>();
  const auto tree = Make<Tree>();
  const auto blob = Make<Blob>();
  EXPECT_EQ(repository.SyncWithStorage(commit), commit);
  EXPECT_EQ(repository.SyncWithStorage(tree), tree);
  EXPECT_EQ(repository.SyncWithStorage(blob), blob);
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(repository.GetTreeCount(), 1u);
  EXPECT_EQ(repository.GetBlobCount(), 1u);
}

TEST(SyncWithStorage, KnownIdGivesTheStoredInstance) {
  Repository repository = NewRepository();
  const auto stored = repository.SyncWithStorage(SharedBlob("bytes"));
  const auto twin = SharedBlob("bytes");
  EXPECT_EQ(repository.SyncWithStorage(twin), stored);
  EXPECT_NE(twin, stored);
  const auto tree = repository.SyncWithStorage(Make<Tree>());
  EXPECT_EQ(repository.SyncWithStorage(Make<Tree>()), tree);
  const auto commit = repository.SyncWithStorage(Make<Commit>());
  EXPECT_EQ(repository.SyncWithStorage(Make<Commit>()), commit);
  EXPECT_EQ(repository.GetBlobCount(), 1u);
}

TEST(SyncWithStorage, CommitIsStoredWithoutItsTreeAndParent) {
  Repository elsewhere = NewRepository();
  const History history = DrawHistory(elsewhere, "A-B");
  Repository repository = NewRepository();
  repository.SyncWithStorage(history.at("B"));
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(repository.GetTreeCount(), 0u);
}

TEST(DoCommit, StoresACopyAndMovesTheBranch) {
  Repository repository = NewRepository();
  Commit commit = Edited(repository, "bytes");
  commit.SetDescription(TAL_WIDE("first"));
  const cow_ptr<Commit> stored = repository.DoCommit(commit);
  ASSERT_TRUE(stored);
  EXPECT_NE(stored.get(), &commit);
  EXPECT_TRUE(stored->GetId() == commit.GetId());
  EXPECT_EQ(repository.GetHead(), stored);
  EXPECT_EQ(repository.GetCommitFromStorage(commit.GetId()), stored);
  EXPECT_EQ(ListingOf(stored), "file=bytes");
}

TEST(DoCommit, StampsWholeSecondsAndTheZoneOverWhatTheHostSet) {
  Repository repository = NewRepository();
  Commit commit(&repository, false);
  commit.SetCommitTime(Time::FromTimeT(5));
  commit.SetCommitTimezoneBias(TimeDelta{1});
  const std::int64_t before = Time::Now().ToTimeT();
  repository.DoCommit(commit);
  const Time stamped = commit.GetCommitTime();
  EXPECT_GE(stamped.ToTimeT(), before);
  EXPECT_LE(stamped.ToTimeT(), Time::Now().ToTimeT());
  EXPECT_EQ(stamped, Time::FromTimeT(stamped.ToTimeT()));
  EXPECT_EQ(commit.GetCommitTimezoneBias(), TalUtils::DateTime::GetCurrentTimezoneBias(stamped));
}

TEST(DoCommit, CommitWithoutContentIsAccepted) {
  Repository repository = NewRepository();
  Commit commit(&repository, false);
  const cow_ptr<Commit> stored = repository.DoCommit(commit);
  ASSERT_TRUE(stored);
  EXPECT_EQ(repository.GetHead(), stored);
  EXPECT_EQ(Bytes(stored->GetData()).substr(0, 12), "tree \nauthor");
}

TEST(DoCommit, TreeEqualToTheParentsIsAccepted) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  Commit commit(&repository, false);
  const cow_ptr<Commit> stored = repository.DoCommit(commit);
  ASSERT_TRUE(stored);
  EXPECT_EQ(repository.GetCommitCount(), 2u);
  EXPECT_EQ(ListingOf(stored), ListingOf(stored->GetParent()));
}

TEST(DoCommit, SameCommitTwiceWithinASecondGivesTheFirstInstance) {
  Repository repository = NewRepository();
  Commit commit = Edited(repository, "bytes");
  AwaitNextSecond();
  const cow_ptr<Commit> first = repository.DoCommit(commit);
  const cow_ptr<Commit> second = repository.DoCommit(commit);
  EXPECT_EQ(second, first);
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST(DoCommit, SameCommitInALaterSecondIsAnotherWithTheSameParent) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  Commit commit = Edited(repository, "bytes");
  const cow_ptr<Commit> first = repository.DoCommit(commit);
  AwaitNextSecond();
  const cow_ptr<Commit> second = repository.DoCommit(commit);
  EXPECT_NE(IdOf(second), IdOf(first));
  EXPECT_EQ(repository.GetCommitCount(), 3u);
  EXPECT_EQ(second->GetParent(), first->GetParent());
  EXPECT_EQ(repository.GetHead(), second);
}

TEST(DoCommit, StoredCommitMovesTheBranchBackToIt) {
  Repository repository = NewRepository();
  Commit commit = Edited(repository, "bytes");
  AwaitNextSecond();
  const cow_ptr<Commit> first = repository.DoCommit(commit);
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  const cow_ptr<Commit> again = repository.DoCommit(commit);
  EXPECT_EQ(again, first);
  EXPECT_EQ(repository.GetHead(), first);
}

TEST(DoCommit, AmendWithoutAHeadIsRefusedAndNoTimeIsWritten) {
  Repository repository = NewRepository();
  Commit commit(&repository, true);
  commit.SetCommitTime(Time::FromTimeT(5));
  EXPECT_FALSE(repository.DoCommit(commit));
  EXPECT_EQ(commit.GetCommitTime().ToTimeT(), 5);
  EXPECT_EQ(repository.GetCommitCount(), 0u);
}

TEST(DoCommit, AmendTakesThePlaceOfTheHead) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A-B"), "master=B");
  const cow_ptr<Commit> oldHead = repository.GetHead();
  Commit commit(&repository, true);
  commit.SetDescription(TAL_WIDE("B2"));
  const cow_ptr<Commit> stored = repository.DoCommit(commit);
  EXPECT_EQ(ChainOf(repository, "master"), "A-B2");
  EXPECT_TRUE(stored->IsAmend());
  EXPECT_EQ(repository.GetCommitFromStorage(oldHead->GetId()), oldHead);
}

TEST(DoCommit, WithoutTheCurrentBranchTheCommitIsStoredAndNoBranchMoves) {
  Repository repository = WithBranches({TAL_WIDE("trunk")});
  Commit commit = Edited(repository, "bytes");
  cow_ptr<Commit> stored = repository.DoCommit(commit);
  ASSERT_TRUE(stored);
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_FALSE(repository.GetHead());
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("master")));
  stored = nullptr;
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount(), 0u);
}

TEST(DoCommit, CommitBuiltBeforeAnotherLandedTakesThatOneOffTheBranch) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  Commit early = Edited(repository, "early");
  early.SetDescription(TAL_WIDE("early"));
  Commit between = Edited(repository, "between");
  between.SetDescription(TAL_WIDE("between"));
  ASSERT_TRUE(repository.DoCommit(between));
  ASSERT_TRUE(repository.DoCommit(early));
  EXPECT_EQ(ChainOf(repository, "master"), "A-early");
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST(DoCommit, CallersCommitStaysUsable) {
  Repository repository = NewRepository();
  Commit commit = Edited(repository, "one");
  const cow_ptr<Commit> stored = repository.DoCommit(commit);
  commit.AddBlob(&repository, TAL_WIDE("file"), BlobOf("two"));
  EXPECT_EQ(ListingOf(stored), "file=one");
  EXPECT_EQ(TextOf(commit.GetBlob(TAL_WIDE("file"))), "two");
}

TEST(DoCommit, AddsNothingButTheCommit) {
  Repository elsewhere = NewRepository();
  Commit commit = Edited(elsewhere, "bytes");
  Repository repository = NewRepository();
  ASSERT_TRUE(repository.DoCommit(commit));
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(repository.GetTreeCount(), 0u);
  EXPECT_EQ(repository.GetBlobCount(), 0u);
}

// Hosts may derive from Repository: policy goes through the virtual operations.
class HidingRepository : public Repository {
 public:
  HidingRepository() : Repository(std::make_unique<MemObjectsStorage>()) {}
  using Repository::GetHead;
  using Repository::SyncWithStorage;

  cow_ptr<Commit> GetHead(TalStringViewT<WideChar> branch) const override {
    asked = Ascii(branch);
    return answer;
  }
  cow_ptr<Commit> SyncWithStorage(cow_ptr<Commit> commit) override {
    ++synced;
    return Repository::SyncWithStorage(std::move(commit));
  }

  mutable std::string asked;
  cow_ptr<Commit> answer;
  int synced = 0;
};

TEST(DoCommit, GoesThroughTheVirtualOperations) {
  HidingRepository repository;
  repository.answer = Make<Commit>();
  EXPECT_EQ(repository.GetHead(), repository.answer);
  EXPECT_EQ(repository.asked, "master");
  Commit amend(repository.answer, true);
  EXPECT_TRUE(repository.DoCommit(amend));
  EXPECT_EQ(repository.synced, 1);
}

}  // namespace
}  // namespace TalVcs::Testing
