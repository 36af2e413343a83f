#include <gmock/gmock.h>
#include <tests/support/new_storage.h>
#include <tests/support/objects.h>

namespace TalVcs::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

TEST(BranchTable, CreateBranchFailsForEmptyName) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  EXPECT_FALSE(storage.CreateBranch(TAL_WIDE(""), Make<Commit>()));
  EXPECT_THAT(storage.GetRefs(), SizeIs(1));
}

TEST(BranchTable, CreateBranchFailsForExistingNameAndKeepsItsHead) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  const auto head = Make<Commit>();
  storage.UpdateBranch(TAL_WIDE("master"), head);
  EXPECT_FALSE(storage.CreateBranch(TAL_WIDE("master"), Make<Commit>()));
  EXPECT_EQ(storage.GetHead(TAL_WIDE("master")), head);
}

TEST(BranchTable, CreateBranchWithNullCommitMakesBranchWithoutHead) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  EXPECT_TRUE(storage.CreateBranch(TAL_WIDE("topic"), nullptr));
  EXPECT_TRUE(storage.BranchExist(TAL_WIDE("topic")));
  EXPECT_FALSE(storage.GetHead(TAL_WIDE("topic")));
}

TEST(BranchTable, CreateBranchAcceptsCommitThatIsNotStored) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  const auto head = Make<Commit>();
  EXPECT_TRUE(storage.CreateBranch(TAL_WIDE("topic"), head));
  EXPECT_EQ(storage.GetHead(TAL_WIDE("topic")), head);
  EXPECT_EQ(storage.GetCommitCount(), 0u);
}

TEST(BranchTable, NamesThatDifferInCaseNameTwoBranches) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  EXPECT_TRUE(storage.CreateBranch(TAL_WIDE("Master"), nullptr));
  EXPECT_THAT(storage.GetRefs(), SizeIs(2));
  EXPECT_FALSE(storage.BranchExist(TAL_WIDE("MASTER")));
}

TEST(BranchTable, NamesMayContainAnyCharacter) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  for (const WideChar* name :
       {TAL_WIDE("a/b"), TAL_WIDE(".."), TAL_WIDE(" "), TAL_WIDE("\\"), TAL_WIDE("\u0001"),
        TAL_WIDE("a long name of more characters than fit into a string object")}) {
    EXPECT_TRUE(storage.CreateBranch(name, nullptr)) << Ascii(name);
    EXPECT_TRUE(storage.BranchExist(name)) << Ascii(name);
  }
  EXPECT_FALSE(storage.BranchExist(TAL_WIDE("a")));
}

TEST(BranchTable, NamesWithEqualSampleHashNameTwoBranches) {
  // Of 20 characters, every third one is looked at.
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  EXPECT_TRUE(storage.CreateBranch(TAL_WIDE("0123456789abcdefghij"), nullptr));
  EXPECT_FALSE(storage.BranchExist(TAL_WIDE("0X23456789abcdefghij")));
  EXPECT_TRUE(storage.CreateBranch(TAL_WIDE("0X23456789abcdefghij"), nullptr));
  EXPECT_THAT(storage.GetRefs(), SizeIs(3));
}

TEST(BranchTable, RemoveBranchTwiceSucceedsOnce) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  EXPECT_TRUE(storage.RemoveBranch(TAL_WIDE("master")));
  EXPECT_FALSE(storage.RemoveBranch(TAL_WIDE("master")));
  EXPECT_FALSE(storage.BranchExist(TAL_WIDE("master")));
}

TEST(BranchTable, RemoveBranchKeepsTheCommitStored) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  const auto commit = Make<Commit>();
  storage.AddCommit(commit);
  storage.UpdateBranch(TAL_WIDE("master"), commit);
  storage.RemoveBranch(TAL_WIDE("master"));
  EXPECT_EQ(storage.GetCommit(commit->GetId()), commit);
}

TEST(BranchTable, UpdateBranchReplacesTheHead) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  const auto first = Make<Commit>();
  const auto second = Make<Commit>();
  EXPECT_TRUE(storage.UpdateBranch(TAL_WIDE("master"), first));
  EXPECT_TRUE(storage.UpdateBranch(TAL_WIDE("master"), second));
  EXPECT_EQ(storage.GetHead(TAL_WIDE("master")), second);
  EXPECT_EQ(first.use_count(), 1);
}

TEST(BranchTable, UpdateBranchFailsForNullCommit) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  const auto head = Make<Commit>();
  storage.UpdateBranch(TAL_WIDE("master"), head);
  EXPECT_FALSE(storage.UpdateBranch(TAL_WIDE("master"), nullptr));
  EXPECT_EQ(storage.GetHead(TAL_WIDE("master")), head);
}

TEST(BranchTable, UpdateBranchFailsForUnknownNameAndCreatesNoBranch) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  EXPECT_FALSE(storage.UpdateBranch(TAL_WIDE("topic"), Make<Commit>()));
  EXPECT_FALSE(storage.BranchExist(TAL_WIDE("topic")));
}

TEST(BranchTable, UpdateBranchFailsForTheEmptyNameEvenIfItExists) {
  const auto owned = NewStorage({TAL_WIDE("")});
  IObjectsStorage& storage = *owned;
  EXPECT_FALSE(storage.UpdateBranch(TAL_WIDE(""), Make<Commit>()));
  EXPECT_FALSE(storage.GetHead(TAL_WIDE("")));
}

TEST(BranchTable, RemoveBranchAcceptsTheEmptyName) {
  const auto owned = NewStorage({TAL_WIDE("")});
  IObjectsStorage& storage = *owned;
  EXPECT_TRUE(storage.RemoveBranch(TAL_WIDE("")));
  EXPECT_THAT(storage.GetRefs(), IsEmpty());
}

TEST(BranchTable, GetHeadReturnsNullForUnknownOrRemovedBranch) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  storage.UpdateBranch(TAL_WIDE("master"), Make<Commit>());
  storage.RemoveBranch(TAL_WIDE("master"));
  EXPECT_NO_THROW(EXPECT_FALSE(storage.GetHead(TAL_WIDE("master"))));
  EXPECT_NO_THROW(EXPECT_FALSE(storage.GetHead(TAL_WIDE("never"))));
}

TEST(BranchTable, GetCommitBranchesReturnsNamesInTheOrderOfTheTable) {
  const auto owned = NewStorage({TAL_WIDE("a"), TAL_WIDE("b"), TAL_WIDE("c")});
  IObjectsStorage& storage = *owned;
  const auto commit = Make<Commit>();
  storage.UpdateBranch(TAL_WIDE("a"), commit);
  storage.UpdateBranch(TAL_WIDE("c"), commit);
  std::vector<std::string> inTableOrder;
  for (const auto& [name, head] : storage.GetRefs()) {
    if (head == commit) inTableOrder.push_back(Ascii(name));
  }
  EXPECT_THAT(inTableOrder, UnorderedElementsAre("a", "c"));
  EXPECT_EQ(Ascii(storage.GetCommitBranches(commit)), inTableOrder);
}

TEST(BranchTable, GetCommitBranchesReturnsNothingForAnotherInstanceOfTheHead) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  storage.UpdateBranch(TAL_WIDE("master"), Make<Commit>());
  EXPECT_THAT(storage.GetCommitBranches(Make<Commit>()), IsEmpty());
}

TEST(BranchTable, GetCommitBranchesReturnsBranchesWithoutHeadForNull) {
  const auto owned = NewStorage({TAL_WIDE("a"), TAL_WIDE("b")});
  IObjectsStorage& storage = *owned;
  storage.UpdateBranch(TAL_WIDE("b"), Make<Commit>());
  EXPECT_THAT(Ascii(storage.GetCommitBranches(nullptr)), ElementsAre("a"));
}

TEST(BranchTable, BranchHoldsItsHeadOnce) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  const auto commit = Make<Commit>();
  storage.AddCommit(commit);
  storage.UpdateBranch(TAL_WIDE("master"), commit);
  EXPECT_EQ(commit.use_count(), 3);
}

}  // namespace
}  // namespace TalVcs::Testing
