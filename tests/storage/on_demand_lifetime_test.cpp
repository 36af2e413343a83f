// Who holds what, and for how long: handles, clones, trims, two stores.

#include <gtest/gtest.h>
#include <talvcs/merge/three_way_merge.h>
#include <talvcs/persistence/serializer.h>
#include <talvcs/storage/mem_objects_storage.h>
#include <tests/support/contents.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/merging.h>
#include <tests/support/on_demand_store.h>

#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace TalVcs::Testing {
namespace {

cow_ptr<Tree> RootOf(const cow_ptr<Commit>& commit) { return commit->GetTree()->GetRoot(); }

/// A store with two commits: "a/b/c" has been changed by the second one, "a/d" and "e" have not.
class OnDemandLifetime : public ::testing::Test {
 protected:
  OnDemandLifetime() {
    Repository repository = m_store.Open();
    CommitFiles(repository, {{"a/b/c", "1"}, {"a/d", "d"}, {"e", "e"}});
    CommitFiles(repository, {{"a/b/c", "2"}});
    m_store.Save(repository);
  }

  static std::uint64_t CountOfNew(const Repository& repository) {
    return repository.GetCommitCount() + repository.GetTreeCount() + repository.GetBlobCount();
  }

  OnDemandStore m_store;
};

TEST_F(OnDemandLifetime, HandleOnATreeReadsOnAfterItsRepository) {
  std::optional<Repository> repository = m_store.Open();
  const cow_ptr<Tree> root = RootOf(repository->GetHead());
  repository.reset();
  EXPECT_EQ(ListingOf(root), "a/b/c=2 a/d=d e=e");
}

TEST_F(OnDemandLifetime, HandleOnACommitReadsOnAfterItsRepository) {
  std::optional<Repository> repository = m_store.Open();
  const cow_ptr<Commit> head = repository->GetHead();
  repository.reset();
  EXPECT_EQ(ListingOf(head->GetParent()), "a/b/c=1 a/d=d e=e");
  EXPECT_FALSE(head->GetParent()->GetParent());
}

TEST_F(OnDemandLifetime, DraftIsEditedAfterItsRepository) {
  std::optional<Repository> repository = m_store.Open();
  Commit draft(&*repository, false);
  repository.reset();
  Repository other(std::make_unique<MemObjectsStorage>());
  draft.AddBlob(&other, TAL_WIDE("a/b/new"), BlobOf("new"));
  EXPECT_EQ(ListingOf(other.DoCommit(draft)), "a/b/c=2 a/b/new=new a/d=d e=e");
}

TEST_F(OnDemandLifetime, HandlesAreDroppedOnAnotherThread) {
  std::optional<Repository> repository = m_store.Open();
  cow_ptr<Commit> head = repository->GetHead();
  cow_ptr<Tree> root = RootOf(head->GetParent());
  cow_ptr<Tree> below = root->GetDeepTree(TAL_WIDE("a/b"));
  repository.reset();
  std::thread([head = std::move(head), root = std::move(root)]() mutable {
    head = nullptr;
    root = nullptr;
  }).join();
  EXPECT_EQ(ListingOf(below), "c=1");
}

TEST_F(OnDemandLifetime, CloneFindsWhatTheOtherHasRead) {
  Repository repository = m_store.Open();
  Repository clone(repository);
  ListingOf(repository.GetHead());
  m_store.TakeReads();
  EXPECT_EQ(ListingOf(clone.GetHead()), "a/b/c=2 a/d=d e=e");
  EXPECT_EQ(m_store.TakeReads(), 0U);
}

TEST_F(OnDemandLifetime, IdHasOneInstanceInAllClones) {
  Repository repository = m_store.Open();
  Repository clone(repository);
  const cow_ptr<Commit> head = repository.GetHead();
  EXPECT_EQ(clone.GetHead(), head);
  EXPECT_EQ(clone.GetHead()->GetParent(), head->GetParent());
  EXPECT_EQ(clone.GetCommitFromStorage(head->GetParent()->GetId()), head->GetParent());
  EXPECT_EQ(RootOf(clone.GetHead()), RootOf(head));
  EXPECT_EQ(RootOf(head)->GetDeepTree(TAL_WIDE("a")),
            clone.GetTreeFromStorage(*RootOf(head)->GetIdByPath(TAL_WIDE("a"))));
}

TEST_F(OnDemandLifetime, ObjectThatACloneMadeAgainIsTheInstanceOfAll) {
  Repository repository = m_store.Open();
  Repository clone(repository);
  const cow_ptr<Blob> made = clone.SyncWithStorage(SharedBlob("d"));
  EXPECT_EQ(CountOfNew(clone), 1U);
  EXPECT_EQ(repository.GetBlobFromStorage(made->GetId()), made);
  EXPECT_EQ(repository.GetHead()->GetBlob(TAL_WIDE("a/d")), made);
  EXPECT_EQ(clone.GetHead()->GetBlob(TAL_WIDE("a/d")), made);
}

TEST_F(OnDemandLifetime, CloneLivesOnWithoutTheOther) {
  std::optional<Repository> repository = m_store.Open();
  Repository clone(*repository);
  const cow_ptr<Commit> head = repository->GetHead();
  repository.reset();
  EXPECT_EQ(clone.GetHead(), head);
  EXPECT_EQ(ListingOf(clone.GetHead()->GetParent()), "a/b/c=1 a/d=d e=e");
}

TEST_F(OnDemandLifetime, TrimLeavesHandlesOfTheHostGood) {
  Repository repository = m_store.Open();
  const cow_ptr<Commit> head = repository.GetHead();
  const cow_ptr<Tree> directory = RootOf(head)->GetLocalTree(TAL_WIDE("a"));
  const cow_ptr<Blob> blob = directory->GetLocalBlob(TAL_WIDE("d"));
  OnDemandStore::StorageOf(repository).Trim();
  EXPECT_EQ(repository.GetHead(), head);
  EXPECT_EQ(RootOf(head)->GetLocalTree(TAL_WIDE("a")), directory);
  EXPECT_EQ(directory->GetLocalBlob(TAL_WIDE("d")), blob);
  EXPECT_EQ(ListingOf(head), "a/b/c=2 a/d=d e=e");
}

TEST_F(OnDemandLifetime, TrimLetsGoOfWhatIsBelowAHandle) {
  Repository repository = m_store.Open();
  const cow_ptr<Tree> root = RootOf(repository.GetHead());
  for (int time = 0; time < 2; ++time) {
    m_store.TakeReads();
    EXPECT_EQ(ListingOf(root), "a/b/c=2 a/d=d e=e");
    EXPECT_EQ(m_store.TakeReads(), 5U);  // "a", "a/b", three blobs
    OnDemandStore::StorageOf(repository).Trim();
  }
}

TEST_F(OnDemandLifetime, EndOfTheLastStorageLetsGoOfBlobs) {
  std::optional<Repository> repository = m_store.Open();
  const cow_ptr<Tree> root = RootOf(repository->GetHead());
  const cow_ptr<Tree> former = RootOf(repository->GetHead()->GetParent());
  root->GetLocalBlob(TAL_WIDE("e"));
  repository.reset();
  m_store.TakeReads();
  EXPECT_EQ(TextOf(former->GetLocalBlob(TAL_WIDE("e"))), "e");
  EXPECT_EQ(m_store.TakeReads(), 1U);
}

TEST_F(OnDemandLifetime, TrimKeepsWhatIsNotSaved) {
  Repository repository = m_store.Open();
  const cow_ptr<Commit> made = CommitFiles(repository, {{"a/b/c", "3"}, {"x/y", "4"}});
  const Id id = made->GetId();
  const std::uint64_t count = CountOfNew(repository);
  OnDemandStore::StorageOf(repository).Trim();
  EXPECT_EQ(CountOfNew(repository), count);
  m_store.TakeReads();
  EXPECT_TRUE(repository.GetHead()->GetParent());
  EXPECT_EQ(m_store.TakeReads(), 1U);  // the parent, which is saved
  EXPECT_EQ(repository.GetHead()->GetId(), id);
  EXPECT_EQ(ListingOf(repository.GetHead()), "a/b/c=3 a/d=d e=e x/y=4");
}

TEST_F(OnDemandLifetime, TrimInACloneTouchesNothingOfTheOther) {
  Repository repository = m_store.Open();
  CommitFiles(repository, {{"a/b/c", "3"}});
  Repository clone(repository);
  CommitFiles(repository, {{"a/b/c", "4"}});
  CommitFiles(clone, {{"a/b/c", "5"}});
  ListingOf(repository.GetHead()->GetParent()->GetParent());
  OnDemandStore::StorageOf(clone).Trim();
  EXPECT_EQ(ListingOf(repository.GetHead()), "a/b/c=4 a/d=d e=e");
  EXPECT_EQ(ListingOf(clone.GetHead()), "a/b/c=5 a/d=d e=e");
  EXPECT_EQ(clone.GetHead()->GetParent(), repository.GetHead()->GetParent());
}

TEST_F(OnDemandLifetime, CommitThatTwoClonesMakeApartIsOneAfterSaveAndTrim) {
  Repository repository = m_store.Open();
  Repository clone(repository);
  for (Repository* one : {&repository, &clone}) {
    one->EnsureCommonRootFor(TAL_WIDE("master"), TAL_WIDE("other"), TAL_WIDE("root"));
  }
  ASSERT_EQ(repository.GetHead()->GetId(), clone.GetHead()->GetId());
  m_store.Save(repository);
  m_store.Save(clone);
  for (Repository* one : {&repository, &clone}) OnDemandStore::StorageOf(*one).Trim();
  EXPECT_EQ(repository.GetHead(), clone.GetHead());
  EXPECT_EQ(clone.GetCommitFromStorage(clone.GetHead()->GetId()), clone.GetHead());
  EXPECT_TRUE(clone.FastForwardMerge(clone.GetHead(TAL_WIDE("master"))));
}

TEST_F(OnDemandLifetime, SaveWritesAllThatComesFromAnotherStore) {
  OnDemandStore other;
  Repository source = m_store.Open();
  Repository target = other.Open();
  Commit draft(&target, false);
  draft.ReplaceRoot(&target, RootOf(source.GetHead()));
  target.DoCommit(draft);
  EXPECT_EQ(other.Save(target), 7U);  // commit, three directories, three blobs
  Repository reopened = other.Open();
  EXPECT_EQ(ListingOf(reopened.GetHead()), "a/b/c=2 a/d=d e=e");
}

TEST_F(OnDemandLifetime, SaveWritesAHistoryOfAnotherStore) {
  OnDemandStore other;
  std::optional<Repository> source = m_store.Open();
  Repository target = other.Open();
  target.MoveBranchTo(TAL_WIDE("master"), source->GetHead());
  source.reset();
  EXPECT_EQ(other.Save(target), 12U);  // two commits, six directories, four blobs
  Repository reopened = other.Open();
  EXPECT_EQ(ListingOf(reopened.GetHead()), "a/b/c=2 a/d=d e=e");
  EXPECT_EQ(ListingOf(reopened.GetHead()->GetParent()), "a/b/c=1 a/d=d e=e");
}

TEST_F(OnDemandLifetime, MergeOfTreesOfAnotherStoreIsSavedWhole) {
  OnDemandStore other;
  Repository source = m_store.Open();
  Repository target = other.Open();
  const cow_ptr<Commit> ours = CommitFiles(target, {{"a/b/c", "1"}, {"z", "z"}});
  other.Save(target);
  target = other.Open();
  const cow_ptr<Commit> head = source.GetHead();
  const cow_ptr<Tree> merged =
      ThreeWayMerge(&target, {RootOf(target.GetHead()), RootOf(head->GetParent()), RootOf(head)},
                    Descending(ConflictChoice::Right));
  Commit draft(&target, false);
  draft.ReplaceRoot(&target, merged);
  target.DoCommit(draft);
  const std::string listing = ListingOf(target.GetHead());
  other.Save(target);
  Repository reopened = other.Open();
  EXPECT_EQ(ListingOf(reopened.GetHead()), listing);
  EXPECT_EQ(listing, "a/b/c=2 z=z");
}

TEST_F(OnDemandLifetime, SerializerRefusesBeforeItRemovesAnything) {
  Repository repository = m_store.Open();
  MemoryBlobIo io;
  Repository ordinary(std::make_unique<MemObjectsStorage>());
  CommitFiles(ordinary, {{"a", "1"}});
  const TalStringT<WideChar> root(TAL_WIDE("root"));
  ASSERT_TRUE(Serializer(&io, root).Serialize(ordinary.GetStorage()));
  const auto before = io.streams;
  EXPECT_FALSE(Serializer(&io, root).Serialize(repository.GetStorage()));
  EXPECT_EQ(io.streams, before);
}

TEST_F(OnDemandLifetime, PurgeReadsNothingAndLosesNothing) {
  Repository repository = m_store.Open();
  CommitFiles(repository, {{"a/b/c", "3"}, {"x/y", "4"}});
  Commit forgotten(&repository, false);
  forgotten.AddBlob(&repository, TAL_WIDE("gone"), BlobOf("gone"));
  forgotten = Commit();
  m_store.TakeReads();
  repository.UpdateStorage();
  EXPECT_EQ(m_store.TakeReads(), 0U);
  EXPECT_EQ(CountOfNew(repository), 7U);  // commit, root, "a", "a/b", "x", two blobs
  EXPECT_EQ(ListingOf(repository.GetHead()), "a/b/c=3 a/d=d e=e x/y=4");
  EXPECT_EQ(ListingOf(repository.GetHead()->GetParent()), "a/b/c=2 a/d=d e=e");
}

TEST_F(OnDemandLifetime, PurgeAfterAnUnfinishedSaveLetsGo) {
  Repository repository = m_store.Open();
  const cow_ptr<Commit> base = repository.GetHead();
  CommitFiles(repository, {{"a/b/c", "3"}});
  const auto drop = [](void*, const Id&, const Buffer&) {};
  OnDemandStore::StorageOf(repository).VisitUnsaved({this, drop});
  repository.MoveBranchTo(TAL_WIDE("master"), base);
  repository.UpdateStorage();
  EXPECT_EQ(CountOfNew(repository), 0U);
}

TEST_F(OnDemandLifetime, TreeThatTheHostEditsIsNotTheStoredOne) {
  Repository repository = m_store.Open();
  cow_ptr<Tree> root = RootOf(repository.GetHead());
  const Id stored = root->GetId();
  root.write()->AddBlob(&repository, TAL_WIDE("a/d"), BlobOf("edited"));
  root.write()->RemoveObject(&repository, TAL_WIDE("e"));
  EXPECT_EQ(ListingOf(root), "a/b/c=2 a/d=edited");
  EXPECT_EQ(ListingOf(repository.GetHead()), "a/b/c=2 a/d=d e=e");
  EXPECT_EQ(ListingOf(repository.GetTreeFromStorage(stored)), "a/b/c=2 a/d=d e=e");
}

TEST_F(OnDemandLifetime, CommitThatTheHostEditsIsNotTheStoredOne) {
  Repository repository = m_store.Open();
  cow_ptr<Commit> parent = repository.GetHead()->GetParent();
  const Id stored = parent->GetId();
  parent.write()->SetDescription(TAL_WIDE("edited"));
  EXPECT_EQ(repository.GetHead()->GetParent()->GetId(), stored);
  EXPECT_EQ(Ascii(repository.GetCommitFromStorage(stored)->GetDesciption()), "");
}

TEST_F(OnDemandLifetime, BlobOverADirectoryThatWasNotReadHidesItAsElsewhere) {
  Repository repository = m_store.Open();
  Repository ordinary(std::make_unique<MemObjectsStorage>());
  CommitFiles(ordinary, {{"a/b/c", "2"}, {"a/d", "d"}, {"e", "e"}});
  std::string listings[2];
  for (Repository* one : {&repository, &ordinary}) {
    Tree root(*RootOf(one->GetHead()));
    root.AddBlob(one, TAL_WIDE("a"), BlobOf("blob"));
    std::string& listing = listings[one == &ordinary ? 1 : 0];
    for (const std::string& path : Ascii(root.GetDeepBlobPaths())) listing += path + ' ';
    listing += IdOf(root);
  }
  EXPECT_EQ(listings[0], listings[1]);
}

// A save removes nothing from the store.
TEST_F(OnDemandLifetime, CommitThatWasDeletedIsFoundAgainAfterASave) {
  Repository repository = m_store.Open();
  const Id deleted = repository.GetHead()->GetId();
  ASSERT_TRUE(repository.DeleteCommits(repository.GetHead()));
  EXPECT_FALSE(repository.GetCommitFromStorage(deleted));
  m_store.Save(repository);
  const cow_ptr<Commit> found = repository.GetCommitFromStorage(deleted);
  ASSERT_TRUE(found);
  EXPECT_EQ(ListingOf(found), "a/b/c=2 a/d=d e=e");
}

// A head of another instance than the one under its id couldn't be found by `GetCommitBranches`.
TEST_F(OnDemandLifetime, CommitThatWasDeletedAndIsMadeAgainIsTheHead) {
  Repository repository = m_store.Open();
  repository.CreateBranch(TAL_WIDE("old"), repository.GetHead()->GetParent());
  ASSERT_TRUE(repository.DeleteCommits(repository.GetHead()));
  for (const auto branch : {TAL_WIDE("old"), TAL_WIDE("master")}) {
    const cow_ptr<Commit> head = repository.GetHead(branch);
    EXPECT_EQ(repository.GetCommitFromStorage(head->GetId()), head);
  }
  EXPECT_EQ(repository.GetHead()->GetParent(), repository.GetHead(TAL_WIDE("old")));
}

}  // namespace
}  // namespace TalVcs::Testing
