#include <talvcs/objects/commit_tree.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Names = std::vector<std::string>;

constexpr char kEmptyTreeId[] = "6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321";
constexpr char kAId[] = "49743a2ae9aebeb4f073ccd3064e27dd6a0cf238e764238467b7c4eda3a8a5a6";

class CommitTreeTest : public ::testing::Test {
 protected:
  cow_ptr<Tree> TreeWith(const std::vector<std::pair<std::string, std::string>>& files) {
    return Make<Tree>(TreeOf(&m_repository, files));
  }

  RecordingRepository m_repository;
};

TEST_F(CommitTreeTest, WithoutRootIsEmpty) {
  CommitTree handle;
  EXPECT_TRUE(handle.IsEmpty());
  EXPECT_TRUE(handle.GetRoot() == nullptr);
  EXPECT_TRUE(handle.GetRootId() == Id());
  EXPECT_EQ(handle.GetBlobCount(), 0U);
  EXPECT_TRUE(handle.GetAllBlobPaths().empty());
  EXPECT_FALSE(handle.GetIdByPath(TAL_WIDE("a")).has_value());
  EXPECT_FALSE(handle.GetIdByPath(TAL_WIDE("")).has_value());
  EXPECT_TRUE(handle.GetBlob(TAL_WIDE("a")) == nullptr);
  EXPECT_TRUE(handle.GetTree(TAL_WIDE("a")) == nullptr);
}

TEST_F(CommitTreeTest, RemovalWithoutRootReturnsFalse) {
  CommitTree handle;
  EXPECT_FALSE(handle.RemoveObject(&m_repository, TAL_WIDE("a")));
  EXPECT_FALSE(handle.RemoveObject(nullptr, TAL_WIDE("a")));
  EXPECT_TRUE(handle.GetRoot() == nullptr);
}

TEST_F(CommitTreeTest, WithAnEmptyRootIsEmptyAndHasItsId) {
  const CommitTree handle(Make<Tree>());
  EXPECT_TRUE(handle.IsEmpty());
  EXPECT_EQ(Ascii(handle.GetRootId()), kEmptyTreeId);
}

TEST_F(CommitTreeTest, OfNullTreeHasNoRoot) {
  const CommitTree handle{cow_ptr<Tree>()};
  EXPECT_TRUE(handle.GetRoot() == nullptr);
  EXPECT_TRUE(handle.IsEmpty());
}

TEST_F(CommitTreeTest, PassesCallsToTheRoot) {
  const auto root = TreeWith({{"a", "x"}, {"d/b", "y"}});
  const CommitTree handle(root);
  EXPECT_FALSE(handle.IsEmpty());
  EXPECT_TRUE(handle.GetRoot() == root);
  EXPECT_EQ(Ascii(handle.GetRootId()), IdOf(*root));
  EXPECT_EQ(handle.GetBlobCount(), 2U);
  EXPECT_EQ(Ascii(handle.GetAllBlobPaths()), (Names{"a", "d/b"}));
  EXPECT_EQ(Ascii(*handle.GetIdByPath(TAL_WIDE("a"))),
            "4b6cea43da6e13c24f191bcb97b51a58781d1ccdd8281d96291a2582f5177b78");
  EXPECT_TRUE(handle.GetBlob(TAL_WIDE("d/b")) == root->GetDeepBlob(TAL_WIDE("d/b")));
  EXPECT_TRUE(handle.GetTree(TAL_WIDE("d")) == root->GetLocalTree(TAL_WIDE("d")));
}

TEST_F(CommitTreeTest, IsNotEmptyWithOnlyASubtree) {
  CommitTree handle;
  handle.AddTree(&m_repository, TAL_WIDE("d"), Tree());
  EXPECT_FALSE(handle.IsEmpty());
  EXPECT_EQ(handle.GetBlobCount(), 0U);
}

TEST_F(CommitTreeTest, AddsMakeAMissingRoot) {
  CommitTree of_blob;
  EXPECT_TRUE(of_blob.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x")) != nullptr);
  EXPECT_EQ(Ascii(of_blob.GetRootId()), kAId);
  CommitTree of_tree;
  EXPECT_TRUE(of_tree.AddTree(&m_repository, TAL_WIDE("d"), *of_blob.GetRoot()) != nullptr);
  EXPECT_EQ(Ascii(of_tree.GetRootId()),
            "570a67fc19fe5e2b5bcea621766e14f2097795bc360133e2db2ea0518ef38529");
  CommitTree of_object;
  const Id id = BlobOf("x").GetId();
  EXPECT_TRUE(of_object.AddObject(&m_repository, TAL_WIDE("a"), id) != nullptr);
  EXPECT_EQ(Ascii(of_object.GetRootId()), kAId);
}

TEST_F(CommitTreeTest, AddsDoNotStoreTheRoot) {
  CommitTree handle;
  handle.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x"));
  EXPECT_EQ(m_repository.GetTreeCount(), 0U);
}

TEST_F(CommitTreeTest, FailedAddsLeaveAnEmptyRoot) {
  CommitTree of_blob;
  EXPECT_TRUE(of_blob.AddBlob(&m_repository, TAL_WIDE(""), BlobOf("x")) == nullptr);
  EXPECT_EQ(Ascii(of_blob.GetRootId()), kEmptyTreeId);
  CommitTree of_tree;
  EXPECT_TRUE(of_tree.AddTree(nullptr, TAL_WIDE("d"), Tree()) == nullptr);
  EXPECT_EQ(Ascii(of_tree.GetRootId()), kEmptyTreeId);
  CommitTree of_object;
  EXPECT_TRUE(of_object.AddObject(&m_repository, TAL_WIDE("a"), Id()) == nullptr);
  EXPECT_EQ(Ascii(of_object.GetRootId()), kEmptyTreeId);
}

TEST_F(CommitTreeTest, FailedEditsCopyASharedRoot) {
  const auto root = TreeWith({{"a", "x"}});
  CommitTree adding(root);
  EXPECT_TRUE(adding.AddBlob(nullptr, TAL_WIDE("b"), BlobOf("y")) == nullptr);
  EXPECT_FALSE(adding.GetRoot() == root);
  CommitTree removing(root);
  EXPECT_FALSE(removing.RemoveObject(&m_repository, TAL_WIDE("b")));
  EXPECT_FALSE(removing.GetRoot() == root);
  EXPECT_EQ(root.use_count(), 1);
  EXPECT_EQ(Ascii(removing.GetRootId()), kAId);
}

TEST_F(CommitTreeTest, RemovalWorksOnTheRoot) {
  CommitTree handle(TreeWith({{"a", "x"}, {"b", "y"}}));
  EXPECT_TRUE(handle.RemoveObject(&m_repository, TAL_WIDE("b")));
  EXPECT_EQ(Ascii(handle.GetRootId()), kAId);
}

TEST_F(CommitTreeTest, CopySharesTheRootUntilAnEdit) {
  const CommitTree handle(TreeWith({{"a", "x"}}));
  CommitTree copy(handle);
  EXPECT_TRUE(copy.GetRoot() == handle.GetRoot());
  copy.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("y"));
  EXPECT_EQ(Ascii(handle.GetRootId()), kAId);
  EXPECT_TRUE(handle.GetBlob(TAL_WIDE("b")) == nullptr);
  EXPECT_EQ(Ascii(copy.GetRootId()),
            "b00c931357a2d58c97b52aee66701b53f8dab805ebfe6965d259bfef71f94318");
}

TEST_F(CommitTreeTest, MoveEmptiesTheSource) {
  CommitTree source(TreeWith({{"a", "x"}}));
  CommitTree target(std::move(source));
  EXPECT_TRUE(source.GetRoot() == nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(Ascii(target.GetRootId()), kAId);
  source = std::move(target);
  EXPECT_TRUE(target.GetRoot() == nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(Ascii(source.GetRootId()), kAId);
}

TEST_F(CommitTreeTest, ReplaceRootUsesTheCanonicalInstance) {
  const auto stored = m_repository.SyncWithStorage(TreeWith({{"a", "x"}}));
  const auto argument = Make<Tree>(*stored);
  CommitTree handle;
  handle.ReplaceRoot(&m_repository, argument);
  EXPECT_TRUE(handle.GetRoot() == stored);
  EXPECT_FALSE(handle.GetRoot() == argument);
}

TEST_F(CommitTreeTest, ReplaceRootUsesTheArgumentIfItIsNotStored) {
  const auto argument = TreeWith({{"a", "x"}});
  CommitTree handle(Make<Tree>());
  handle.ReplaceRoot(&m_repository, argument);
  EXPECT_TRUE(handle.GetRoot() == argument);
  EXPECT_EQ(m_repository.GetTreeCount(), 0U);
}

TEST_F(CommitTreeTest, ReplaceRootWithoutRepositorySkipsTheLookUp) {
  const auto stored = m_repository.SyncWithStorage(TreeWith({{"a", "x"}}));
  const auto argument = Make<Tree>(*stored);
  CommitTree handle;
  handle.ReplaceRoot(nullptr, argument);
  EXPECT_TRUE(handle.GetRoot() == argument);
}

TEST_F(CommitTreeTest, ReplaceRootByNullRemovesTheRoot) {
  CommitTree handle(TreeWith({{"a", "x"}}));
  handle.ReplaceRoot(&m_repository, nullptr);
  EXPECT_TRUE(handle.GetRoot() == nullptr);
  EXPECT_TRUE(handle.GetRootId() == Id());
}

TEST_F(CommitTreeTest, DiffsOfEqualRootsAreEmpty) {
  const auto handle = Make<CommitTree>(TreeWith({{"a", "x"}, {"d/b", "y"}}));
  const auto other = Make<CommitTree>(TreeWith({{"d/b", "y"}, {"a", "x"}}));
  EXPECT_TRUE(handle->GetBlobDiffs(other).empty());
  EXPECT_TRUE(handle->GetBlobDiffs(handle).empty());
}

TEST_F(CommitTreeTest, DiffsListPathsOfBothSides) {
  const auto left = Make<CommitTree>(TreeWith({{"a", "x"}, {"d/b", "y"}}));
  const auto right = Make<CommitTree>(TreeWith({{"a", "z"}, {"c", "y"}}));
  EXPECT_EQ(Ascii(left->GetBlobDiffs(right)), (Names{"a", "c", "d/b"}));
  EXPECT_EQ(Ascii(right->GetBlobDiffs(left)), (Names{"a", "c", "d/b"}));
}

TEST_F(CommitTreeTest, DiffsWithNullListAllPaths) {
  const auto handle = Make<CommitTree>(TreeWith({{"a", "x"}, {"d/b", "y"}}));
  const auto rootless = Make<CommitTree>();
  EXPECT_EQ(Ascii(handle->GetBlobDiffs(nullptr)), (Names{"a", "d/b"}));
  EXPECT_EQ(Ascii(handle->GetBlobDiffs(rootless)), (Names{"a", "d/b"}));
  EXPECT_EQ(Ascii(rootless->GetBlobDiffs(handle)), (Names{"a", "d/b"}));
}

TEST_F(CommitTreeTest, DiffsWithoutRootsAreEmpty) {
  const CommitTree rootless;
  EXPECT_TRUE(rootless.GetBlobDiffs(nullptr).empty());
  EXPECT_TRUE(rootless.GetBlobDiffs(Make<CommitTree>()).empty());
  EXPECT_TRUE(rootless.GetBlobDiffs(Make<CommitTree>(Make<Tree>())).empty());
}

}  // namespace
}  // namespace TalVcs::Testing
