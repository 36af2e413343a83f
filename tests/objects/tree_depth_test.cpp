#include <talvcs/objects/tree.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <memory>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

constexpr int kLevels = 10'000;

/// "d/d/ ... /d/f" with a directory for each level.
TalStringT<WideChar> DeepPath(const char* name) {
  std::string path;
  for (int level = 0; level < kLevels; ++level) path += "d/";
  return Wide(path + name);
}

class TreeDepth : public ::testing::Test {
 protected:
  TreeDepth() { m_tree.AddBlob(&m_repository, DeepPath("f"), BlobOf("x")); }

  RecordingRepository m_repository;
  Tree m_tree;
};

TEST_F(TreeDepth, IsBuiltAndHashed) {
  EXPECT_EQ(m_repository.GetTreeCount(), static_cast<std::uint64_t>(kLevels));
  EXPECT_EQ(IdOf(m_tree), "a14095728bf6f88199245f3ce30762fc91a42c279ce50daec65d553539586022");
}

TEST_F(TreeDepth, IsFoundByPath) {
  EXPECT_TRUE(m_tree.GetDeepBlob(DeepPath("f")) != nullptr);
  EXPECT_TRUE(m_tree.GetDeepBlob(DeepPath("g")) == nullptr);
  EXPECT_TRUE(m_tree.GetIdByPath(DeepPath("")).has_value());
}

TEST_F(TreeDepth, IsCountedAndListed) {
  EXPECT_EQ(m_tree.GetDeepBlobCount(), 1U);
  const auto paths = m_tree.GetDeepBlobPaths();
  ASSERT_EQ(paths.size(), 1U);
  EXPECT_TRUE(paths[0] == DeepPath("f"));
}

TEST_F(TreeDepth, IsCompared) {
  const auto other = Make<Tree>(m_tree);
  m_tree.AddBlob(&m_repository, DeepPath("g"), BlobOf("y"));
  const auto diffs = m_tree.GetDeepBlobDiffs(other);
  ASSERT_EQ(diffs.size(), 1U);
  EXPECT_TRUE(diffs[0] == DeepPath("g"));
  EXPECT_EQ(m_tree.GetDeepBlobDiffs(nullptr).size(), 2U);
}

TEST_F(TreeDepth, IsRemovedToTheTop) {
  EXPECT_TRUE(m_tree.RemoveObject(&m_repository, DeepPath("f")));
  EXPECT_TRUE(m_tree.IsEmpty());
}

TEST(TreeDepthWithoutStorage, IsDestroyedByItsLastHolder) {
  // Nothing but the tree holds the levels here.
  RecordingRepository repository(RecordingRepository::Mode::PassThrough);
  auto tree = std::make_unique<Tree>();
  const cow_ptr<Blob> blob = tree->AddBlob(&repository, DeepPath("f"), BlobOf("x"));
  EXPECT_EQ(blob.use_count(), 2);
  tree.reset();
  EXPECT_EQ(blob.use_count(), 1);
}

TEST(TreeDepthWithoutStorage, IsDestroyedByAnEdit) {
  RecordingRepository repository(RecordingRepository::Mode::PassThrough);
  Tree tree;
  const cow_ptr<Blob> blob = tree.AddBlob(&repository, DeepPath("f"), BlobOf("x"));
  EXPECT_TRUE(tree.RemoveObject(&repository, TAL_WIDE("d")));
  EXPECT_EQ(blob.use_count(), 1);
  tree.AddBlob(&repository, DeepPath("f"), *blob);
  tree = Tree();
  EXPECT_EQ(blob.use_count(), 1);
}

TEST(TreeDepthWithoutStorage, IsNestedFromBelowWithoutLimit) {
  RecordingRepository repository(RecordingRepository::Mode::PassThrough);
  Tree tree = TreeOf(&repository, {{"f", "x"}});
  const cow_ptr<Blob> blob = tree.GetLocalBlob(TAL_WIDE("f"));
  for (int level = 0; level < 10 * kLevels; ++level) {
    Tree above;
    above.AddTree(&repository, TAL_WIDE("d"), tree);
    tree = std::move(above);
  }
  EXPECT_EQ(tree.GetDeepBlobCount(), 1U);
  EXPECT_EQ(IdOf(tree), "6f851c745e6d1d7e843d32bf7ee517f9d017e0eefec81c79487c1114e8909720");
  tree = Tree();
  EXPECT_EQ(blob.use_count(), 1);
}

TEST(TreeDepthWithoutStorage, SharedSubtreesAreCountedWithoutWalkingEachPath) {
  RecordingRepository repository;
  Tree tree = TreeOf(&repository, {{"f", "x"}});
  for (int level = 0; level < 60; ++level) {
    Tree above;
    above.AddTree(&repository, TAL_WIDE("a"), tree);
    above.AddTree(&repository, TAL_WIDE("b"), tree);
    tree = std::move(above);
  }
  EXPECT_EQ(tree.GetDeepBlobCount(), std::uint64_t{1} << 60);
  EXPECT_TRUE(tree.GetDeepBlobDiffs(Make<Tree>(tree)).empty());
}

}  // namespace
}  // namespace TalVcs::Testing
