// Purges go by counts of handles, so a test that expects something to go drops its own handles
// first, and one that expects something to stay says who holds it.

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <memory>

namespace TalVcs::Testing {
namespace {

// Commits, trees and blobs, in one text that reads well in a failure.
std::string CountsOf(const Repository& repository) {
  return std::to_string(repository.GetCommitCount()) + " commits, " +
         std::to_string(repository.GetTreeCount()) + " trees, " +
         std::to_string(repository.GetBlobCount()) + " blobs";
}

// Draws a history, places its branches and keeps no handle.
void Draw(Repository& repository, const char* drawing, const char* branches) {
  PlaceBranches(repository, DrawHistory(repository, drawing), branches);
}

TEST(Purge, ChangesNothingInANewStorage) {
  Repository repository = NewRepository();
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
  EXPECT_TRUE(repository.BranchExist(TAL_WIDE("master")));
}

TEST(Purge, KeepsTheHistoryOfABranch) {
  Repository repository = NewRepository();
  Draw(repository, "A-B-C", "master=C");
  EXPECT_EQ(CountsOf(repository), "3 commits, 4 trees, 4 blobs");
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "3 commits, 4 trees, 4 blobs");
  EXPECT_EQ(ChainOf(repository, "master"), "A-B-C");
}

TEST(Purge, RemovesCommitsTreesAndBlobsOfARemovedBranch) {
  Repository repository = NewRepository();
  Draw(repository, "A-B-C", "master=C");
  ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  EXPECT_EQ(CountsOf(repository), "3 commits, 4 trees, 4 blobs");
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
}

TEST(Purge, KeepsObjectsThatAnotherBranchShares) {
  Repository repository = NewRepository();
  Draw(repository, "A-B-C; X", "master=C topic=X");
  ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "1 commits, 2 trees, 2 blobs");
  EXPECT_EQ(ListingOf(repository.GetHead(TAL_WIDE("topic"))), "lib/common=common name=X");
}

TEST(Purge, RemovalAlongAHistoryStopsAtAFork) {
  Repository repository = NewRepository();
  Draw(repository, "A-B-C-D; B-E", "master=D topic=E");
  ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount(), 3u);
  EXPECT_EQ(ChainOf(repository, "topic"), "A-B-E");
}

TEST(Purge, RemovalAlongAHistoryStopsAtABranch) {
  Repository repository = NewRepository();
  Draw(repository, "A-B-C-D", "master=D topic=B");
  ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST(Purge, KeepsAncestorsAndTreeOfAHeldCommit) {
  Repository repository = NewRepository();
  History history = DrawHistory(repository, "A-B-C");
  const cow_ptr<Commit> held = history.at("B");
  history.clear();
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "2 commits, 3 trees, 3 blobs");
  EXPECT_EQ(ChainOf(held), "A-B");
}

TEST(Purge, RemovesCommitAfterItsLastHandleIsReleased) {
  Repository repository = NewRepository();
  cow_ptr<Commit> held = DrawHistory(repository, "A-B").at("B");
  repository.UpdateStorage();
  ASSERT_EQ(repository.GetCommitCount(), 2u);
  held = nullptr;
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
}

TEST(Purge, RemovesAmendedHeadAndKeepsItsParent) {
  Repository repository = NewRepository();
  Draw(repository, "A-B", "master=B");
  Commit amend(&repository, true);
  amend.SetDescription(TAL_WIDE("B2"));
  ASSERT_TRUE(repository.DoCommit(amend));
  ASSERT_EQ(repository.GetCommitCount(), 3u);
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount(), 2u);
  EXPECT_EQ(ChainOf(repository, "master"), "A-B2");
}

TEST(Purge, KeepsAmendedHeadWhileAHandleHoldsIt) {
  Repository repository = NewRepository();
  Draw(repository, "A-B", "master=B");
  cow_ptr<Commit> oldHead = repository.GetHead();
  {
    Commit amend(&repository, true);
    amend.SetDescription(TAL_WIDE("B2"));
    amend.AddBlob(&repository, TAL_WIDE("name"), BlobOf("B2"));
    ASSERT_TRUE(repository.DoCommit(amend));
  }
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "3 commits, 4 trees, 4 blobs");
  EXPECT_TRUE(repository.GetBlobFromStorage(BlobOf("B").GetId()));
  oldHead = nullptr;
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "2 commits, 3 trees, 3 blobs");
  EXPECT_FALSE(repository.GetBlobFromStorage(BlobOf("B").GetId()));
}

TEST(Purge, KeepsBlobOfUnstoredCommitWhileTheCommitExists) {
  Repository repository = NewRepository();
  auto making = std::make_unique<Commit>(&repository, false);
  making->AddBlob(&repository, TAL_WIDE("dir/file"), BlobOf("bytes"));
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 2 trees, 1 blobs");
  making.reset();
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
}

TEST(Purge, KeepsParentOfUnstoredCommit) {
  Repository repository = NewRepository();
  Draw(repository, "A-B", "master=B");
  const Commit making(&repository, false);
  ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST(Purge, KeepsDetachedCommitWhileAHandleHoldsIt) {
  Repository repository = NewRepository();
  ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  Commit commit(&repository, false);
  cow_ptr<Commit> stored = repository.DoCommit(commit);
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  stored = nullptr;
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetCommitCount(), 0u);
}

TEST(Purge, RemovesIntermediateTreesOfAnEdit) {
  Repository repository = NewRepository();
  Commit commit(&repository, false);
  commit.AddBlob(&repository, TAL_WIDE("a/one"), BlobOf("1"));
  commit.AddBlob(&repository, TAL_WIDE("a/two"), BlobOf("2"));
  EXPECT_EQ(repository.GetTreeCount(), 4u);
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 2 trees, 2 blobs");
}

TEST(Purge, KeepsObjectsThatAnUnstoredTreeHolds) {
  Repository repository = NewRepository();
  const Tree outside = TreeOf(&repository, {{"a/b", "bytes"}});
  const cow_ptr<Blob> held = repository.SyncWithStorage(SharedBlob("held"));
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 1 trees, 2 blobs");
}

TEST(Purge, RemovesNestedTreesInOneRun) {
  Repository repository = NewRepository();
  repository.SyncWithStorage(Make<Tree>(TreeOf(&repository, {{"a/b/c/d/e", "1"}, {"a/x", "2"}})));
  ASSERT_GE(repository.GetTreeCount(), 5u);
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
}

TEST(Purge, RemovesHiddenSubtreeWithItsParent) {
  Repository repository = NewRepository();
  {
    Tree tree = TreeOf(&repository, {{"both/inside", "1"}});
    tree.AddBlob(&repository, TAL_WIDE("both"), BlobOf("2"));
    repository.SyncWithStorage(Make<Tree>(tree));
  }
  ASSERT_EQ(repository.GetTreeCount(), 2u);
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
}

// A directory that several others hold, some of them equal themselves, once stayed if the
// purge met it before its holders. The ids decide that, so there are several contents.
TEST(Purge, RemovesDirectoryWithTheLastTreeThatHasIt) {
  for (int number = 0; number < 16; ++number) {
    Repository repository = NewRepository();
    Draw(repository, "A", "master=A");
    {
      Commit commit;
      for (const char* const folder : {"a/x", "b/x", "c/a/x", "c/b/x", "d/a/x", "e/x"}) {
        const Blob blob = BlobOf(std::to_string(number));
        commit.AddBlob(&repository, Wide(std::string(folder) + "/file"), blob);
      }
      repository.CreateBranch(TAL_WIDE("topic"), repository.SyncWithStorage(Make<Commit>(commit)));
    }
    repository.UpdateStorage();
    EXPECT_EQ(CountsOf(repository), "2 commits, 7 trees, 3 blobs") << number;
    ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("topic")));
    repository.UpdateStorage();
    EXPECT_EQ(CountsOf(repository), "1 commits, 2 trees, 2 blobs") << number;
  }
}

TEST(Purge, SecondRunRemovesNothing) {
  Repository repository = NewRepository();
  Draw(repository, "A-B-C; B-D-E", "master=C");
  repository.UpdateStorage();
  const std::string once = CountsOf(repository);
  repository.UpdateStorage();
  EXPECT_EQ(once, "3 commits, 4 trees, 4 blobs");
  EXPECT_EQ(CountsOf(repository), once);
}

TEST(Purge, RemovesNothingWhileACloneExists) {
  Repository repository = NewRepository();
  Draw(repository, "A-B-C", "master=C");
  repository.RemoveBranch(TAL_WIDE("master"));
  auto clone = repository.GetStorage()->Clone();
  repository.UpdateStorage();
  clone->PurgeUnusedObjects();
  EXPECT_EQ(CountsOf(repository), "3 commits, 4 trees, 4 blobs");
  EXPECT_EQ(clone->GetCommitCount(), 3u);
  clone.reset();
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
}

TEST(Purge, RemovesCanonicalInstanceThatNothingHolds) {
  const auto owned = NewStorage();
  IObjectsStorage& storage = *owned;
  const auto used = SharedBlob("bytes");
  storage.AddBlob(SharedBlob("bytes"));
  storage.PurgeUnusedObjects();
  EXPECT_FALSE(storage.GetBlob(used->GetId()));
}

TEST(Purge, RemovesCanonicalInstanceOfAHeadThatIsAnotherInstance) {
  Repository repository = NewRepository();
  Repository elsewhere = NewRepository();
  DrawHistory(repository, "A");
  const cow_ptr<Commit> twin = DrawHistory(elsewhere, "A").at("A");
  ASSERT_TRUE(repository.MoveBranchTo(TAL_WIDE("master"), twin));
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
  EXPECT_EQ(repository.GetHead(), twin);
}

TEST(DeleteCommit, NullHasNoEffect) {
  Repository repository = NewRepository();
  Draw(repository, "A", "master=A");
  repository.GetStorage()->DeleteCommit(nullptr);
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST(DeleteCommit, UnknownCommitHasNoEffect) {
  Repository repository = NewRepository();
  Draw(repository, "A", "master=A");
  repository.GetStorage()->DeleteCommit(Make<Commit>());
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST(DeleteCommit, BranchKeepsItsDeletedHead) {
  Repository repository = NewRepository();
  Draw(repository, "A-B", "master=B");
  const cow_ptr<Commit> head = repository.GetHead();
  repository.GetStorage()->DeleteCommit(head);
  EXPECT_EQ(CountsOf(repository), "1 commits, 3 trees, 3 blobs");
  EXPECT_FALSE(repository.GetCommitFromStorage(head->GetId()));
  EXPECT_EQ(repository.GetHead(), head);
}

TEST(DeleteCommit, RemovesTheStoredCommitWhenGivenAnotherInstance) {
  Repository repository = NewRepository();
  Repository elsewhere = NewRepository();
  Draw(repository, "A", "master=A");
  repository.GetStorage()->DeleteCommit(DrawHistory(elsewhere, "A").at("A"));
  EXPECT_EQ(repository.GetCommitCount(), 0u);
}

TEST(DeleteCommit, OnePurgeRemovesTheAncestorsOfTheLastDescendant) {
  Repository repository = NewRepository();
  Draw(repository, "A-B-C-D-E", "");
  const Id middle(Wide(IdOfChain("A-B-C")));
  repository.GetStorage()->DeleteCommit(repository.GetCommitFromStorage(middle));
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
}

TEST(DeleteCommit, PurgeKeepsDeletedCommitThatAChildHolds) {
  Repository repository = NewRepository();
  Draw(repository, "A-B-C", "master=C");
  repository.GetStorage()->DeleteCommit(repository.GetHead()->GetParent());
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "2 commits, 4 trees, 4 blobs");
  EXPECT_EQ(ChainOf(repository, "master"), "A-B-C");
}

TEST(DeleteCommit, NextPurgeRemovesTheObjectsOfTheCommit) {
  Repository repository = NewRepository();
  cow_ptr<Commit> tip = DrawHistory(repository, "A-B").at("B");
  repository.GetStorage()->DeleteCommit(tip);
  tip = nullptr;
  EXPECT_EQ(CountsOf(repository), "1 commits, 3 trees, 3 blobs");
  repository.UpdateStorage();
  EXPECT_EQ(CountsOf(repository), "0 commits, 0 trees, 0 blobs");
}

}  // namespace
}  // namespace TalVcs::Testing
