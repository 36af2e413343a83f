#include <talvcs/repository/repository.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

class SimplifyCommitGraph : public ::testing::Test {
 protected:
  void Draw(const char* drawing, const char* branches) {
    PlaceBranches(repository, DrawHistory(repository, drawing), branches);
  }
  bool Simplify(bool updateStorage = true) { return repository.SimplifyCommitGraph(updateStorage); }
  std::string Chain(const char* branch) const { return ChainOf(repository, branch); }
  cow_ptr<Commit> Head(const char* branch) const { return repository.GetHead(Wide(branch)); }

  Repository repository = NewRepository();
};

TEST_F(SimplifyCommitGraph, WithoutStorageReturnsFalse) {
  Repository without(nullptr);
  EXPECT_FALSE(without.SimplifyCommitGraph(true));
  EXPECT_FALSE(without.SimplifyCommitGraph(false));
}

TEST_F(SimplifyCommitGraph, WithoutBranchesPurgesOnlyIfRequested) {
  ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  DrawHistory(repository, "A-B");
  EXPECT_TRUE(Simplify(false));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
  EXPECT_TRUE(Simplify(true));
  EXPECT_EQ(repository.GetCommitCount(), 0u);
  EXPECT_EQ(repository.GetTreeCount(), 0u);
}

TEST_F(SimplifyCommitGraph, HistoryOfOneBranchBecomesItsHead) {
  Draw("A-B-C-D-E", "master=E");
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Chain("master"), "E");
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(ListingOf(Head("master")), "lib/common=common name=E");
  EXPECT_EQ(repository.GetTreeCount(), 2u);
  EXPECT_EQ(repository.GetBlobCount(), 2u);
}

TEST_F(SimplifyCommitGraph, TipsAndForkOfTwoBranchesStay) {
  Draw("A-B-C-D; B-E-F", "master=D fork=F");
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Chain("master"), "B-D");
  EXPECT_EQ(Chain("fork"), "B-F");
  EXPECT_EQ(Head("master")->GetParent(), Head("fork")->GetParent());
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST_F(SimplifyCommitGraph, TwoBranchesOnOneCommitMoveTogether) {
  Draw("A-B", "master=B other=B");
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Chain("master"), "B");
  EXPECT_EQ(Head("other"), Head("master"));
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST_F(SimplifyCommitGraph, HeadThatIsAnAncestorOfAnotherBecomesItsParent) {
  Draw("A-B-C-D-E", "low=B master=E");
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Chain("low"), "B");
  EXPECT_EQ(Chain("master"), "B-E");
  EXPECT_EQ(Head("master")->GetParent(), Head("low"));
}

TEST_F(SimplifyCommitGraph, UnrelatedHistoriesStayUnrelated) {
  Draw("A-B; X-Y-Z", "master=B other=Z");
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Chain("master"), "B");
  EXPECT_EQ(Chain("other"), "Z");
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST_F(SimplifyCommitGraph, NestedForksKeepTheirOrder) {
  Draw("A-B-C-D-E-F; C-G-H; E-I", "f=F h=H i=I");
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Chain("f"), "C-E-F");
  EXPECT_EQ(Chain("h"), "C-H");
  EXPECT_EQ(Chain("i"), "C-E-I");
  EXPECT_EQ(repository.GetCommitCount(), 5u);
}

TEST_F(SimplifyCommitGraph, FirstCommitThatIsAForkKeepsItsId) {
  Draw("A-B-C; A-D-E", "c=C e=E");
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(IdOf(Head("c")->GetParent()), IdOfChain("A"));
  EXPECT_EQ(Chain("c"), "A-C");
}

TEST_F(SimplifyCommitGraph, BranchWithoutHeadStaysAsItIs) {
  Draw("A-B", "topic=B empty=");
  EXPECT_TRUE(Simplify());
  EXPECT_TRUE(repository.BranchExist(TAL_WIDE("empty")));
  EXPECT_FALSE(Head("empty"));
  EXPECT_FALSE(Head("master"));
  EXPECT_EQ(Chain("topic"), "B");
}

TEST_F(SimplifyCommitGraph, OldCommitsStayUntilAPurge) {
  Draw("A-B-C-D; B-E-F", "master=D fork=F");
  const Id oldHead = Head("master")->GetId();
  EXPECT_TRUE(Simplify(false));
  EXPECT_TRUE(repository.GetCommitFromStorage(oldHead));
  EXPECT_EQ(Chain("master"), "B-D");
  EXPECT_EQ(repository.GetCommitCount(), 6u + 3u);
  EXPECT_EQ(repository.GetTreeCount(), 7u);
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount(), 3u);
  EXPECT_EQ(repository.GetTreeCount(), 4u);
}

TEST_F(SimplifyCommitGraph, SecondCallChangesNothing) {
  Draw("A-B-C-D; B-E-F", "master=D fork=F");
  ASSERT_TRUE(Simplify());
  const cow_ptr<Commit> master = Head("master");
  const cow_ptr<Commit> fork = Head("fork");
  EXPECT_TRUE(Simplify(false));
  EXPECT_EQ(Head("master"), master);
  EXPECT_EQ(Head("fork"), fork);
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST_F(SimplifyCommitGraph, KeptCommitsDifferOnlyInTheirParent) {
  Draw("A-B", "master=B");
  const cow_ptr<Tree> root = Head("master")->GetTree()->GetRoot();
  ASSERT_TRUE(Simplify());
  const cow_ptr<Commit> head = Head("master");
  EXPECT_EQ(head->GetTree()->GetRoot(), root);
  EXPECT_EQ(Ascii(head->GetAuthorName()), "Ann");
  EXPECT_EQ(Ascii(head->GetAuthorEmail()), "ann@example.org");
  EXPECT_EQ(head->GetCommitTime().ToTimeT(), 1000000000);
  EXPECT_EQ(IdOf(head), IdOfChain("B"));
}

TEST_F(SimplifyCommitGraph, HandleKeepsAnOldHead) {
  Draw("A-B-C", "master=C");
  const cow_ptr<Commit> held = Head("master");
  ASSERT_TRUE(Simplify());
  EXPECT_EQ(repository.GetCommitCount(), 4u);
  EXPECT_EQ(ChainOf(held), "A-B-C");
}

TEST_F(SimplifyCommitGraph, DoesNotMoveChildrenOfAForkThatIsNotStored) {
  Draw("A-B-C-D; B-E", "master=D fork=E");
  const cow_ptr<Commit> master = Head("master");
  const cow_ptr<Commit> fork = Head("fork");
  repository.GetStorage()->DeleteCommit(fork->GetParent());
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Head("master"), master);
  EXPECT_EQ(Head("fork"), fork);
  EXPECT_EQ(Chain("master"), "A-B-C-D");
}

TEST_F(SimplifyCommitGraph, DoesNotMoveATipThatIsNotStored) {
  Draw("A-B; X-Y", "master=B other=Y");
  const cow_ptr<Commit> lost = Head("other");
  repository.GetStorage()->DeleteCommit(lost);
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Head("other"), lost);
  EXPECT_EQ(Chain("other"), "X-Y");
  EXPECT_EQ(Chain("master"), "B");
}

TEST_F(SimplifyCommitGraph, TipAboveOneThatIsNotStoredStaysToo) {
  Draw("A-B-C", "low=B master=C");
  const cow_ptr<Commit> low = Head("low");
  const cow_ptr<Commit> master = Head("master");
  repository.GetStorage()->DeleteCommit(low);
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Head("low"), low);
  EXPECT_EQ(Head("master"), master);
}

TEST_F(SimplifyCommitGraph, MovesABranchWhoseHeadIsAnotherInstance) {
  Draw("A-B", "master=B");
  Repository elsewhere = NewRepository();
  ASSERT_TRUE(repository.CreateBranch(TAL_WIDE("twin"), DrawHistory(elsewhere, "A-B").at("B")));
  ASSERT_NE(Head("twin"), Head("master"));
  EXPECT_TRUE(Simplify());
  EXPECT_EQ(Head("twin"), Head("master"));
  EXPECT_EQ(Chain("twin"), "B");
}

TEST_F(SimplifyCommitGraph, CurrentBranchStaysTheSame) {
  Draw("A-B", "master=B");
  ASSERT_TRUE(Simplify());
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
  EXPECT_EQ(ChainOf(repository.GetHead()), "B");
}

TEST_F(SimplifyCommitGraph, KeptCommitBecomesTheCanonicalInstanceOfItsNewId) {
  Draw("A-B", "master=B");
  const cow_ptr<Commit> known = repository.SyncWithStorage(MakeCommit(repository, "B"));
  ASSERT_TRUE(Simplify());
  EXPECT_EQ(Head("master"), known);
}

/// Finds common bases in a way of its own, and counts the searches.
class SearchingRepository final : public Repository {
 public:
  SearchingRepository() : Repository(NewStorage()) {}
  cow_ptr<Commit> GetCommonBase(cow_ptr<Commit>, cow_ptr<Commit>) const override {
    ++searches;
    return base;
  }
  cow_ptr<Commit> base;
  mutable int searches = 0;
};

class SimplifyByAHostsSearch : public ::testing::Test {
 protected:
  History Draw(const char* drawing, const char* branches) {
    const History history = DrawHistory(repository, drawing);
    PlaceBranches(repository, history, branches);
    repository.searches = 0;
    return history;
  }
  std::string Chain(const char* branch) const { return ChainOf(repository, branch); }

  SearchingRepository repository;
};

TEST_F(SimplifyByAHostsSearch, SearchesForEachPairOfBranches) {
  Draw("A-B-C", "master=C b=B a=A empty=");
  EXPECT_TRUE(repository.SimplifyCommitGraph(true));
  EXPECT_EQ(repository.searches, 6) << "a branch without head counts as well";
}

TEST_F(SimplifyByAHostsSearch, KeepsNoForkThatIsNotFound) {
  Draw("A-B-C-D; C-E; C-F", "low=A d=D e=E f=F");
  EXPECT_TRUE(repository.SimplifyCommitGraph(true));
  EXPECT_EQ(Chain("d"), "A-D");
  EXPECT_EQ(Chain("e"), "A-E");
  EXPECT_EQ(Chain("f"), "A-F");
  EXPECT_EQ(repository.GetCommitCount(), 4U);
}

TEST_F(SimplifyByAHostsSearch, KeepsTheCommitThatIsFound) {
  repository.base = Draw("A-B-C-D; C-E", "d=D e=E").at("B");
  EXPECT_TRUE(repository.SimplifyCommitGraph(true));
  EXPECT_EQ(Chain("d"), "B-D");
  EXPECT_EQ(Chain("e"), "B-E");
}

/// Loses the other branch when it moves one.
class LosingRepository final : public Repository {
 public:
  LosingRepository() : Repository(NewStorage()) {}
  bool MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override {
    RemoveBranch(name == TAL_WIDE("a") ? TAL_WIDE("b") : TAL_WIDE("a"));
    return Repository::MoveBranchTo(name, std::move(commit));
  }
};

TEST(SimplifyWhileBranchesVanish, CreatesThemAgain) {
  LosingRepository repository;
  PlaceBranches(repository, DrawHistory(repository, "A-B-C"), "a=C b=C");
  EXPECT_TRUE(repository.SimplifyCommitGraph(true));
  EXPECT_EQ(ChainOf(repository, "a"), "C");
  EXPECT_EQ(ChainOf(repository, "b"), "C");
}

}  // namespace
}  // namespace TalVcs::Testing
