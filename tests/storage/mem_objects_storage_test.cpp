#include <talvcs/storage/mem_objects_storage.h>

#include <gmock/gmock.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

cow_ptr<Commit> CommitOf(const std::string& description) {
  auto commit = Make<Commit>();
  commit.write()->SetDescription(Wide(description));
  return commit;
}

// A storage with one object of each kind and a branch without a head besides "master".
MemObjectsStorage SmallStorage() {
  MemObjectsStorage storage({TAL_WIDE("master"), TAL_WIDE("topic")});
  storage.AddCommit(CommitOf("first"));
  storage.AddTree(Make<Tree>());
  storage.AddBlob(SharedBlob("bytes"));
  storage.UpdateBranch(TAL_WIDE("master"), storage.GetCommits().begin()->second);
  return storage;
}

TEST(MemObjectsStorage, NewStorageHasBranchMasterWithoutHead) {
  const MemObjectsStorage storage;
  EXPECT_TRUE(storage.BranchExist(TAL_WIDE("master")));
  EXPECT_FALSE(storage.GetHead(TAL_WIDE("master")));
  EXPECT_THAT(storage.GetRefs(), SizeIs(1));
  EXPECT_EQ(storage.GetCommitCount(), 0u);
  EXPECT_EQ(storage.GetTreeCount(), 0u);
  EXPECT_EQ(storage.GetBlobCount(), 0u);
}

TEST(MemObjectsStorage, ConstructorWithoutNamesMakesNoBranch) {
  const MemObjectsStorage storage(std::initializer_list<TalStringViewT<WideChar>>{});
  EXPECT_FALSE(storage.BranchExist(TAL_WIDE("master")));
  EXPECT_THAT(storage.GetRefs(), IsEmpty());
}

TEST(MemObjectsStorage, ConstructorMakesOneBranchOfADoubledName) {
  const MemObjectsStorage storage({TAL_WIDE("master"), TAL_WIDE("master")});
  EXPECT_THAT(storage.GetRefs(), SizeIs(1));
}

TEST(MemObjectsStorage, ConstructorMakesABranchWithoutHeadOfEachName) {
  const MemObjectsStorage storage({TAL_WIDE("b"), TAL_WIDE("a"), TAL_WIDE("B")});
  EXPECT_THAT(storage.GetRefs(), SizeIs(3));
  EXPECT_TRUE(storage.BranchExist(TAL_WIDE("B")));
  EXPECT_FALSE(storage.BranchExist(TAL_WIDE("master")));
  for (const auto& [name, head] : storage.GetRefs()) EXPECT_FALSE(head) << Ascii(name);
}

TEST(MemObjectsStorage, ConstructorAcceptsTheEmptyName) {
  const MemObjectsStorage storage({TAL_WIDE("")});
  EXPECT_TRUE(storage.BranchExist(TAL_WIDE("")));
  EXPECT_FALSE(storage.GetHead(TAL_WIDE("")));
}

TEST(MemObjectsStorage, LookUpOfTheEmptyIdReturnsNull) {
  const MemObjectsStorage storage = SmallStorage();
  EXPECT_FALSE(storage.GetCommit(Id()));
  EXPECT_FALSE(storage.GetTree(Id()));
  EXPECT_FALSE(storage.GetBlob(Id()));
}

TEST(MemObjectsStorage, LookUpOfMissingIdReturnsNullAndAddsNothing) {
  MemObjectsStorage storage;
  EXPECT_FALSE(storage.GetCommit(Id(Wide("abc"))));
  EXPECT_FALSE(storage.GetTree(Id(Wide("abc"))));
  EXPECT_FALSE(storage.GetBlob(Id(Wide("abc"))));
  EXPECT_THAT(storage.GetCommits(), IsEmpty());
  EXPECT_THAT(storage.GetTrees(), IsEmpty());
  EXPECT_THAT(storage.GetBlobs(), IsEmpty());
}

TEST(MemObjectsStorage, LookUpOfAnotherTypesIdReturnsNull) {
  MemObjectsStorage storage;
  const auto blob = SharedBlob("bytes");
  storage.AddBlob(blob);
  EXPECT_FALSE(storage.GetTree(blob->GetId()));
  EXPECT_FALSE(storage.GetCommit(blob->GetId()));
}

TEST(MemObjectsStorage, LookUpReturnsTheInstanceThatWasAdded) {
  MemObjectsStorage storage;
  const auto commit = CommitOf("first");
  const auto tree = Make<Tree>();
  const auto blob = SharedBlob("bytes");
  storage.AddCommit(commit);
  storage.AddTree(tree);
  storage.AddBlob(blob);
  EXPECT_EQ(storage.GetCommit(commit->GetId()), commit);
  EXPECT_EQ(storage.GetTree(tree->GetId()), tree);
  EXPECT_EQ(storage.GetBlob(blob->GetId()), blob);
  EXPECT_EQ(blob.use_count(), 2);
}

TEST(MemObjectsStorage, AddBlobKeepsTheInstanceOfAnEqualBlob) {
  MemObjectsStorage storage;
  const auto first = SharedBlob("bytes");
  const auto second = SharedBlob("bytes");
  storage.AddBlob(first);
  storage.AddBlob(second);
  EXPECT_EQ(storage.GetBlobCount(), 1u);
  EXPECT_EQ(storage.GetBlob(second->GetId()), first);
  EXPECT_EQ(second.use_count(), 1);
}

TEST(MemObjectsStorage, AddTreeAndAddCommitKeepTheInstanceOfAnEqualObject) {
  MemObjectsStorage storage;
  const auto tree = Make<Tree>();
  const auto commit = CommitOf("same");
  storage.AddTree(tree);
  storage.AddTree(Make<Tree>());
  storage.AddCommit(commit);
  storage.AddCommit(CommitOf("same"));
  EXPECT_EQ(storage.GetTree(tree->GetId()), tree);
  EXPECT_EQ(storage.GetCommit(commit->GetId()), commit);
  EXPECT_EQ(storage.GetTreeCount() + storage.GetCommitCount(), 2u);
}

TEST(MemObjectsStorage, KeysAreTheIdsOfTheirObjects) {
  const MemObjectsStorage storage = SmallStorage();
  for (const auto& [id, commit] : storage.GetCommits()) EXPECT_TRUE(id == commit->GetId());
  for (const auto& [id, tree] : storage.GetTrees()) EXPECT_TRUE(id == tree->GetId());
  for (const auto& [id, blob] : storage.GetBlobs()) EXPECT_TRUE(id == blob->GetId());
}

TEST(MemObjectsStorage, AddCommitDoesNotStoreParentOrTree) {
  Repository elsewhere = NewRepository();
  const History history = DrawHistory(elsewhere, "A-B");
  MemObjectsStorage storage;
  storage.AddCommit(history.at("B"));
  EXPECT_EQ(storage.GetCommitCount(), 1u);
  EXPECT_EQ(storage.GetTreeCount(), 0u);
  EXPECT_EQ(storage.GetBlobCount(), 0u);
}

TEST(MemObjectsStorage, AddTreeDoesNotStoreItsEntries) {
  Repository elsewhere = NewRepository();
  MemObjectsStorage storage;
  storage.AddTree(Make<Tree>(TreeOf(&elsewhere, {{"a/b", "bytes"}})));
  EXPECT_EQ(storage.GetTreeCount(), 1u);
  EXPECT_EQ(storage.GetBlobCount(), 0u);
}

TEST(MemObjectsStorage, WriteThroughHandleDoesNotChangeStoredObject) {
  MemObjectsStorage storage;
  auto commit = CommitOf("first");
  const Id id = commit->GetId();
  storage.AddCommit(commit);
  commit.write()->SetDescription(TAL_WIDE("second"));
  EXPECT_EQ(Ascii(storage.GetCommit(id)->GetDesciption()), "first");
}

TEST(MemObjectsStorage, CopySharesInstancesAndHasTablesOfItsOwn) {
  MemObjectsStorage storage = SmallStorage();
  MemObjectsStorage copy(storage);
  copy.AddBlob(SharedBlob("more"));
  copy.RemoveBranch(TAL_WIDE("topic"));
  EXPECT_EQ(storage.GetBlobCount(), 1u);
  EXPECT_EQ(copy.GetBlobCount(), 2u);
  EXPECT_TRUE(storage.BranchExist(TAL_WIDE("topic")));
  const Id id = storage.GetCommits().begin()->first;
  EXPECT_EQ(copy.GetCommit(id), storage.GetCommit(id));
  EXPECT_EQ(copy.GetHead(TAL_WIDE("master")), storage.GetHead(TAL_WIDE("master")));
}

TEST(MemObjectsStorage, CopyHoldsEveryObject) {
  MemObjectsStorage storage;
  storage.AddBlob(SharedBlob("bytes"));
  storage.AddTree(Make<Tree>());
  storage.AddCommit(CommitOf("first"));
  const MemObjectsStorage copy(storage);
  EXPECT_EQ(storage.GetBlobs().begin()->second.use_count(), 2);
  EXPECT_EQ(storage.GetTrees().begin()->second.use_count(), 2);
  EXPECT_EQ(storage.GetCommits().begin()->second.use_count(), 2);
}

TEST(MemObjectsStorage, CloneHasTheSameContent) {
  const MemObjectsStorage storage = SmallStorage();
  const std::unique_ptr<IObjectsStorage> clone = storage.Clone();
  EXPECT_EQ(clone->GetCommitCount(), 1u);
  EXPECT_EQ(clone->GetTreeCount(), 1u);
  EXPECT_EQ(clone->GetBlobCount(), 1u);
  EXPECT_EQ(clone->GetHead(TAL_WIDE("master")), storage.GetHead(TAL_WIDE("master")));
  EXPECT_TRUE(clone->BranchExist(TAL_WIDE("topic")));
  EXPECT_FALSE(clone->GetHead(TAL_WIDE("topic")));
}

TEST(MemObjectsStorage, CopyAssignmentReplacesTheContent) {
  const MemObjectsStorage source = SmallStorage();
  MemObjectsStorage target({TAL_WIDE("other")});
  target.AddBlob(SharedBlob("gone"));
  target = source;
  EXPECT_FALSE(target.BranchExist(TAL_WIDE("other")));
  EXPECT_FALSE(target.GetBlob(SharedBlob("gone")->GetId()));
  EXPECT_TRUE(target.GetBlob(SharedBlob("bytes")->GetId()));
  EXPECT_THAT(target.GetRefs(), SizeIs(2));
  EXPECT_EQ(source.GetBlobCount(), 1u);
}

TEST(MemObjectsStorage, AssignmentToItselfChangesNothing) {
  MemObjectsStorage storage = SmallStorage();
  MemObjectsStorage& alias = storage;
  storage = alias;
  EXPECT_EQ(storage.GetCommitCount(), 1u);
  EXPECT_THAT(storage.GetRefs(), SizeIs(2));
  storage = std::move(alias);
  EXPECT_EQ(storage.GetCommitCount(), 1u);
  EXPECT_EQ(storage.GetTreeCount(), 1u);
  EXPECT_EQ(storage.GetBlobCount(), 1u);
  EXPECT_TRUE(storage.GetHead(TAL_WIDE("master")));
}

TEST(MemObjectsStorage, MovedFromStorageIsEmptyAndUsable) {
  MemObjectsStorage source = SmallStorage();
  const MemObjectsStorage target(std::move(source));
  EXPECT_EQ(target.GetCommitCount(), 1u);
  EXPECT_EQ(source.GetCommitCount(), 0u);
  EXPECT_EQ(source.GetTreeCount(), 0u);
  EXPECT_EQ(source.GetBlobCount(), 0u);
  EXPECT_FALSE(source.BranchExist(TAL_WIDE("master")));
  EXPECT_TRUE(source.CreateBranch(TAL_WIDE("again"), nullptr));
  source.AddBlob(SharedBlob("bytes"));
  EXPECT_EQ(source.GetBlobCount(), 1u);
}

TEST(MemObjectsStorage, MoveAssignmentReleasesTheOldContent) {
  MemObjectsStorage source = SmallStorage();
  MemObjectsStorage target;
  const auto blob = SharedBlob("old");
  target.AddBlob(blob);
  target = std::move(source);
  EXPECT_EQ(blob.use_count(), 1);
  EXPECT_FALSE(target.GetBlob(blob->GetId()));
  EXPECT_EQ(target.GetCommitCount(), 1u);
  EXPECT_THAT(source.GetRefs(), IsEmpty());
  EXPECT_EQ(source.GetBlobCount(), 0u);
}

TEST(MemObjectsStorage, HandlesKeepObjectsAfterTheStorageEnds) {
  cow_ptr<Commit> held;
  {
    Repository repository = NewRepository();
    const History history = DrawHistory(repository, "A-B");
    held = history.at("B");
  }
  EXPECT_EQ(ChainOf(held), "A-B");
  EXPECT_EQ(ListingOf(held), "lib/common=common name=B");
}

/// Hides what it has on request.
class HidingStorage final : public MemObjectsStorage {
 public:
  bool BranchExist(TalStringViewT<WideChar> name) const override {
    return !hides && MemObjectsStorage::BranchExist(name);
  }
  cow_ptr<Commit> GetCommit(const Id& id) const override {
    return hides ? nullptr : MemObjectsStorage::GetCommit(id);
  }
  bool hides = false;
};

TEST(DerivedStorage, DecidesWhichBranchesHaveAHead) {
  HidingStorage storage;
  const cow_ptr<Commit> commit = CommitOf("first");
  ASSERT_TRUE(storage.UpdateBranch(TAL_WIDE("master"), commit));
  storage.hides = true;
  EXPECT_FALSE(storage.GetHead(TAL_WIDE("master")));
  storage.hides = false;
  EXPECT_EQ(storage.GetHead(TAL_WIDE("master")), commit);
}

TEST(DerivedStorage, DecidesWhichCommitsAreDeleted) {
  HidingStorage storage;
  const cow_ptr<Commit> commit = CommitOf("first");
  storage.AddCommit(commit);
  storage.hides = true;
  storage.DeleteCommit(commit);
  EXPECT_EQ(storage.GetCommitCount(), 1U);
  storage.hides = false;
  storage.DeleteCommit(commit);
  EXPECT_EQ(storage.GetCommitCount(), 0U);
}

}  // namespace
}  // namespace TalVcs::Testing
