#include <gtest/gtest.h>
#include <kit/memory_store.h>
#include <kit/save_repository.h>
#include <tests/kit/saved_states.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// A repository whose newest commit stands on a private copy of its tree, as a failed edit leaves
/// it, while a purge has dropped the tree of the same id from the storage.
Repository AfterAFailedEdit() {
  Repository repository = NewRepository();
  const WideString master = Wide("master");
  CommitFile(repository, master, "folder/file", "one");
  cow_ptr<Commit> next = Make<Commit>(repository.GetHead(master), false);
  next.write()->AddBlob(&repository, Wide("folder/second"), BlobOf("two"));
  EXPECT_EQ(next.write()->AddBlob(&repository, WideString(), BlobOf("no path")), nullptr);
  repository.DoCommit(*next.write());
  next = nullptr;
  repository.UpdateStorage();
  return repository;
}

const WideString kRoot;

TEST(SaveRepository, SerializerAloneLosesATreeThatAPurgeRemoved) {
  Repository repository = AfterAFailedEdit();
  MemoryStore store;
  ASSERT_TRUE(Serializer(&store, kRoot).Serialize(repository.GetStorage()));
  EXPECT_EQ(Load(store).compare(0, 8, "damaged "), 0);
}

TEST(SaveRepository, SavesATreeThatAPurgeRemoved) {
  Repository repository = AfterAFailedEdit();
  MemoryStore store;
  ASSERT_TRUE(SaveRepository(repository, store, kRoot));
  EXPECT_EQ(Load(store), Describe(repository));
}

TEST(SaveRepository, SerializerAloneLosesDeletedAncestors) {
  Repository repository = NewRepository();
  for (const char* name : {"a", "b", "c", "d"}) CommitFile(repository, Wide("master"), name, name);
  repository.DeleteCommits(repository.GetHead(Wide("master"))->GetParent()->GetParent());
  MemoryStore store;
  ASSERT_TRUE(Serializer(&store, kRoot).Serialize(repository.GetStorage()));
  EXPECT_EQ(Load(store).compare(0, 8, "damaged "), 0);
}

TEST(SaveRepository, DeletedAncestorsThatAreStillReachedAreSaved) {
  Repository repository = NewRepository();
  for (const char* name : {"a", "b", "c", "d"}) CommitFile(repository, Wide("master"), name, name);
  repository.DeleteCommits(repository.GetHead(Wide("master"))->GetParent()->GetParent());
  EXPECT_EQ(repository.GetCommitCount(), 2u);
  MemoryStore store;
  ASSERT_TRUE(SaveRepository(repository, store, kRoot));
  EXPECT_EQ(repository.GetCommitCount(), 4u);
  EXPECT_EQ(Load(store), Describe(repository));
}

TEST(SaveRepository, SavesDetachedCommitsWithTheirTrees) {
  Repository repository = NewRepository();
  const cow_ptr<Commit> kept = CommitFile(repository, Wide("gone"), "folder/file", "text");
  repository.RemoveBranch(Wide("gone"));
  const cow_ptr<Tree> folder = kept->GetTree()->GetTree(Wide("folder"));
  MemObjectsStorage partial;
  partial.AddCommit(kept);
  Repository second(std::make_unique<MemObjectsStorage>(partial));
  ASSERT_TRUE(StoreReachable(second));
  EXPECT_EQ(second.GetTreeCount(), 2u);
  EXPECT_EQ(second.GetTreeFromStorage(folder->GetId()), folder);
  EXPECT_EQ(second.GetBlobCount(), 1u);
}

// Storage that holds nothing but the heads: whatever they reach has to be found, although most of a
// tree is the same as in the parent's.
TEST(SaveRepository, EverythingThatHeadsReachIsStored) {
  Repository repository = NewRepository();
  for (int number = 0; number < 50; ++number) {
    const std::string text = std::to_string(number);
    const std::string branch = number % 3 == 0 ? "topic" : "master";
    CommitFile(repository, Wide(branch), "d" + std::to_string(number % 7) + "/e/" + text, text);
    if (number == 20) repository.CreateBranch(Wide("side"), repository.GetHead(Wide("master")));
    if (number > 20) CommitFile(repository, Wide("side"), "only/side", text);
  }
  MemObjectsStorage heads({});
  for (const auto& [name, head] : repository.GetStorage()->GetRefs())
    heads.CreateBranch(name, head);
  Repository second(std::make_unique<MemObjectsStorage>(heads));
  MemoryStore store;
  ASSERT_TRUE(SaveRepository(second, store, kRoot));
  EXPECT_EQ(Load(store), Describe(second));
  const auto& trees = repository.GetStorage()->GetTrees();
  EXPECT_EQ(second.GetCommitCount(), repository.GetCommitCount());
  EXPECT_EQ(second.GetBlobCount(), repository.GetBlobCount());
  for (const auto& [id, tree] : second.GetStorage()->GetTrees()) EXPECT_TRUE(trees.contains(id));
}

TEST(SaveRepository, WithoutStorageDoesNotChangeTheStore) {
  Repository repository = OldState();
  MemoryStore store;
  ASSERT_TRUE(SaveRepository(repository, store, kRoot));
  const std::size_t count = store.GetCount();
  Repository nothing{std::unique_ptr<IObjectsStorage>()};
  EXPECT_FALSE(SaveRepository(nothing, store, kRoot));
  EXPECT_EQ(store.GetCount(), count);
}

TEST(SaveRepository, FailingWriterGivesFalse) {
  class Refusing : public MemoryStore {
   public:
    bool CommitBlobStream(const WideString& /*path*/, Stream /*stream*/) override { return false; }
  };
  Repository repository = OldState();
  Refusing store;
  EXPECT_FALSE(SaveRepository(repository, store, kRoot));
}

TEST(StoreReachable, LongHistoryNeedsNoRecursion) {
  Repository repository = NewRepository();
  cow_ptr<Commit> tip = CommitFile(repository, Wide("master"), "a", "1");
  MemObjectsStorage heads({});
  for (int number = 0; number < 50000; ++number) {
    cow_ptr<Commit> next = Make<Commit>(tip, false);
    tip = std::move(next);
  }
  heads.CreateBranch(Wide("long"), tip);
  Repository second(std::make_unique<MemObjectsStorage>(std::move(heads)));
  ASSERT_TRUE(StoreReachable(second));
  EXPECT_EQ(second.GetCommitCount(), 50001u);
}

}  // namespace
}  // namespace TalVcs::Kit
