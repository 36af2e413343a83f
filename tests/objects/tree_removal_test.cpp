#include <talvcs/objects/tree.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

constexpr char kEmptyTreeId[] = "6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321";

class TreeRemoval : public ::testing::Test {
 protected:
  bool Remove(const char* path) { return m_tree.RemoveObject(&m_repository, Wide(path)); }
  bool RemoveAlone(const char* path) { return m_tree.RemoveObject(nullptr, Wide(path)); }
  void Put(const char* path, const char* bytes = "x") {
    m_tree.AddBlob(&m_repository, Wide(path), BlobOf(bytes));
  }

  RecordingRepository m_repository;
  Tree m_tree;
};

TEST_F(TreeRemoval, ReturnsFalseForAMissingPath) {
  Put("d/a");
  const std::string id = IdOf(m_tree);
  for (const char* path : {"", "/", "b", "d/b", "e/a", "d/a/b", "d/e/f/g", "D"}) {
    EXPECT_FALSE(Remove(path)) << path;
  }
  EXPECT_EQ(IdOf(m_tree), id);
}

TEST_F(TreeRemoval, RemovesABlob) {
  Put("a");
  Put("b");
  m_tree.GetPackedData();
  EXPECT_TRUE(Remove("a"));
  EXPECT_TRUE(m_tree.GetLocalBlob(TAL_WIDE("a")) == nullptr);
  EXPECT_EQ(IdOf(m_tree), "b5dccdb39834cb1766bab8da901de1a77ada4e5a15dbc686681b4e437f3b5770");
  EXPECT_FALSE(Remove("a"));
}

TEST_F(TreeRemoval, RemovesASubtreeWithItsContent) {
  Put("d/e/a");
  Put("d/b");
  Put("c");
  EXPECT_TRUE(Remove("d"));
  EXPECT_EQ(IdOf(m_tree), "01e4f30a923ca94dd94c0a0325e5a473d4ec8e8ac7fcbac26b829b681a9b8956");
  EXPECT_EQ(m_tree.GetDeepBlobCount(), 1U);
}

TEST_F(TreeRemoval, RemovesDirectoriesThatBecomeEmpty) {
  for (const char* path : {"a", "1/a", "1/2/a", "1/2/3/a", "1/2/3/4/a", "1/2/3/4/5/a"}) {
    Put(path);
    EXPECT_TRUE(Remove(path)) << path;
    EXPECT_TRUE(m_tree.IsEmpty()) << path;
    EXPECT_EQ(IdOf(m_tree), kEmptyTreeId);
  }
}

TEST_F(TreeRemoval, StopsAtTheFirstDirectoryWithOtherEntries) {
  Put("1/2/3/4/a");
  Put("1/b");
  EXPECT_TRUE(Remove("1/2/3/4/a"));
  EXPECT_EQ(IdOf(m_tree), "283710813ad0ae3020269bb7dfb822278ccf3384698ccdcb98514bedc4b57f86");
  EXPECT_TRUE(m_tree.GetDeepTree(TAL_WIDE("1/2")) == nullptr);
}

TEST_F(TreeRemoval, KeepsADirectoryThatStillHasABlob) {
  Put("d/a");
  Put("d/b");
  const cow_ptr<Tree> before = m_tree.GetLocalTree(TAL_WIDE("d"));
  EXPECT_TRUE(Remove("d/a"));
  const cow_ptr<Tree> after = m_tree.GetLocalTree(TAL_WIDE("d"));
  EXPECT_EQ(IdOf(*after), "b5dccdb39834cb1766bab8da901de1a77ada4e5a15dbc686681b4e437f3b5770");
  EXPECT_EQ(before->GetLocalObjectCount(), 2U);
  EXPECT_TRUE(after == m_repository.GetTreeFromStorage(after->GetId()));
}

TEST_F(TreeRemoval, KeepsADirectoryWithOnlySubtrees) {
  Put("d/a");
  Put("d/e/b");
  EXPECT_TRUE(Remove("d/a"));
  EXPECT_EQ(IdOf(m_tree), "300889b7cfadb4c463426347d321236918eb3478f8babb36d723a6716ef525a8");
}

TEST_F(TreeRemoval, RestoresTheIdBeforeTheAddition) {
  Put("d/e/a");
  const std::string id = IdOf(m_tree);
  Put("d/e/b");
  Put("d/f/g/h");
  EXPECT_TRUE(Remove("d/f/g/h"));
  EXPECT_TRUE(Remove("d/e/b"));
  EXPECT_EQ(IdOf(m_tree), id);
}

TEST_F(TreeRemoval, RemovesABlobAndTheSubtreeItHides) {
  Put("a/b");
  Put("a");
  EXPECT_EQ(m_tree.GetLocalObjectCount(), 2U);
  EXPECT_TRUE(Remove("a"));
  EXPECT_TRUE(m_tree.IsEmpty());
}

TEST_F(TreeRemoval, RemovesTheBlobThatHidASubtreeThatBecomesEmpty) {
  // The emptied directory goes by its name, and so does the blob that hides it.
  Put("a/b");
  Put("a", "hider");
  Put("c");
  EXPECT_TRUE(Remove("a/b"));
  EXPECT_TRUE(m_tree.GetLocalBlob(TAL_WIDE("a")) == nullptr);
  EXPECT_EQ(IdOf(m_tree), "01e4f30a923ca94dd94c0a0325e5a473d4ec8e8ac7fcbac26b829b681a9b8956");
}

TEST_F(TreeRemoval, InsideAHiddenSubtreeKeepsTheBlobWhileOthersStay) {
  Put("a/b");
  Put("a/c");
  Put("a", "hider");
  EXPECT_TRUE(Remove("a/b"));
  EXPECT_EQ(m_tree.GetLocalObjectCount(), 2U);
  EXPECT_EQ(m_tree.GetLocalTree(TAL_WIDE("a"))->GetLocalObjectCount(), 1U);
  EXPECT_EQ(IdOf(m_tree), "89b4681ea74c3ccab08f1fc1e963624bc016777a73c21f2f04cb68cb5f4e7f1c");
}

TEST_F(TreeRemoval, OfABlobInADirectoryWithAHiddenTreeBelow) {
  Put("d/a/b");
  Put("d/a", "hider");
  EXPECT_TRUE(Remove("d/a"));
  EXPECT_TRUE(m_tree.IsEmpty());
}

TEST_F(TreeRemoval, RemovesAnEmptySubtree) {
  m_tree.AddTree(&m_repository, TAL_WIDE("d/empty"), Tree());
  EXPECT_FALSE(Remove("d/empty/a"));
  EXPECT_TRUE(Remove("d/empty"));
  EXPECT_TRUE(m_tree.IsEmpty());
}

TEST_F(TreeRemoval, WithoutRepositoryWorksAtOneLevel) {
  Put("a");
  Put("b");
  EXPECT_TRUE(RemoveAlone("a"));
  EXPECT_EQ(IdOf(m_tree), "b5dccdb39834cb1766bab8da901de1a77ada4e5a15dbc686681b4e437f3b5770");
}

TEST_F(TreeRemoval, WithoutRepositoryWorksWhereEverySubtreeIsLeftEmpty) {
  Put("1/2/3/4/a");
  Put("b");
  EXPECT_TRUE(RemoveAlone("1/2/3/4/a"));
  EXPECT_EQ(IdOf(m_tree), "b5dccdb39834cb1766bab8da901de1a77ada4e5a15dbc686681b4e437f3b5770");
}

TEST_F(TreeRemoval, WithoutRepositoryPutsNothingBackButGivesTrue) {
  Put("d/a");
  Put("d/b");
  Put("1/2/3/4/a");
  Put("1/2/c");
  const std::string id = IdOf(m_tree);
  EXPECT_TRUE(RemoveAlone("d/a"));
  EXPECT_TRUE(RemoveAlone("1/2/3/4/a"));
  EXPECT_EQ(IdOf(m_tree), id);
  EXPECT_TRUE(m_tree.GetDeepBlob(TAL_WIDE("d/a")) != nullptr);
}

TEST_F(TreeRemoval, WithoutRepositoryReturnsFalseForAMissingPath) {
  Put("d/a");
  EXPECT_FALSE(RemoveAlone("d/b"));
  EXPECT_FALSE(RemoveAlone("e/f/g"));
}

TEST_F(TreeRemoval, StoresOnlyChangedDirectories) {
  Put("1/2/3/a");
  Put("1/2/3/b");
  const std::uint64_t trees = m_repository.GetTreeCount();
  EXPECT_TRUE(Remove("1/2/3/a"));
  EXPECT_EQ(m_repository.GetTreeCount(), trees + 3);
  EXPECT_TRUE(m_repository.GetTreeFromStorage(m_tree.GetId()) == nullptr);
}

TEST_F(TreeRemoval, DoesNotChangeCopies) {
  Put("d/a");
  Put("d/b");
  const Tree copy(m_tree);
  EXPECT_TRUE(Remove("d/a"));
  EXPECT_TRUE(copy.GetDeepBlob(TAL_WIDE("d/a")) != nullptr);
  EXPECT_EQ(IdOf(copy), "c9514e2422f55d6d4d25952c2c02fa3cee048f6093e8e2f998ffaebeaf2c5027");
}

}  // namespace
}  // namespace TalVcs::Testing
