#include <talvcs/repository/repository.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

namespace TalVcs::Testing {
namespace {

TEST(BranchExist, FindsABranchWithoutHead) {
  Repository repository = NewRepository();
  EXPECT_TRUE(repository.BranchExist(TAL_WIDE("master")));
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("topic")));
}

TEST(Checkout, MakesExistingBranchCurrent) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A; B"), "master=A topic=B");
  EXPECT_TRUE(repository.Checkout(TAL_WIDE("topic")));
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "topic");
  EXPECT_EQ(ChainOf(repository.GetHead()), "B");
}

TEST(Checkout, FailsForUnknownNameAndKeepsTheCurrentBranch) {
  Repository repository = NewRepository();
  EXPECT_FALSE(repository.Checkout(TAL_WIDE("topic")));
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
}

TEST(Checkout, FailsForNameThatDiffersInCase) {
  Repository repository = NewRepository();
  EXPECT_FALSE(repository.Checkout(TAL_WIDE("Master")));
}

TEST(Checkout, CurrentBranchCanBeCheckedOutAgain) {
  Repository repository = NewRepository();
  EXPECT_TRUE(repository.Checkout(TAL_WIDE("master")));
  EXPECT_TRUE(repository.Checkout(repository.GetCurentBranch()));
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
}

TEST(Checkout, CommitOnBranchWithoutHeadHasNoParent) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A empty=");
  ASSERT_TRUE(repository.Checkout(TAL_WIDE("empty")));
  EXPECT_FALSE(repository.GetHead());
  Commit commit(&repository, false);
  commit.SetDescription(TAL_WIDE("X"));
  ASSERT_TRUE(repository.DoCommit(commit));
  EXPECT_EQ(ChainOf(repository, "empty"), "X");
  EXPECT_EQ(ChainOf(repository, "master"), "A");
}

TEST(CreateBranch, StartsAtTheGivenCommit) {
  Repository repository = NewRepository();
  const History history = DrawHistory(repository, "A-B");
  PlaceBranches(repository, history, "master=B");
  EXPECT_TRUE(repository.CreateBranch(TAL_WIDE("topic"), history.at("A")));
  EXPECT_EQ(ChainOf(repository, "topic"), "A");
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
}

TEST(CreateBranch, NullCommitMeansTheCurrentHead) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A; B"), "master=A topic=B");
  ASSERT_TRUE(repository.Checkout(TAL_WIDE("topic")));
  EXPECT_TRUE(repository.CreateBranch(TAL_WIDE("new"), nullptr));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("new")), repository.GetHead(TAL_WIDE("topic")));
}

TEST(CreateBranch, NullCommitInANewRepositoryMakesABranchWithoutHead) {
  Repository repository = NewRepository();
  EXPECT_TRUE(repository.CreateBranch(TAL_WIDE("topic"), nullptr));
  EXPECT_TRUE(repository.BranchExist(TAL_WIDE("topic")));
  EXPECT_FALSE(repository.GetHead(TAL_WIDE("topic")));
}

TEST(CreateBranch, FailsForExistingNameAndKeepsItsHead) {
  Repository repository = NewRepository();
  const History history = DrawHistory(repository, "A; B");
  PlaceBranches(repository, history, "master=A");
  EXPECT_FALSE(repository.CreateBranch(TAL_WIDE("master"), history.at("B")));
  EXPECT_FALSE(repository.CreateBranch(TAL_WIDE("master"), nullptr));
  EXPECT_EQ(ChainOf(repository, "master"), "A");
}

TEST(CreateBranch, FailsForEmptyName) {
  Repository repository = NewRepository();
  EXPECT_FALSE(repository.CreateBranch(TAL_WIDE(""), Make<Commit>()));
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("")));
}

TEST(CreateBranch, AcceptsCommitThatIsNotStored) {
  Repository repository = NewRepository();
  const auto unstored = Make<Commit>();
  EXPECT_TRUE(repository.CreateBranch(TAL_WIDE("topic"), unstored));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("topic")), unstored);
  EXPECT_EQ(repository.GetCommitCount(), 0u);
}

TEST(MoveBranchTo, MovesAnyBranchToAnyCommit) {
  Repository repository = NewRepository();
  const History history = DrawHistory(repository, "A-B; X");
  PlaceBranches(repository, history, "master=B topic=A");
  EXPECT_TRUE(repository.MoveBranchTo(TAL_WIDE("topic"), history.at("X")));
  EXPECT_TRUE(repository.MoveBranchTo(TAL_WIDE("master"), history.at("A")));
  EXPECT_EQ(ChainOf(repository, "topic"), "X");
  EXPECT_EQ(ChainOf(repository, "master"), "A");
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST(MoveBranchTo, FailsForNullCommit) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  EXPECT_FALSE(repository.MoveBranchTo(TAL_WIDE("master"), nullptr));
  EXPECT_EQ(ChainOf(repository, "master"), "A");
}

TEST(MoveBranchTo, FailsForUnknownBranchAndCreatesNone) {
  Repository repository = NewRepository();
  EXPECT_FALSE(repository.MoveBranchTo(TAL_WIDE("topic"), Make<Commit>()));
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("topic")));
}

TEST(MoveBranchTo, CurrentBranchStaysTheSame) {
  Repository repository = NewRepository();
  const History history = DrawHistory(repository, "A");
  PlaceBranches(repository, history, "topic=A");
  repository.MoveBranchTo(TAL_WIDE("topic"), history.at("A"));
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
}

TEST(RemoveBranch, FailsForUnknownName) {
  Repository repository = NewRepository();
  EXPECT_FALSE(repository.RemoveBranch(TAL_WIDE("topic")));
}

TEST(RemoveBranch, RemovedCurrentBranchStaysTheCurrentName) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  EXPECT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("master")));
  EXPECT_FALSE(repository.GetHead());
  EXPECT_FALSE(repository.Checkout(TAL_WIDE("master")));
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST(RemoveBranch, RecreatedCurrentBranchHasNoHeadAndIsCurrent) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  repository.RemoveBranch(TAL_WIDE("master"));
  EXPECT_TRUE(repository.CreateBranch(TAL_WIDE("master"), nullptr));
  EXPECT_FALSE(repository.GetHead());
  Commit commit(&repository, false);
  EXPECT_TRUE(repository.DoCommit(commit));
  EXPECT_TRUE(repository.GetHead());
}

}  // namespace
}  // namespace TalVcs::Testing
