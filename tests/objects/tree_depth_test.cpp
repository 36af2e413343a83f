#include <talvcs/objects/tree.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <algorithm>
#include <string>
#include <vector>

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
  RecordingRepository repository(RecordingRepository::Mode::kPassThrough);
  auto tree = std::make_unique<Tree>();
  const cow_ptr<Blob> blob = tree->AddBlob(&repository, DeepPath("f"), BlobOf("x"));
  EXPECT_EQ(blob.use_count(), 2);
  tree.reset();
  EXPECT_EQ(blob.use_count(), 1);
}

TEST(TreeDepthWithoutStorage, IsDestroyedByAnEdit) {
  RecordingRepository repository(RecordingRepository::Mode::kPassThrough);
  Tree tree;
  const cow_ptr<Blob> blob = tree.AddBlob(&repository, DeepPath("f"), BlobOf("x"));
  EXPECT_TRUE(tree.RemoveObject(&repository, TAL_WIDE("d")));
  EXPECT_EQ(blob.use_count(), 1);
  tree.AddBlob(&repository, DeepPath("f"), *blob);
  tree = Tree();
  EXPECT_EQ(blob.use_count(), 1);
}

}  // namespace
}  // namespace TalVcs::Testing
