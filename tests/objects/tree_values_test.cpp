#include <talvcs/objects/tree.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

constexpr char kEmptyTreeId[] = "6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321";
constexpr char kAId[] = "49743a2ae9aebeb4f073ccd3064e27dd6a0cf238e764238467b7c4eda3a8a5a6";
constexpr char kAbId[] = "b00c931357a2d58c97b52aee66701b53f8dab805ebfe6965d259bfef71f94318";

class TreeValues : public ::testing::Test {
 protected:
  Tree OfA() { return TreeOf(&m_repository, {{"a", "x"}}); }

  RecordingRepository m_repository;
};

TEST_F(TreeValues, CopyHasTheIdAndSharesTheChildren) {
  const Tree tree = TreeOf(&m_repository, {{"a", "x"}, {"d/b", "y"}});
  const Tree copy(tree);
  EXPECT_EQ(IdOf(copy), IdOf(tree));
  EXPECT_TRUE(copy.GetLocalBlob(TAL_WIDE("a")) == tree.GetLocalBlob(TAL_WIDE("a")));
  EXPECT_TRUE(copy.GetLocalTree(TAL_WIDE("d")) == tree.GetLocalTree(TAL_WIDE("d")));
}

TEST_F(TreeValues, CopyHasTheCachedId) {
  const Tree tree = OfA();
  tree.GetId();
  const Tree copy(tree);
  EXPECT_EQ(copy.GetId().View().text, tree.GetId().View().text);
}

TEST_F(TreeValues, EditOfACopyDoesNotChangeTheSource) {
  const Tree tree = OfA();
  Tree copy(tree);
  copy.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("y"));
  EXPECT_EQ(IdOf(copy), kAbId);
  EXPECT_EQ(IdOf(tree), kAId);
  EXPECT_EQ(tree.GetLocalObjectCount(), 1U);
}

TEST_F(TreeValues, EditOfTheSourceDoesNotChangeACopy) {
  Tree tree = OfA();
  const Tree copy(tree);
  tree.RemoveObject(&m_repository, TAL_WIDE("a"));
  EXPECT_EQ(IdOf(copy), kAId);
  EXPECT_EQ(IdOf(tree), kEmptyTreeId);
}

TEST_F(TreeValues, AssignmentReplacesEntriesAndCaches) {
  Tree target = TreeOf(&m_repository, {{"old", "1"}, {"older", "2"}});
  target.GetPackedData();
  target.GetId();
  const Tree source = OfA();
  target = source;
  EXPECT_EQ(IdOf(target), kAId);
  EXPECT_EQ(target.GetLocalObjectCount(), 1U);
  EXPECT_EQ(Bytes(target.GetData()), Bytes(source.GetData()));
}

TEST_F(TreeValues, SelfAssignmentKeepsTheEntries) {
  Tree tree = OfA();
  Tree& self = tree;
  tree = self;
  EXPECT_EQ(tree.GetLocalObjectCount(), 1U);
  tree = std::move(self);
  EXPECT_EQ(tree.GetLocalObjectCount(), 1U);
  EXPECT_EQ(IdOf(tree), kAId);
}

TEST_F(TreeValues, MovedFromHasNoEntriesButKeepsIdAndPackedForm) {
  Tree source = OfA();
  source.GetId();
  const std::string packed = Bytes(source.BuildPackedData());
  const Tree target(std::move(source));
  EXPECT_TRUE(source.IsEmpty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(source.GetLocalObjectCount(), 0U);
  EXPECT_EQ(IdOf(source), kAId);
  EXPECT_EQ(Bytes(source.GetPackedData()), packed);
  EXPECT_EQ(source.GetData().GetSize(), 0U);
  EXPECT_EQ(IdOf(target), kAId);
  EXPECT_EQ(target.GetLocalObjectCount(), 1U);
}

TEST_F(TreeValues, MovedFromTreeWithACachedPackedFormHashesThat) {
  Tree source = OfA();
  source.GetPackedData();
  const Tree target(std::move(source));
  EXPECT_EQ(IdOf(source), kAId);  // NOLINT(bugprone-use-after-move)
}

TEST_F(TreeValues, MovedFromTreeWithoutCachesIsEmpty) {
  Tree source = OfA();
  const Tree target(std::move(source));
  EXPECT_EQ(IdOf(source), kEmptyTreeId);  // NOLINT(bugprone-use-after-move)
}

TEST_F(TreeValues, MoveAssignmentLeavesTheSourceEmptyToo) {
  Tree source = OfA();
  source.GetId();
  Tree target = TreeOf(&m_repository, {{"old", "1"}});
  target.GetId();
  target = std::move(source);
  EXPECT_TRUE(source.IsEmpty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(IdOf(source), kAId);
  EXPECT_EQ(IdOf(target), kAId);
  EXPECT_TRUE(target.GetLocalBlob(TAL_WIDE("old")) == nullptr);
}

TEST_F(TreeValues, MovedFromTreeCanBeEdited) {
  Tree source = OfA();
  source.GetId();
  const Tree target(std::move(source));
  source.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x"));  // NOLINT(bugprone-use-after-move)
  source.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("y"));
  EXPECT_EQ(IdOf(source), kAbId);
  EXPECT_EQ(IdOf(target), kAId);
}

TEST_F(TreeValues, EntriesOutliveTheRepository) {
  Tree tree;
  {
    RecordingRepository repository;
    tree.AddBlob(&repository, TAL_WIDE("d/a"), BlobOf("x"));
  }
  EXPECT_EQ(Bytes(tree.GetDeepBlob(TAL_WIDE("d/a"))->GetData()), "x");
}

// A repository that loses what it is given leaves null entries.
TEST(TreeNullEntries, AreCountedButNotWrittenOrListed) {
  RecordingRepository repository(RecordingRepository::Mode::Lose);
  Tree tree;
  EXPECT_TRUE(tree.AddBlob(&repository, TAL_WIDE("a"), BlobOf("x")) == nullptr);
  EXPECT_TRUE(tree.AddTree(&repository, TAL_WIDE("t"), Tree()) == nullptr);
  EXPECT_EQ(tree.GetLocalObjectCount(), 2U);
  EXPECT_EQ(tree.GetLocalBlobCount(), 1U);
  EXPECT_EQ(tree.GetDeepBlobCount(), 1U);
  EXPECT_FALSE(tree.IsEmpty());
  EXPECT_EQ(IdOf(tree), kEmptyTreeId);
  EXPECT_TRUE(tree.GetLocalObjectPaths().empty());
  EXPECT_TRUE(tree.GetDeepBlobPaths().empty());
  EXPECT_TRUE(tree.GetLocalBlobDiffs(nullptr).empty());
  EXPECT_TRUE(tree.GetLocalTreeDiffs(nullptr).empty());
}

TEST(TreeNullEntries, NullBlobHidesASubtree) {
  RecordingRepository storing;
  RecordingRepository losing(RecordingRepository::Mode::Lose);
  Tree tree;
  tree.AddBlob(&storing, TAL_WIDE("a/b"), BlobOf("x"));
  tree.AddBlob(&losing, TAL_WIDE("a"), BlobOf("lost"));
  EXPECT_EQ(tree.GetLocalObjectCount(), 2U);
  EXPECT_EQ(tree.GetData().GetSize(), 0U);
  EXPECT_TRUE(tree.GetLocalObject(TAL_WIDE("a")) == tree.GetLocalTree(TAL_WIDE("a")));
  EXPECT_EQ(Ascii(tree.GetLocalObjectPaths()), std::vector<std::string>{"a"});
}

TEST(TreeNullEntries, CanBeRemovedAndReplaced) {
  RecordingRepository storing;
  RecordingRepository losing(RecordingRepository::Mode::Lose);
  Tree tree;
  tree.AddBlob(&losing, TAL_WIDE("a"), BlobOf("lost"));
  tree.AddBlob(&losing, TAL_WIDE("b"), BlobOf("lost"));
  EXPECT_TRUE(tree.RemoveObject(&storing, TAL_WIDE("b")));
  tree.AddBlob(&storing, TAL_WIDE("a"), BlobOf("x"));
  EXPECT_EQ(tree.GetLocalObjectCount(), 1U);
  EXPECT_EQ(IdOf(tree), kAId);
}

// The child is held by the tree alone, which lets go of it while it takes its entries over.
TEST_F(TreeValues, AssignmentFromItsOwnChildCopiesTheEntries) {
  RecordingRepository passing(RecordingRepository::Mode::PassThrough);
  Tree tree = TreeOf(&passing, {{"d/a", "x"}, {"f", "y"}});
  const Tree* const child = tree.GetLocalTree(TAL_WIDE("d")).get();
  child->GetData();
  tree = *child;
  EXPECT_EQ(IdOf(tree), kAId);
  EXPECT_EQ(Bytes(tree.GetData()).substr(0, 14), std::string("100644 blob a\0", 14));
}

}  // namespace
}  // namespace TalVcs::Testing
