#include <talvcs/repository/repository.h>

#include <gmock/gmock.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>
#include <tests/support/merging.h>

#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MergeDrivers : public ::testing::Test {
 protected:
  void Draw(const char* drawing, const char* branches) {
    history = DrawHistory(repository, drawing);
    PlaceBranches(repository, history, branches);
  }
  cow_ptr<Commit> At(const char* name) const { return history.at(name); }
  Resolvers Choosing(ConflictChoice choice) { return questions.Noting(choice); }
  std::string Master() const { return ChainOf(repository, "master"); }

  Repository repository = NewRepository();
  History history;
  Questions questions;
};

using Merge = MergeDrivers;
using FastForwardMerge = MergeDrivers;
using Merge3Way = MergeDrivers;

TEST_F(Merge, ReturnsFalseForNullCommit) {
  Draw("A", "master=A");
  EXPECT_FALSE(repository.Merge(nullptr, Choosing(ConflictChoice::Left)));
  EXPECT_FALSE(repository.FastForwardMerge(nullptr));
  EXPECT_FALSE(repository.Merge3Way(nullptr, Choosing(ConflictChoice::Left)));
  EXPECT_EQ(Master(), "A");
}

TEST_F(Merge, MovesABranchWithoutHeadAndCallsNoResolver) {
  Draw("A-B", "");
  EXPECT_TRUE(repository.Merge(At("B"), Choosing(ConflictChoice::Undecided)));
  EXPECT_EQ(repository.GetHead(), At("B"));
  EXPECT_THAT(questions.asked, IsEmpty());
}

TEST_F(Merge, ReturnsFalseIfTheCurrentBranchIsMissing) {
  Draw("A", "");
  ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  EXPECT_FALSE(repository.Merge(At("A"), Choosing(ConflictChoice::Left)));
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("master")));
}

TEST_F(Merge, FastForwardsWithoutResolvers) {
  Draw("A-B-C", "master=A");
  EXPECT_TRUE(repository.Merge(At("C"), Resolvers()));
  EXPECT_EQ(repository.GetHead(), At("C"));
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST_F(Merge, OfTheHeadChangesNothing) {
  Draw("A-B", "master=B");
  EXPECT_TRUE(repository.Merge(At("B"), Resolvers()));
  EXPECT_EQ(repository.GetHead(), At("B"));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
  EXPECT_EQ(repository.GetTreeCount(), 3u);
}

TEST_F(Merge, AnotherInstanceOfTheHeadMakesAMergeCommit) {
  Draw("A", "master=A");
  Repository elsewhere = NewRepository();
  const cow_ptr<Commit> twin = DrawHistory(elsewhere, "A").at("A");
  EXPECT_TRUE(repository.Merge(twin, Resolvers()));
  EXPECT_EQ(repository.GetHead()->GetParent(), At("A"));
  EXPECT_EQ(ListingOf(repository.GetHead()), ListingOf(At("A")));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST_F(Merge, AncestorOfTheHeadMakesACommitWithTheHeadsContent) {
  Draw("A-B", "master=B");
  EXPECT_TRUE(repository.Merge(At("A"), Choosing(ConflictChoice::Undecided)));
  EXPECT_EQ(Master(), "A-B-_");
  EXPECT_EQ(ListingOf(repository.GetHead()), ListingOf(At("B")));
  EXPECT_EQ(repository.GetHead()->GetParent(), At("B"));
  EXPECT_THAT(questions.asked, ElementsAre("/"));
}

TEST_F(Merge, ResolverCanRefuseAnAncestorOfTheHead) {
  Draw("A-B", "master=B");
  EXPECT_FALSE(repository.Merge(At("A"), Resolvers()));
  EXPECT_EQ(repository.GetHead(), At("B"));
}

TEST_F(Merge, ComparesBothSidesWithTheCommonBase) {
  Draw("A-B; A-C", "master=B");
  EXPECT_TRUE(repository.Merge(At("C"), Choosing(ConflictChoice::Right)));
  EXPECT_EQ(ListingOf(repository.GetHead()), "lib/common=common name=C");
  EXPECT_THAT(questions.asked, ElementsAre("/", "name"));
}

TEST_F(Merge, MergeCommitHasTheOldHeadAsItsOnlyParentAndNoTexts) {
  Draw("A-B; A-C", "master=B");
  ASSERT_TRUE(repository.Merge(At("C"), Choosing(ConflictChoice::Left)));
  const cow_ptr<Commit> merge = repository.GetHead();
  EXPECT_EQ(merge->GetParent(), At("B"));
  EXPECT_TRUE(merge->GetDesciption().IsEmpty());
  EXPECT_TRUE(merge->GetAuthorName().IsEmpty());
  EXPECT_TRUE(merge->GetAuthorEmail().IsEmpty());
  EXPECT_FALSE(merge->IsAmend());
  EXPECT_GT(merge->GetCommitTime().ToTimeT(), 1000000000);
  EXPECT_EQ(repository.GetCommitFromStorage(merge->GetId()), merge);
}

TEST_F(Merge, SecondMergeOfABranchUsesTheSameBase) {
  Draw("A-B; A-C", "master=B");
  ASSERT_TRUE(repository.Merge(At("C"), Choosing(ConflictChoice::Right)));
  EXPECT_EQ(repository.GetCommonBase(repository.GetHead(), At("C")), At("A"));
}

TEST_F(Merge, UnrelatedHistoriesAreMergedAsAdditions) {
  Draw("A; X", "master=A");
  EXPECT_TRUE(repository.Merge(At("X"), Choosing(ConflictChoice::Root)));
  EXPECT_EQ(ListingOf(repository.GetHead()), "lib/common=common");
  EXPECT_THAT(questions.asked, ElementsAre("/", "name"));
}

TEST_F(Merge, UndecidedConflictDoesNotMoveTheBranch) {
  Draw("A-B; A-C", "master=B");
  EXPECT_FALSE(repository.Merge(At("C"), Choosing(ConflictChoice::Undecided)));
  EXPECT_EQ(repository.GetHead(), At("B"));
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST_F(Merge, EqualTreesMakeAMergeCommitAndCallNoResolver) {
  Draw("A-B", "master=B");
  cow_ptr<Commit> same = MakeCommit(repository, "B", At("A"));
  same.write()->SetDescription(TAL_WIDE("the same content"));
  same = repository.SyncWithStorage(same);
  EXPECT_TRUE(repository.Merge(same, Resolvers()));
  EXPECT_EQ(repository.GetHead()->GetParent(), At("B"));
  EXPECT_EQ(ListingOf(repository.GetHead()), ListingOf(At("B")));
}

TEST_F(Merge, PassesHeadBaseAndIncomingTreesToTheResolvers) {
  Draw("A-B; A-C", "master=B");
  MergeTrees seen;
  const TreeConflictResolver note = [&](Path, MergeTrees trees) {
    seen = std::move(trees);
    return TreeConflictChoice::Left;
  };
  ASSERT_TRUE(repository.Merge(At("C"), {{}, note}));
  EXPECT_EQ(seen.left, At("B")->GetTree()->GetRoot());
  EXPECT_EQ(seen.root, At("A")->GetTree()->GetRoot());
  EXPECT_EQ(seen.right, At("C")->GetTree()->GetRoot());
}

TEST_F(Merge, MergedTreeIsStored) {
  Draw("A-B; A-C", "master=B");
  ASSERT_TRUE(repository.Merge(At("C"), Choosing(ConflictChoice::Root)));
  const cow_ptr<Tree> root = repository.GetHead()->GetTree()->GetRoot();
  EXPECT_EQ(repository.GetTreeFromStorage(root->GetId()), root);
}

TEST_F(Merge, MovesTheCurrentBranch) {
  Draw("A-B", "master=A topic=A");
  ASSERT_TRUE(repository.Checkout(TAL_WIDE("topic")));
  EXPECT_TRUE(repository.Merge(At("B"), Resolvers()));
  EXPECT_EQ(ChainOf(repository, "topic"), "A-B");
  EXPECT_EQ(Master(), "A");
}

TEST_F(FastForwardMerge, MovesTheBranchToADescendantWithoutANewCommit) {
  Draw("A-B-C", "master=A");
  EXPECT_TRUE(repository.FastForwardMerge(At("C")));
  EXPECT_EQ(repository.GetHead(), At("C"));
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST_F(FastForwardMerge, ReturnsFalseForForkedUnrelatedOrOlderCommit) {
  Draw("A-B; A-C; X", "master=B");
  EXPECT_FALSE(repository.FastForwardMerge(At("C")));
  EXPECT_FALSE(repository.FastForwardMerge(At("X")));
  EXPECT_FALSE(repository.FastForwardMerge(At("A")));
  EXPECT_EQ(repository.GetHead(), At("B"));
}

TEST_F(FastForwardMerge, MovesABranchWithoutHead) {
  Draw("A", "");
  EXPECT_TRUE(repository.FastForwardMerge(At("A")));
  EXPECT_EQ(repository.GetHead(), At("A"));
}

TEST_F(FastForwardMerge, ReturnsFalseIfTheCurrentBranchIsMissing) {
  Draw("A", "");
  repository.RemoveBranch(TAL_WIDE("master"));
  EXPECT_FALSE(repository.FastForwardMerge(At("A")));
}

TEST_F(FastForwardMerge, ReturnsFalseForADescendantOfAnotherInstanceOfTheHead) {
  Draw("A", "master=A");
  Repository elsewhere = NewRepository();
  const cow_ptr<Commit> foreign = DrawHistory(elsewhere, "A-B").at("B");
  EXPECT_FALSE(repository.FastForwardMerge(foreign));
  EXPECT_EQ(repository.GetHead(), At("A"));
}

TEST_F(Merge3Way, ReturnsFalseForABranchWithoutHead) {
  Draw("A", "");
  EXPECT_FALSE(repository.Merge3Way(At("A"), Choosing(ConflictChoice::Left)));
  EXPECT_FALSE(repository.GetHead());
}

TEST_F(Merge3Way, MakesACommitForADescendantOfTheHead) {
  Draw("A-B", "master=A");
  EXPECT_TRUE(repository.Merge3Way(At("B"), Choosing(ConflictChoice::Undecided)));
  EXPECT_EQ(repository.GetHead()->GetParent(), At("A"));
  EXPECT_EQ(ListingOf(repository.GetHead()), ListingOf(At("B")));
}

TEST_F(Merge3Way, FailsIfNeitherCommitHasATree) {
  const cow_ptr<Commit> head = repository.SyncWithStorage(Make<Commit>());
  repository.MoveBranchTo(TAL_WIDE("master"), head);
  cow_ptr<Commit> incoming = Make<Commit>();
  incoming.write()->SetDescription(TAL_WIDE("other"));
  EXPECT_FALSE(repository.Merge3Way(incoming, Choosing(ConflictChoice::Left)));
  EXPECT_EQ(repository.GetHead(), head);
}

TEST_F(Merge3Way, IncomingCommitWithoutTreeCountsAsAnEmptyTree) {
  Draw("A", "master=A");
  cow_ptr<Commit> incoming = Make<Commit>(At("A"), false);
  incoming.write()->ReplaceRoot(&repository, nullptr);
  EXPECT_TRUE(repository.Merge3Way(incoming, Choosing(ConflictChoice::Left)));
  EXPECT_EQ(ListingOf(repository.GetHead()), "");
}

TEST_F(Merge3Way, AcceptsAnIncomingCommitThatIsNotStored) {
  Draw("A-B", "master=B");
  const cow_ptr<Commit> incoming = MakeCommit(repository, "C", At("A"));
  EXPECT_TRUE(repository.Merge3Way(incoming, Choosing(ConflictChoice::Right)));
  EXPECT_EQ(ListingOf(repository.GetHead()), "lib/common=common name=C");
  EXPECT_FALSE(repository.GetCommitFromStorage(incoming->GetId()));
}

TEST_F(Merge3Way, ObjectsOfAFailedMergeStayUntilAPurge) {
  const auto commitOf = [&](const char* name, cow_ptr<Commit> parent,
                            std::vector<std::pair<std::string, std::string>> files) {
    cow_ptr<Commit> commit = MakeCommit(repository, name, std::move(parent));
    commit.write()->ReplaceRoot(&repository, Make<Tree>(TreeOf(&repository, files)));
    commit.write()->SetDescription(Wide(name));
    return repository.SyncWithStorage(commit);
  };
  const auto base = commitOf("A", nullptr, {{"d/f", "0"}, {"d/g", "0"}, {"e/f", "0"}});
  const auto left = commitOf("B", base, {{"d/f", "l"}, {"d/g", "0"}, {"e/f", "l"}});
  const auto right = commitOf("C", base, {{"d/f", "0"}, {"d/g", "r"}, {"e/f", "r"}});
  repository.MoveBranchTo(TAL_WIDE("master"), left);
  repository.UpdateStorage();
  const std::uint64_t trees = repository.GetTreeCount();
  EXPECT_FALSE(repository.Merge3Way(right, Choosing(ConflictChoice::Undecided)));
  EXPECT_EQ(repository.GetHead(), left);
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetTreeCount(), trees);
}

}  // namespace
}  // namespace TalVcs::Testing
