// The drawings in the comments show parents to the left.

#include <talvcs/repository/repository.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

// The private overloads, by the one door that the language leaves: names in an explicit
// instantiation aren't checked for access.
template <class Member, Member pointer>
struct Door {
  friend Member Open(Member) { return pointer; }
};
using RebaseCommit = cow_ptr<Commit> (Repository::*)(cow_ptr<Commit>, cow_ptr<Commit>,
                                                     cow_ptr<Commit>);
using RebaseBranch = cow_ptr<Commit> (Repository::*)(TalStringViewT<WideChar>,
                                                     TalStringViewT<WideChar>);
RebaseCommit Open(RebaseCommit);
RebaseBranch Open(RebaseBranch);
template struct Door<RebaseCommit, &Repository::MergelessRebase>;
template struct Door<RebaseBranch, &Repository::MergelessRebase>;

class Rebase : public ::testing::Test {
 protected:
  void Draw(const char* drawing, const char* branches = "") {
    history = DrawHistory(repository, drawing);
    PlaceBranches(repository, history, branches);
  }
  bool EnsureCommonRoot(const char* first, const char* second, const char* root) {
    return repository.EnsureCommonRootFor(Wide(first), Wide(second), Wide(root));
  }
  cow_ptr<Commit> Place(cow_ptr<Commit> tip, cow_ptr<Commit> stop, cow_ptr<Commit> newBase) {
    return (repository.*Open(RebaseCommit()))(tip, stop, newBase);
  }
  cow_ptr<Commit> Place(const char* branch, const char* onto) {
    return (repository.*Open(RebaseBranch()))(Wide(branch), Wide(onto));
  }
  cow_ptr<Commit> At(const char* name) const { return history.at(name); }
  std::string Chain(const char* branch) const { return ChainOf(repository, branch); }

  Repository repository = NewRepository();
  History history;
};

using EnsureCommonRootFor = Rebase;
using MergelessRebase = Rebase;

TEST_F(EnsureCommonRootFor, ChangesNothingForRelatedBranches) {
  Draw("A-B-C; B-D", "c=C d=D");
  EXPECT_TRUE(EnsureCommonRoot("c", "d", "root"));
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("root")));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("c")), At("C"));
  EXPECT_EQ(repository.GetCommitCount(), 4u);
}

TEST_F(EnsureCommonRootFor, CreatesAllThreeBranchesOnANewRootCommit) {
  EXPECT_TRUE(EnsureCommonRoot("a", "b", "root"));
  EXPECT_EQ(Chain("root"), "Root commit");
  EXPECT_EQ(repository.GetHead(TAL_WIDE("a")), repository.GetHead(TAL_WIDE("root")));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("b")), repository.GetHead(TAL_WIDE("root")));
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST_F(EnsureCommonRootFor, RootCommitHasAFixedId) {
  ASSERT_TRUE(EnsureCommonRoot("a", "b", "root"));
  const cow_ptr<Commit> root = repository.GetHead(TAL_WIDE("root"));
  EXPECT_EQ(IdOf(root), "2181c8f28ee8418b1478fddf0ee42f5611b4bfaafd9f39a96b756bf50f9cb6fc");
  EXPECT_FALSE(root->GetTree());
  EXPECT_FALSE(root->IsAmend());
  EXPECT_TRUE(root->GetAuthorName().IsEmpty());
  EXPECT_EQ(root->GetCommitTime(), Time());
}

TEST_F(EnsureCommonRootFor, UsesTheStoredRootCommit) {
  ASSERT_TRUE(EnsureCommonRoot("a", "b", "root"));
  const cow_ptr<Commit> root = repository.GetHead(TAL_WIDE("root"));
  ASSERT_TRUE(EnsureCommonRoot("c", "d", "other"));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("other")), root);
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST_F(EnsureCommonRootFor, RebasesTheFirstBranchAndStartsAMissingSecondAtTheRoot) {
  Draw("A-B", "a=B");
  EXPECT_TRUE(EnsureCommonRoot("a", "b", "root"));
  EXPECT_EQ(Chain("a"), "Root commit-A-B");
  EXPECT_EQ(Chain("b"), "Root commit");
  EXPECT_EQ(repository.GetHead(TAL_WIDE("a"))->GetParent()->GetParent(),
            repository.GetHead(TAL_WIDE("root")));
  EXPECT_NE(IdOf(repository.GetHead(TAL_WIDE("a"))), IdOf(At("B")));
}

TEST_F(EnsureCommonRootFor, OldCommitsStayStoredAndUnchanged) {
  Draw("A-B", "a=B");
  ASSERT_TRUE(EnsureCommonRoot("a", "b", "root"));
  EXPECT_EQ(repository.GetCommitCount(), 5u);
  EXPECT_EQ(repository.GetCommitFromStorage(At("B")->GetId()), At("B"));
  EXPECT_EQ(ChainOf(At("B")), "A-B");
}

TEST_F(EnsureCommonRootFor, RebasedCommitsDifferOnlyInTheirParent) {
  Draw("A-B", "a=B");
  ASSERT_TRUE(EnsureCommonRoot("a", "b", "root"));
  const cow_ptr<Commit> placed = repository.GetHead(TAL_WIDE("a"));
  EXPECT_EQ(placed->GetTree()->GetRoot(), At("B")->GetTree()->GetRoot());
  EXPECT_EQ(Ascii(placed->GetAuthorName()), "Ann");
  EXPECT_EQ(Ascii(placed->GetAuthorEmail()), "ann@example.org");
  EXPECT_EQ(placed->GetCommitTime(), At("B")->GetCommitTime());
}

TEST_F(EnsureCommonRootFor, RebasesTwoUnrelatedBranchesOntoANewRoot) {
  Draw("A-B; X-Y", "a=B x=Y");
  EXPECT_TRUE(EnsureCommonRoot("a", "x", "root"));
  EXPECT_EQ(Chain("a"), "Root commit-A-B");
  EXPECT_EQ(Chain("x"), "Root commit-X-Y");
}

TEST_F(EnsureCommonRootFor, DoesNotMoveABranchThatIsRelatedToTheRoot) {
  Draw("R-S; R-A; X", "root=S a=A x=X");
  EXPECT_TRUE(EnsureCommonRoot("a", "x", "root"));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("a")), At("A"));
  EXPECT_EQ(Chain("x"), "R-S-X");
  EXPECT_EQ(repository.GetHead(TAL_WIDE("root")), At("S"));
}

TEST_F(EnsureCommonRootFor, RebasesTheSecondBranchOntoTheFirstIfThatIsTheRoot) {
  Draw("A-B; X-Y", "a=B x=Y");
  EXPECT_TRUE(EnsureCommonRoot("a", "x", "a"));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("a")), At("B"));
  EXPECT_EQ(Chain("x"), "A-B-X-Y");
}

TEST_F(EnsureCommonRootFor, CreatesAMissingFirstBranchThatIsTheRoot) {
  EXPECT_TRUE(EnsureCommonRoot("a", "b", "a"));
  EXPECT_EQ(Chain("a"), "Root commit");
  EXPECT_EQ(repository.GetHead(TAL_WIDE("b")), repository.GetHead(TAL_WIDE("a")));
}

TEST_F(EnsureCommonRootFor, MovesABranchWithoutHeadToTheRoot) {
  Draw("A", "a=A empty=");
  EXPECT_TRUE(EnsureCommonRoot("empty", "a", "root"));
  EXPECT_EQ(Chain("empty"), "Root commit");
  EXPECT_EQ(Chain("a"), "Root commit-A");
}

TEST_F(EnsureCommonRootFor, FailsForRootBranchWithoutHead) {
  Draw("A; X", "a=A x=X root=");
  EXPECT_FALSE(EnsureCommonRoot("a", "x", "root"));
  EXPECT_FALSE(repository.GetHead(TAL_WIDE("root")));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("a")), At("A"));
}

TEST_F(EnsureCommonRootFor, FailsForEmptyRootNameAfterStoringTheRootCommit) {
  Draw("A; X", "a=A x=X");
  EXPECT_FALSE(EnsureCommonRoot("a", "x", ""));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("a")), At("A"));
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST_F(EnsureCommonRootFor, DoesNotMoveTheSecondBranchIfTheFirstFails) {
  Draw("X", "x=X");
  EXPECT_FALSE(EnsureCommonRoot("", "x", "root"));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("x")), At("X"));
  EXPECT_EQ(Chain("root"), "Root commit");
}

TEST_F(EnsureCommonRootFor, FirstBranchStaysMovedIfTheSecondFails) {
  Draw("A", "a=A");
  EXPECT_FALSE(EnsureCommonRoot("a", "", "root"));
  EXPECT_EQ(Chain("a"), "Root commit-A");
  EXPECT_EQ(Chain("root"), "Root commit");
}

TEST_F(EnsureCommonRootFor, CurrentBranchStaysTheSame) {
  Draw("A; X", "master=A x=X");
  ASSERT_TRUE(EnsureCommonRoot("master", "x", "root"));
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
  EXPECT_EQ(ChainOf(repository.GetHead()), "Root commit-A");
}

TEST_F(EnsureCommonRootFor, SecondCallChangesNothing) {
  Draw("A; X", "a=A x=X");
  ASSERT_TRUE(EnsureCommonRoot("a", "x", "root"));
  const std::uint64_t count = repository.GetCommitCount();
  EXPECT_TRUE(EnsureCommonRoot("a", "x", "root"));
  EXPECT_EQ(repository.GetCommitCount(), count);
}

TEST_F(MergelessRebase, ReturnsNullForNullTipOrNewBase) {
  Draw("A-B");
  EXPECT_FALSE(Place(nullptr, nullptr, At("A")));
  EXPECT_FALSE(Place(At("B"), nullptr, nullptr));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST_F(MergelessRebase, WithoutAStopRebasesTheWholeHistory) {
  Draw("A-B; X");
  const cow_ptr<Commit> tip = Place(At("B"), nullptr, At("X"));
  EXPECT_EQ(ChainOf(tip), "X-A-B");
  EXPECT_EQ(IdOf(tip), IdOfChain("X-A-B"));
  EXPECT_EQ(repository.GetCommitFromStorage(tip->GetId()), tip);
}

TEST_F(MergelessRebase, DoesNotRebaseTheStop) {
  Draw("A-B-C-D; X");
  EXPECT_EQ(ChainOf(Place(At("D"), At("B"), At("X"))), "X-C-D");
}

TEST_F(MergelessRebase, RebasesATipThatIsTheStop) {
  Draw("A-B; X");
  EXPECT_EQ(ChainOf(Place(At("B"), At("B"), At("X"))), "X-B");
}

TEST_F(MergelessRebase, StopOfTheSameIdButAnotherInstanceIsNotRecognised) {
  Draw("A-B-C; X");
  Repository elsewhere = NewRepository();
  const cow_ptr<Commit> twin = DrawHistory(elsewhere, "A-B").at("B");
  ASSERT_EQ(IdOf(twin), IdOf(At("B")));
  EXPECT_EQ(ChainOf(Place(At("C"), twin, At("X"))), "X-A-B-C");
}

TEST_F(MergelessRebase, ReturnsTheOldTipIfNothingHasToMove) {
  Draw("A-B-C");
  EXPECT_EQ(Place(At("C"), At("A"), At("A")), At("C"));
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST_F(MergelessRebase, UsesTheStoredCommitOfANewId) {
  Draw("A-B; X");
  const cow_ptr<Commit> known = repository.SyncWithStorage(MakeCommit(repository, "A", At("X")));
  const cow_ptr<Commit> tip = Place(At("B"), nullptr, At("X"));
  EXPECT_EQ(ChainOf(tip), "X-A-B");
  EXPECT_EQ(tip->GetParent(), known);
}

TEST_F(MergelessRebase, DoesNotChangeTheOldCommits) {
  Draw("A-B; X");
  Place(At("B"), nullptr, At("X"));
  EXPECT_EQ(ChainOf(At("B")), "A-B");
  EXPECT_EQ(At("B")->GetParent(), At("A"));
}

TEST_F(MergelessRebase, ByNamesRebasesTheCommitsAfterTheFork) {
  Draw("A-B-C-D; B-X", "d=D x=X");
  EXPECT_EQ(ChainOf(Place("d", "x")), "A-B-X-C-D");
  EXPECT_EQ(repository.GetHead(TAL_WIDE("d")), At("D"));
}

TEST_F(MergelessRebase, ByNamesRebasesTheWholeHistoryOfAnUnrelatedBranch) {
  Draw("A-B; X", "b=B x=X");
  EXPECT_EQ(ChainOf(Place("b", "x")), "X-A-B");
}

TEST_F(MergelessRebase, CopiesATipThatIsAnAncestorOfTheNewBase) {
  Draw("A-B-C", "low=B high=C");
  const cow_ptr<Commit> tip = Place("low", "high");
  EXPECT_EQ(ChainOf(tip), "A-B-C-B");
  EXPECT_EQ(tip->GetParent(), At("C"));
}

TEST_F(MergelessRebase, CopiesTheCommonHeadOfTwoBranchesOnTopOfItself) {
  Draw("A-B", "one=B two=B");
  const cow_ptr<Commit> tip = Place("one", "two");
  EXPECT_EQ(ChainOf(tip), "A-B-B");
  EXPECT_EQ(tip->GetParent(), At("B"));
}

TEST_F(MergelessRebase, DoesNotMoveABranchThatDescendsFromTheNewBase) {
  Draw("A-B-C", "low=B high=C");
  EXPECT_EQ(Place("high", "low"), At("C"));
}

TEST_F(MergelessRebase, ReturnsNullForUnknownNames) {
  Draw("A", "a=A");
  EXPECT_FALSE(Place("unknown", "a"));
  EXPECT_FALSE(Place("a", "unknown"));
}

}  // namespace
}  // namespace TalVcs::Testing
