#include <talvcs/repository/repository.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

Repository WithBranches(std::initializer_list<TalStringViewT<WideChar>> names) {
  return Repository(NewStorage(names));
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

TEST(DoCommit, OverwritesTimeAndZoneWithThePresentOnes) {
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

TEST(DoCommit, AcceptsCommitWithoutContent) {
  Repository repository = NewRepository();
  Commit commit(&repository, false);
  const cow_ptr<Commit> stored = repository.DoCommit(commit);
  ASSERT_TRUE(stored);
  EXPECT_EQ(repository.GetHead(), stored);
  EXPECT_EQ(Bytes(stored->GetData()).substr(0, 12), "tree \nauthor");
}

TEST(DoCommit, AcceptsTheTreeOfTheParent) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  Commit commit(&repository, false);
  const cow_ptr<Commit> stored = repository.DoCommit(commit);
  ASSERT_TRUE(stored);
  EXPECT_EQ(repository.GetCommitCount(), 2u);
  EXPECT_EQ(ListingOf(stored), ListingOf(stored->GetParent()));
}

TEST(DoCommit, SameCommitWithinASecondReturnsTheFirstInstance) {
  Repository repository = NewRepository();
  Commit commit = Edited(repository, "bytes");
  AwaitNextSecond();
  const cow_ptr<Commit> first = repository.DoCommit(commit);
  const cow_ptr<Commit> second = repository.DoCommit(commit);
  EXPECT_EQ(second, first);
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST(DoCommit, SameCommitInALaterSecondIsASecondChildOfItsParent) {
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

TEST(DoCommit, MovesTheBranchBackToACommitThatIsStored) {
  Repository repository = NewRepository();
  Commit commit = Edited(repository, "bytes");
  AwaitNextSecond();
  const cow_ptr<Commit> first = repository.DoCommit(commit);
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  const cow_ptr<Commit> again = repository.DoCommit(commit);
  EXPECT_EQ(again, first);
  EXPECT_EQ(repository.GetHead(), first);
}

TEST(DoCommit, AmendWithoutHeadFailsAndKeepsTheTime) {
  Repository repository = NewRepository();
  Commit commit(&repository, true);
  commit.SetCommitTime(Time::FromTimeT(5));
  EXPECT_FALSE(repository.DoCommit(commit));
  EXPECT_EQ(commit.GetCommitTime().ToTimeT(), 5);
  EXPECT_EQ(repository.GetCommitCount(), 0u);
}

TEST(DoCommit, AmendReplacesTheHead) {
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

TEST(DoCommit, StoresDetachedCommitIfTheCurrentBranchIsMissing) {
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

TEST(DoCommit, CommitMadeOnAnOldHeadRemovesTheNewerOneFromTheBranch) {
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

TEST(DoCommit, CallersCommitCanBeUsedAgain) {
  Repository repository = NewRepository();
  Commit commit = Edited(repository, "one");
  const cow_ptr<Commit> stored = repository.DoCommit(commit);
  commit.AddBlob(&repository, TAL_WIDE("file"), BlobOf("two"));
  EXPECT_EQ(ListingOf(stored), "file=one");
  EXPECT_EQ(TextOf(commit.GetBlob(TAL_WIDE("file"))), "two");
}

TEST(DoCommit, StoresOnlyTheCommit) {
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
  HidingRepository() : Repository(NewStorage()) {}
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

TEST(DoCommit, CallsTheVirtualOperationsOfTheStorage) {
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
