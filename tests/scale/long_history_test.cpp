// Histories of a size at which recursion would leave the default stack, and at which a step that
// looks at everything for each commit or each branch would never end.

#include <talvcs/persistence/deserializer.h>
#include <talvcs/persistence/serializer.h>
#include <talvcs/repository/repository.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/scale.h>

#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

constexpr std::size_t kLong = Scaled(1000000);
constexpr std::size_t kBranches = 1000;

std::size_t LengthOf(cow_ptr<Commit> commit) {
  std::size_t length = 0;
  for (; commit; commit = commit->GetParent()) ++length;
  return length;
}

TalStringT<WideChar> BranchName(std::size_t i) { return Wide("branch" + std::to_string(i)); }

TEST(LongHistory, CanBeBuiltSavedLoadedAndDestroyed) {
  MemoryBlobIo store;
  store.records = false;
  std::string head;
  {
    Repository repository = NewRepository();
    repository.MoveBranchTo(TAL_WIDE("master"), GrowChain(repository, nullptr, kLong));
    head = IdOf(repository.GetHead());
    ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  }
  Repository loaded = NewRepository();
  EXPECT_TRUE(Deserializer(&store, TAL_WIDE("doc")).Deserialize(&loaded));
  EXPECT_EQ(IdOf(loaded.GetHead()), head);
  EXPECT_EQ(loaded.GetCommitCount(), kLong);
  EXPECT_EQ(loaded.GetTreeCount(), 2u);
}

TEST(LongHistory, EndsWithItsLastHandle) {
  Repository nowhere(nullptr);
  cow_ptr<Commit> tip = GrowChain(nowhere, nullptr, kLong);
  EXPECT_EQ(LengthOf(tip), kLong);
  const cow_ptr<Commit> root = nowhere.GetCommonBase(tip, tip);
  tip = nullptr;
  EXPECT_EQ(root.use_count(), 1);
}

TEST(LongHistory, IsPurged) {
  Repository repository = NewRepository();
  repository.MoveBranchTo(TAL_WIDE("master"), GrowChain(repository, nullptr, kLong));
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount(), kLong);
  repository.RemoveBranch(TAL_WIDE("master"));
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount() + repository.GetTreeCount() + repository.GetBlobCount(),
            0u);
}

TEST(LongHistory, CommonBaseIsFoundAtItsFarEnd) {
  Repository nowhere(nullptr);
  const cow_ptr<Commit> root = MakeCommit(nowhere, "root");
  const cow_ptr<Commit> near = MakeCommit(nowhere, "near", root);
  const cow_ptr<Commit> far = GrowChain(nowhere, root, kLong / 4);
  EXPECT_EQ(nowhere.GetCommonBase(near, far), root);
  EXPECT_EQ(nowhere.GetCommonBase(far, near), root);
}

TEST(LongHistory, CanBeRebasedOntoARoot) {
  Repository repository = NewRepository();
  repository.CreateBranch(TAL_WIDE("long"), GrowChain(repository, nullptr, kLong / 4));
  EXPECT_TRUE(
      repository.EnsureCommonRootFor(TAL_WIDE("long"), TAL_WIDE("other"), TAL_WIDE("root")));
  EXPECT_EQ(LengthOf(repository.GetHead(TAL_WIDE("long"))), kLong / 4 + 1);
}

TEST(LongHistory, WithAThousandBranchesIsDeleted) {
  Repository repository = NewRepository();
  cow_ptr<Commit> tip;
  for (std::size_t i = 0; i < kBranches; ++i) {
    tip = GrowChain(repository, std::move(tip), kLong / kBranches, i * (kLong / kBranches));
    repository.CreateBranch(BranchName(i), tip);
  }
  ASSERT_EQ(repository.GetCommitCount(), kLong);
  EXPECT_TRUE(repository.DeleteCommits(std::move(tip)));
  EXPECT_EQ(repository.GetCommitCount(), kBranches);
  EXPECT_EQ(LengthOf(repository.GetHead(BranchName(kBranches - 1))), kBranches);
  EXPECT_EQ(LengthOf(repository.GetHead(BranchName(0))), 1u);
}

TEST(LongHistory, WithABranchOnEveryCommitIsDeletedWithoutRecursion) {
  constexpr std::size_t kKept = Scaled(200000);
  Repository repository = NewRepository();
  cow_ptr<Commit> tip;
  for (std::size_t i = 0; i < kKept; ++i) {
    tip = GrowChain(repository, std::move(tip), 1, i);
    repository.CreateBranch(BranchName(i), tip);
  }
  EXPECT_TRUE(repository.DeleteCommits(std::move(tip)));
  EXPECT_EQ(repository.GetCommitCount(), kKept);
}

TEST(LongHistory, WithAThousandBranchesIsSimplified) {
  constexpr std::size_t kTrunk = Scaled(100000);
  Repository repository = NewRepository();
  cow_ptr<Commit> trunk;
  for (std::size_t i = 0; i < kBranches; ++i) {
    // Every other branch stands on the trunk itself.
    trunk = GrowChain(repository, std::move(trunk), kTrunk / kBranches, i * 1000);
    const bool forks = i % 2 == 0;
    repository.CreateBranch(BranchName(i),
                            forks ? GrowChain(repository, trunk, 2, 500000000 + i * 2) : trunk);
  }
  trunk = nullptr;
  EXPECT_TRUE(repository.SimplifyCommitGraph(true));
  // All heads and the forks, of which each has a branch above it.
  EXPECT_EQ(repository.GetCommitCount(), kBranches + kBranches / 2);
  EXPECT_EQ(LengthOf(repository.GetHead(BranchName(kBranches - 1))), kBranches);
  const std::string once = IdOf(repository.GetHead(BranchName(kBranches - 1)));
  EXPECT_TRUE(repository.SimplifyCommitGraph(true));
  EXPECT_EQ(IdOf(repository.GetHead(BranchName(kBranches - 1))), once);
}

TEST(LongHistory, WithABranchOnEveryCommitIsSimplifiedWithoutRecursion) {
  constexpr std::size_t kKept = Scaled(100000);
  Repository repository = NewRepository();
  cow_ptr<Commit> tip;
  for (std::size_t i = 0; i < kKept; ++i) {
    tip = GrowChain(repository, std::move(tip), 1, i);
    repository.CreateBranch(BranchName(i), tip);
  }
  const std::string head = IdOf(std::exchange(tip, nullptr));
  EXPECT_TRUE(repository.SimplifyCommitGraph(true));
  EXPECT_EQ(repository.GetCommitCount(), kKept);
  EXPECT_EQ(IdOf(repository.GetHead(BranchName(kKept - 1))), head);
}

TEST(ManyBranches, OfOneCommitMoveTogether) {
  constexpr std::size_t kMany = Scaled(100000);
  Repository repository = NewRepository();
  const cow_ptr<Commit> tip = GrowChain(repository, nullptr, 3);
  for (std::size_t i = 0; i < kMany; ++i) repository.CreateBranch(BranchName(i), tip);
  EXPECT_TRUE(repository.SimplifyCommitGraph(false));
  EXPECT_EQ(ChainOf(repository, "branch0"), "2");
  EXPECT_EQ(repository.GetHead(BranchName(kMany - 1)), repository.GetHead(BranchName(0)));
}

TEST(ManyObjects, ArePurgedWithoutRecursion) {
  Repository repository = NewRepository();
  for (std::size_t i = 0; i < kLong / 4; ++i) {
    repository.SyncWithStorage(SharedBlob(std::to_string(i)));
  }
  Tree tree;
  for (std::size_t i = 0; i < kLong / 100; ++i) {
    tree.AddBlob(&repository, Wide("dir" + std::to_string(i) + "/file"), BlobOf(std::to_string(i)));
  }
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetBlobCount(), kLong / 100);
  EXPECT_EQ(repository.GetTreeCount(), kLong / 100);
  tree = Tree();
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetBlobCount() + repository.GetTreeCount(), 0u);
}

}  // namespace
}  // namespace TalVcs::Testing
