#include <talvcs/repository/repository.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <initializer_list>
#include <memory>
#include <utility>

namespace TalVcs::Testing {
namespace {

Repository WithBranches(std::initializer_list<TalStringViewT<WideChar>> names) {
  return Repository(NewStorage(names));
}

TEST(Repository, NewRepositoryOwnsTheStorageAndHasCurrentBranchMaster) {
  auto storage = NewStorage();
  const IObjectsStorage* address = storage.get();
  std::unique_ptr<IObjectsStorage> handed = std::move(storage);
  Repository repository(std::move(handed));
  EXPECT_FALSE(handed);
  EXPECT_EQ(repository.GetStorage(), address);
  EXPECT_EQ(std::as_const(repository).GetStorage(), address);
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
}

TEST(Repository, CurrentBranchIsMasterEvenIfThatDoesNotExist) {
  Repository repository = WithBranches({TAL_WIDE("trunk")});
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("master")));
}

TEST(RepositoryWithoutStorage, EveryLookUpReturnsNothing) {
  const Repository repository(nullptr);
  EXPECT_FALSE(repository.GetHead());
  EXPECT_FALSE(repository.GetHead(TAL_WIDE("master")));
  EXPECT_FALSE(repository.GetCommitFromStorage(Make<Commit>()->GetId()));
  EXPECT_FALSE(repository.GetTreeFromStorage(Make<Tree>()->GetId()));
  EXPECT_FALSE(repository.GetBlobFromStorage(Make<Blob>()->GetId()));
  EXPECT_EQ(repository.GetCommitCount(), 0u);
  EXPECT_EQ(repository.GetTreeCount(), 0u);
  EXPECT_EQ(repository.GetBlobCount(), 0u);
  EXPECT_EQ(repository.GetStorage(), nullptr);
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
}

TEST(RepositoryWithoutStorage, EveryChangeFails) {
  Repository repository(nullptr);
  const auto commit = Make<Commit>();
  EXPECT_FALSE(repository.DeleteCommits(commit));
  EXPECT_FALSE(repository.DeleteCommits(nullptr));
  EXPECT_FALSE(repository.SimplifyCommitGraph(true));
  EXPECT_FALSE(repository.SimplifyCommitGraph(false));
  EXPECT_FALSE(repository.Checkout(TAL_WIDE("master")));
  EXPECT_FALSE(repository.CreateBranch(TAL_WIDE("topic"), commit));
  EXPECT_FALSE(repository.BranchExist(TAL_WIDE("master")));
  EXPECT_FALSE(repository.MoveBranchTo(TAL_WIDE("master"), commit));
  EXPECT_FALSE(repository.RemoveBranch(TAL_WIDE("master")));
  EXPECT_FALSE(repository.EnsureCommonRootFor(TAL_WIDE("a"), TAL_WIDE("b"), TAL_WIDE("root")));
  EXPECT_FALSE(repository.FastForwardMerge(commit));
  EXPECT_FALSE(repository.Merge3Way(commit, Resolvers()));
  EXPECT_FALSE(repository.Merge(commit, Resolvers()));
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetStorage(), nullptr);
}

TEST(RepositoryWithoutStorage, SyncWithStorageReturnsItsArgument) {
  Repository repository(nullptr);
  const auto commit = Make<Commit>();
  const auto tree = Make<Tree>();
  const auto blob = Make<Blob>();
  EXPECT_EQ(repository.SyncWithStorage(commit), commit);
  EXPECT_EQ(repository.SyncWithStorage(tree), tree);
  EXPECT_EQ(repository.SyncWithStorage(blob), blob);
}

TEST(RepositoryWithoutStorage, DoCommitReturnsNullAndDoesNotChangeTheCommit) {
  Repository repository(nullptr);
  Commit commit;
  commit.SetCommitTime(Time::FromTimeT(5));
  EXPECT_FALSE(repository.DoCommit(commit));
  EXPECT_EQ(commit.GetCommitTime().ToTimeT(), 5);
}

TEST(Repository, CopyIsIndependentAndSharesObjects) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  Repository copy(repository);
  EXPECT_EQ(copy.GetHead(), repository.GetHead());
  Commit commit(&copy, false);
  commit.AddBlob(&copy, TAL_WIDE("file"), BlobOf("new"));
  ASSERT_TRUE(copy.DoCommit(commit));
  EXPECT_EQ(ChainOf(repository, "master"), "A");
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(repository.GetBlobCount(), 2u);
  EXPECT_EQ(copy.GetCommitCount(), 2u);
  EXPECT_EQ(copy.GetHead()->GetParent(), repository.GetHead());
}

TEST(Repository, CopyHasTheSameCurrentBranch) {
  Repository repository = WithBranches({TAL_WIDE("master"), TAL_WIDE("topic")});
  repository.Checkout(TAL_WIDE("topic"));
  const Repository copy(repository);
  EXPECT_EQ(Ascii(copy.GetCurentBranch()), "topic");
}

TEST(Repository, CopyOfRepositoryWithoutStorageHasNone) {
  const Repository empty(nullptr);
  const Repository copy(empty);
  EXPECT_EQ(copy.GetStorage(), nullptr);
  Repository assigned = NewRepository();
  assigned = empty;
  EXPECT_EQ(assigned.GetStorage(), nullptr);
}

TEST(Repository, CopyAssignmentReplacesStorageAndBranch) {
  Repository source = WithBranches({TAL_WIDE("topic")});
  source.Checkout(TAL_WIDE("topic"));
  Repository target = NewRepository();
  target = source;
  EXPECT_TRUE(target.BranchExist(TAL_WIDE("topic")));
  EXPECT_FALSE(target.BranchExist(TAL_WIDE("master")));
  EXPECT_NE(target.GetStorage(), source.GetStorage());
  EXPECT_EQ(Ascii(target.GetCurentBranch()), "topic");
}

TEST(Repository, MoveLeavesTheSourceWithoutStorage) {
  Repository source = NewRepository();
  IObjectsStorage* storage = source.GetStorage();
  Repository target(std::move(source));
  EXPECT_EQ(target.GetStorage(), storage);
  EXPECT_EQ(source.GetStorage(), nullptr);
  EXPECT_FALSE(source.BranchExist(TAL_WIDE("master")));
  EXPECT_EQ(Ascii(target.GetCurentBranch()), "master");
}

TEST(Repository, MoveAssignmentReleasesTheOldStorage) {
  Repository target = NewRepository();
  const cow_ptr<Blob> blob = target.SyncWithStorage(SharedBlob("old"));
  Repository source = WithBranches({TAL_WIDE("topic")});
  target = std::move(source);
  EXPECT_EQ(blob.use_count(), 1);
  EXPECT_TRUE(target.BranchExist(TAL_WIDE("topic")));
  EXPECT_EQ(source.GetStorage(), nullptr);
}

TEST(Repository, AssignmentToItselfChangesNothing) {
  Repository repository = NewRepository();
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  IObjectsStorage* storage = repository.GetStorage();
  Repository& alias = repository;
  repository = alias;
  repository = std::move(alias);
  EXPECT_EQ(repository.GetStorage(), storage);
  EXPECT_EQ(ChainOf(repository, "master"), "A");
}

TEST(Repository, GetHeadReturnsNullForUnknownBranch) {
  const Repository repository = NewRepository();
  EXPECT_NO_THROW(EXPECT_FALSE(repository.GetHead(TAL_WIDE("unknown"))));
}

TEST(Repository, LookUpsReturnCanonicalInstances) {
  Repository repository = NewRepository();
  const History history = DrawHistory(repository, "A");
  const cow_ptr<Commit> commit = history.at("A");
  EXPECT_EQ(repository.GetCommitFromStorage(commit->GetId()), commit);
  const cow_ptr<Tree> tree = commit->GetTree()->GetRoot();
  EXPECT_EQ(repository.GetTreeFromStorage(tree->GetId()), tree);
  const cow_ptr<Blob> blob = commit->GetBlob(TAL_WIDE("name"));
  EXPECT_EQ(repository.GetBlobFromStorage(blob->GetId()), blob);
}

TEST(SyncWithStorage, OfNullReturnsNull) {
  Repository repository = NewRepository();
  EXPECT_FALSE(repository.SyncWithStorage(cow_ptr<Commit>()));
  EXPECT_FALSE(repository.SyncWithStorage(cow_ptr<Tree>()));
  EXPECT_FALSE(repository.SyncWithStorage(cow_ptr<Blob>()));
  EXPECT_EQ(repository.GetCommitCount() + repository.GetTreeCount() + repository.GetBlobCount(),
            0u);
}

TEST(SyncWithStorage, StoresAndReturnsANewObject) {
  Repository repository = NewRepository();
  const auto commit = Make<Commit>();
  const auto tree = Make<Tree>();
  const auto blob = Make<Blob>();
  EXPECT_EQ(repository.SyncWithStorage(commit), commit);
  EXPECT_EQ(repository.SyncWithStorage(tree), tree);
  EXPECT_EQ(repository.SyncWithStorage(blob), blob);
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(repository.GetTreeCount(), 1u);
  EXPECT_EQ(repository.GetBlobCount(), 1u);
}

TEST(SyncWithStorage, ReturnsTheCanonicalInstanceOfAStoredId) {
  Repository repository = NewRepository();
  const auto stored = repository.SyncWithStorage(SharedBlob("bytes"));
  const auto twin = SharedBlob("bytes");
  EXPECT_EQ(repository.SyncWithStorage(twin), stored);
  EXPECT_NE(twin, stored);
  const auto tree = repository.SyncWithStorage(Make<Tree>());
  EXPECT_EQ(repository.SyncWithStorage(Make<Tree>()), tree);
  const auto commit = repository.SyncWithStorage(Make<Commit>());
  EXPECT_EQ(repository.SyncWithStorage(Make<Commit>()), commit);
  EXPECT_EQ(repository.GetBlobCount(), 1u);
}

TEST(SyncWithStorage, DoesNotStoreTreeAndParentOfACommit) {
  Repository elsewhere = NewRepository();
  const History history = DrawHistory(elsewhere, "A-B");
  Repository repository = NewRepository();
  repository.SyncWithStorage(history.at("B"));
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(repository.GetTreeCount(), 0u);
}

/// Returns one object of each type for every id.
class SubstitutingRepository final : public Repository {
 public:
  SubstitutingRepository() : Repository(NewStorage()) {}
  cow_ptr<Commit> GetCommitFromStorage(const Id&) const override { return commit; }
  cow_ptr<Tree> GetTreeFromStorage(const Id&) const override { return tree; }
  cow_ptr<Blob> GetBlobFromStorage(const Id&) const override { return blob; }

  cow_ptr<Commit> commit = Make<Commit>();
  cow_ptr<Tree> tree = Make<Tree>();
  cow_ptr<Blob> blob = SharedBlob("substitute");
};

TEST(SyncWithStorage, AsksTheLookUpsOfAHostsRepository) {
  SubstitutingRepository repository;
  EXPECT_EQ(repository.SyncWithStorage(Make<Commit>()), repository.commit);
  EXPECT_EQ(repository.SyncWithStorage(Make<Tree>()), repository.tree);
  EXPECT_EQ(repository.SyncWithStorage(SharedBlob("bytes")), repository.blob);
  EXPECT_EQ(repository.GetBlobCount() + repository.GetTreeCount() + repository.GetCommitCount(),
            0U);
}

}  // namespace
}  // namespace TalVcs::Testing
