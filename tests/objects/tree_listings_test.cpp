#include <talvcs/objects/tree.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Names = std::vector<std::string>;
using Files = std::vector<std::pair<std::string, std::string>>;

class TreeListings : public ::testing::Test {
 protected:
  cow_ptr<Tree> Of(const Files& files) { return Make<Tree>(TreeOf(&m_repository, files)); }

  void ExpectNoDiffs(const Tree& tree, const cow_ptr<Tree>& other) {
    EXPECT_EQ(Ascii(tree.GetLocalBlobDiffs(other)), Names());
    EXPECT_EQ(Ascii(tree.GetLocalTreeDiffs(other)), Names());
    EXPECT_EQ(Ascii(tree.GetDeepBlobDiffs(other)), Names());
  }

  RecordingRepository m_repository;
};

TEST_F(TreeListings, OfAnEmptyTreeAreEmpty) {
  const auto tree = Make<Tree>();
  EXPECT_EQ(Ascii(tree->GetLocalBlobPaths()), Names());
  EXPECT_EQ(Ascii(tree->GetLocalSubtreePaths()), Names());
  EXPECT_EQ(Ascii(tree->GetLocalObjectPaths()), Names());
  EXPECT_EQ(Ascii(tree->GetDeepBlobPaths()), Names());
  ExpectNoDiffs(*tree, Make<Tree>());
  ExpectNoDiffs(*tree, nullptr);
}

TEST_F(TreeListings, OfALevelAreSortedNames) {
  const auto tree = Of({{"b", "1"}, {"a", "2"}, {"d/x", "3"}, {"B", "4"}, {"c/x", "5"}});
  EXPECT_EQ(Ascii(tree->GetLocalBlobPaths()), (Names{"B", "a", "b"}));
  EXPECT_EQ(Ascii(tree->GetLocalSubtreePaths()), (Names{"c", "d"}));
}

TEST_F(TreeListings, ObjectsListSubtreesBeforeBlobs) {
  const auto tree = Of({{"a", "1"}, {"z/x", "2"}, {"m/x", "3"}, {"b", "4"}});
  EXPECT_EQ(Ascii(tree->GetLocalObjectPaths()), (Names{"m", "z", "a", "b"}));
}

TEST_F(TreeListings, NameOfABlobAndASubtreeIsListedTwiceAmongObjects) {
  const auto tree = Of({{"a/x", "1"}, {"a", "2"}, {"b", "3"}});
  EXPECT_EQ(Ascii(tree->GetLocalObjectPaths()), (Names{"a", "a", "b"}));
  EXPECT_EQ(Ascii(tree->GetLocalBlobPaths()), (Names{"a", "b"}));
  EXPECT_EQ(Ascii(tree->GetLocalSubtreePaths()), Names{"a"});
}

TEST_F(TreeListings, DeepPathsAreOneListSortedByCharacters) {
  const auto tree =
      Of({{"b", "1"}, {"a/c", "2"}, {"a/b/x", "3"}, {"a-b", "4"}, {"a0", "5"}, {"a/b-", "6"}});
  EXPECT_EQ(Ascii(tree->GetDeepBlobPaths()), (Names{"a-b", "a/b-", "a/b/x", "a/c", "a0", "b"}));
}

TEST_F(TreeListings, DeepPathsOfTwoFilesAreSorted) {
  EXPECT_EQ(Ascii(Of({{"a/c", "1"}, {"a-b", "2"}})->GetDeepBlobPaths()), (Names{"a-b", "a/c"}));
}

TEST_F(TreeListings, DeepPathsPassOverSubtreesWithoutBlobs) {
  Tree tree = TreeOf(&m_repository, {{"b", "1"}, {"a.x", "2"}});
  tree.AddTree(&m_repository, TAL_WIDE("a"), Tree());
  tree.AddTree(&m_repository, TAL_WIDE("c/d"), Tree());
  EXPECT_EQ(Ascii(tree.GetDeepBlobPaths()), (Names{"a.x", "b"}));
}

TEST_F(TreeListings, DeepPathsFindTheirBlobs) {
  const auto tree = Of({{"1/2/3", "x"}, {"1/2/4", "y"}, {"5", "z"}});
  for (const TalStringT<WideChar>& path : tree->GetDeepBlobPaths()) {
    EXPECT_TRUE(tree->GetDeepBlob(path) != nullptr) << Ascii(path);
  }
}

TEST_F(TreeListings, DeepPathsIncludeThoseOfHiddenSubtrees) {
  const auto tree = Of({{"a/x", "1"}, {"a/y/z", "2"}, {"a", "3"}});
  EXPECT_EQ(Ascii(tree->GetDeepBlobPaths()), (Names{"a", "a/x", "a/y/z"}));
}

TEST_F(TreeListings, AreSortedByCodeUnits) {
  Tree tree;
  for (const TalStringViewT<WideChar> name : {TalStringViewT<WideChar>(TAL_WIDE("\uFF5E")),
                                              TalStringViewT<WideChar>(TAL_WIDE("\U0001F600"))}) {
    tree.AddBlob(&m_repository, name, BlobOf("x"));
  }
  EXPECT_EQ(Ascii(tree.GetLocalBlobPaths()), (Names{"\\uD83D\\uDE00", "\\uFF5E"}));
  EXPECT_EQ(Ascii(tree.GetDeepBlobPaths()), (Names{"\\uD83D\\uDE00", "\\uFF5E"}));
}

TEST_F(TreeListings, DiffsWithNullListEverything) {
  const auto tree = Of({{"b", "1"}, {"a", "2"}, {"d/x", "3"}, {"d/e/y", "4"}});
  EXPECT_EQ(Ascii(tree->GetLocalBlobDiffs(nullptr)), (Names{"a", "b"}));
  EXPECT_EQ(Ascii(tree->GetLocalTreeDiffs(nullptr)), Names{"d"});
  EXPECT_EQ(Ascii(tree->GetDeepBlobDiffs(nullptr)), (Names{"a", "b", "d/e/y", "d/x"}));
}

TEST_F(TreeListings, DiffsWithAnEmptyTreeListEverything) {
  const auto tree = Of({{"a", "2"}, {"d/x", "3"}});
  const auto empty = Make<Tree>();
  EXPECT_EQ(Ascii(tree->GetDeepBlobDiffs(empty)), (Names{"a", "d/x"}));
  EXPECT_EQ(Ascii(empty->GetDeepBlobDiffs(tree)), (Names{"a", "d/x"}));
  EXPECT_EQ(Ascii(empty->GetLocalTreeDiffs(tree)), Names{"d"});
}

// The entries of the empty one were fetched ahead by arithmetic on a null pointer.
TEST_F(TreeListings, DiffWithAnEmptySubtreeListsTheOtherSide) {
  const auto tree = Of({{"d/x", "3"}});
  auto hollow = Make<Tree>();
  hollow.write()->AddTree(&m_repository, Wide("d"), Tree());
  EXPECT_EQ(Ascii(tree->GetDeepBlobDiffs(hollow)), Names{"d/x"});
  EXPECT_EQ(Ascii(hollow->GetDeepBlobDiffs(tree)), Names{"d/x"});
}

TEST_F(TreeListings, DiffListsAChangedBlobOnce) {
  const auto left = Of({{"a", "1"}, {"b", "same"}, {"c", "1"}});
  const auto right = Of({{"a", "2"}, {"b", "same"}, {"c", "2"}});
  EXPECT_EQ(Ascii(left->GetLocalBlobDiffs(right)), (Names{"a", "c"}));
  EXPECT_EQ(Ascii(left->GetDeepBlobDiffs(right)), (Names{"a", "c"}));
}

TEST_F(TreeListings, DiffListsABlobThatOnlyTheOtherSideHas) {
  const auto left = Of({{"b", "1"}});
  const auto right = Of({{"b", "1"}, {"a", "2"}, {"d/x", "3"}});
  EXPECT_EQ(Ascii(left->GetLocalBlobDiffs(right)), Names{"a"});
  EXPECT_EQ(Ascii(left->GetLocalTreeDiffs(right)), Names{"d"});
  EXPECT_EQ(Ascii(left->GetDeepBlobDiffs(right)), (Names{"a", "d/x"}));
}

TEST_F(TreeListings, TreeHasNoDiffsWithItselfOrACopy) {
  const auto tree = Of({{"a", "1"}, {"d/x", "2"}, {"d/e/y", "3"}});
  ExpectNoDiffs(*tree, tree);
  ExpectNoDiffs(*tree, Make<Tree>(*tree));
  ExpectNoDiffs(*tree, Of({{"d/e/y", "3"}, {"d/x", "2"}, {"a", "1"}}));
}

TEST_F(TreeListings, DiffReportsBlobReplacedByDirectory) {
  const auto left = Of({{"a", "1"}, {"same", "2"}});
  const auto right = Of({{"a/x", "3"}, {"a/y/z", "4"}, {"same", "2"}});
  for (const auto& [tree, other] : {std::pair(left, right), std::pair(right, left)}) {
    EXPECT_EQ(Ascii(tree->GetLocalBlobDiffs(other)), Names{"a"});
    EXPECT_EQ(Ascii(tree->GetLocalTreeDiffs(other)), Names{"a"});
    EXPECT_EQ(Ascii(tree->GetDeepBlobDiffs(other)), (Names{"a", "a/x", "a/y/z"}));
  }
}

TEST_F(TreeListings, DeepDiffsDescendOnBothSides) {
  const auto left = Of({{"d/a", "1"}, {"d/b", "2"}, {"d/e/c", "3"}, {"f/g", "4"}, {"same/x", "5"}});
  const auto right =
      Of({{"d/a", "1"}, {"d/b", "changed"}, {"d/e/h", "6"}, {"i/j", "7"}, {"same/x", "5"}});
  const Names expected{"d/b", "d/e/c", "d/e/h", "f/g", "i/j"};
  EXPECT_EQ(Ascii(left->GetDeepBlobDiffs(right)), expected);
  EXPECT_EQ(Ascii(right->GetDeepBlobDiffs(left)), expected);
  EXPECT_EQ(Ascii(left->GetLocalTreeDiffs(right)), (Names{"d", "f", "i"}));
}

// A subtree that a blob hides isn't part of the id, but the diffs find it by its name.
TEST_F(TreeListings, TreeWithAHiddenSubtreeDiffersFromItself) {
  const auto tree = Of({{"a/x", "1"}, {"a/y", "2"}, {"a", "3"}});
  EXPECT_EQ(Ascii(tree->GetLocalBlobDiffs(tree)), Names());
  EXPECT_EQ(Ascii(tree->GetLocalTreeDiffs(tree)), Names{"a"});
  EXPECT_EQ(Ascii(tree->GetDeepBlobDiffs(tree)), Names());
}

TEST_F(TreeListings, HiddenSubtreeOnOneSideIsADifferenceOfTrees) {
  const auto plain = Of({{"a", "3"}});
  const auto hiding = Of({{"a/x", "1"}, {"a", "3"}});
  for (const auto& [tree, other] : {std::pair(plain, hiding), std::pair(hiding, plain)}) {
    EXPECT_EQ(Ascii(tree->GetLocalBlobDiffs(other)), Names());
    EXPECT_EQ(Ascii(tree->GetLocalTreeDiffs(other)), Names{"a"});
    EXPECT_EQ(Ascii(tree->GetDeepBlobDiffs(other)), Names{"a/x"});
  }
}

TEST_F(TreeListings, HiddenSubtreeDiffersFromTheSameVisibleOne) {
  const auto open = Of({{"a/x", "1"}});
  const auto hiding = Of({{"a/x", "1"}, {"a", "3"}});
  EXPECT_EQ(Ascii(hiding->GetLocalBlobDiffs(open)), Names{"a"});
  EXPECT_EQ(Ascii(hiding->GetLocalTreeDiffs(open)), Names{"a"});
  EXPECT_EQ(Ascii(open->GetLocalTreeDiffs(hiding)), Names{"a"});
  EXPECT_EQ(Ascii(hiding->GetDeepBlobDiffs(open)), Names{"a"});
}

TEST_F(TreeListings, HiddenSubtreesDeepBelowAreFoundWhereTheTreesDiffer) {
  // In one repository the directory that hides a subtree would replace the plain one of its id.
  RecordingRepository other;
  const auto left = Of({{"d/a/x", "1"}, {"d/a", "3"}, {"d/b", "left"}});
  const auto right = Make<Tree>(TreeOf(&other, {{"d/a", "3"}, {"d/b", "right"}}));
  const auto same_id = Make<Tree>(TreeOf(&other, {{"d/a", "3"}, {"d/b", "left"}}));
  EXPECT_EQ(Ascii(left->GetDeepBlobDiffs(right)), (Names{"d/a/x", "d/b"}));
  EXPECT_EQ(Ascii(right->GetDeepBlobDiffs(left)), (Names{"d/a/x", "d/b"}));
  EXPECT_EQ(IdOf(*left), IdOf(*same_id));
  EXPECT_EQ(Ascii(left->GetDeepBlobDiffs(same_id)), Names());
}

TEST_F(TreeListings, CanonicalDirectoryMayHideASubtree) {
  const auto hiding = Of({{"d/a/x", "1"}, {"d/a", "3"}});
  const auto plain = Of({{"d/a", "3"}});
  EXPECT_TRUE(plain->GetLocalTree(TAL_WIDE("d")) == hiding->GetLocalTree(TAL_WIDE("d")));
  EXPECT_EQ(Ascii(plain->GetDeepBlobPaths()), (Names{"d/a", "d/a/x"}));
}

TEST_F(TreeListings, DiffsOfLargeTreesWithOneEditFindIt) {
  auto tree = Make<Tree>();
  for (int index = 0; index < 300; ++index) {
    tree.write()->AddBlob(&m_repository, Wide("d/file" + std::to_string(index)), BlobOf("x"));
    tree.write()->AddBlob(&m_repository, Wide("file" + std::to_string(index)), BlobOf("x"));
  }
  cow_ptr<Tree> edited = tree;
  edited.write()->AddBlob(&m_repository, TAL_WIDE("d/file77"), BlobOf("y"));
  edited.write()->AddBlob(&m_repository, TAL_WIDE("file1234"), BlobOf("y"));
  edited.write()->RemoveObject(&m_repository, TAL_WIDE("file0"));
  EXPECT_EQ(Ascii(tree->GetDeepBlobDiffs(edited)), (Names{"d/file77", "file0", "file1234"}));
  EXPECT_EQ(Ascii(edited->GetLocalBlobDiffs(tree)), (Names{"file0", "file1234"}));
  EXPECT_EQ(Ascii(edited->GetLocalTreeDiffs(tree)), Names{"d"});
}

}  // namespace
}  // namespace TalVcs::Testing
