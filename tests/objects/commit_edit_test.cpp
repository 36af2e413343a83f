#include <talvcs/objects/commit.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <string>

namespace TalVcs::Testing {
namespace {

constexpr char kEmptyTreeId[] = "6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321";
constexpr char kAId[] = "49743a2ae9aebeb4f073ccd3064e27dd6a0cf238e764238467b7c4eda3a8a5a6";

std::string RootIdOf(const Commit& commit) { return Ascii(commit.GetTree()->GetRootId()); }

class CommitEdit : public ::testing::Test {
 protected:
  CommitEdit() { m_commit.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x")); }

  void ExpectRootIsStored(const Commit& commit) const {
    const cow_ptr<Tree> root = commit.GetTree()->GetRoot();
    EXPECT_TRUE(root == m_repository.GetTreeFromStorage(root->GetId()));
  }

  RecordingRepository m_repository;
  Commit m_commit{nullptr, false};
};

TEST_F(CommitEdit, AddBlobReturnsTheCanonicalInstance) {
  const Blob blob = BlobOf("y");
  const cow_ptr<Blob> added = m_commit.AddBlob(&m_repository, TAL_WIDE("d/b"), blob);
  EXPECT_TRUE(added == m_repository.GetBlobFromStorage(blob.GetId()));
  EXPECT_TRUE(m_commit.GetBlob(TAL_WIDE("d/b")) == added);
}

TEST_F(CommitEdit, AddBlobToADefaultCommitMakesTreeAndRoot) {
  Commit commit;
  EXPECT_TRUE(commit.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x")) != nullptr);
  EXPECT_EQ(RootIdOf(commit), kAId);
  ExpectRootIsStored(commit);
}

TEST_F(CommitEdit, EachEditStoresItsRoot) {
  EXPECT_EQ(m_repository.GetTreeCount(), 1U);
  m_commit.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("x"));
  ExpectRootIsStored(m_commit);
  EXPECT_EQ(m_repository.GetTreeCount(), 2U);
  m_commit.AddBlob(&m_repository, TAL_WIDE("d/c"), BlobOf("x"));
  ExpectRootIsStored(m_commit);
  EXPECT_EQ(m_repository.GetTreeCount(), 4U);
}

TEST_F(CommitEdit, ChangeDropsTheCachedId) {
  const std::string id = IdOf(m_commit);
  m_commit.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("y"));
  EXPECT_NE(IdOf(m_commit), id);
  EXPECT_EQ(IdOf(m_commit), "14fb925cf562b5e2d46ea76b4c5df3e1e3e0fb0176ba9a8e4bc1c5c09e386369");
  m_commit.RemoveObject(&m_repository, TAL_WIDE("b"));
  EXPECT_EQ(IdOf(m_commit), id);
}

TEST_F(CommitEdit, DoesNotChangeTheStoredHead) {
  const auto head = Make<Commit>(m_commit);
  Commit next(head, false);
  next.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("y"));
  EXPECT_TRUE(head->GetBlob(TAL_WIDE("b")) == nullptr);
  EXPECT_TRUE(next.GetBlob(TAL_WIDE("b")) != nullptr);
  EXPECT_EQ(RootIdOf(*head), kAId);
  EXPECT_FALSE(next.GetTree() == head->GetTree());
}

TEST_F(CommitEdit, StoredRootsAreNeverChanged) {
  const cow_ptr<Tree> root = m_commit.GetTree()->GetRoot();
  m_commit.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("y"));
  EXPECT_EQ(root->GetLocalObjectCount(), 1U);
  EXPECT_TRUE(m_repository.GetTreeFromStorage(root->GetId()) == root);
}

TEST_F(CommitEdit, RemovingAnAddedBlobRestoresTheCanonicalRoot) {
  const cow_ptr<Tree> root = m_commit.GetTree()->GetRoot();
  m_commit.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("y"));
  EXPECT_TRUE(m_commit.RemoveObject(&m_repository, TAL_WIDE("b")));
  EXPECT_TRUE(m_commit.GetTree()->GetRoot() == root);
}

TEST_F(CommitEdit, RemovalOfTheLastBlobLeavesAnEmptyTree) {
  EXPECT_TRUE(m_commit.RemoveObject(&m_repository, TAL_WIDE("a")));
  EXPECT_EQ(RootIdOf(m_commit), kEmptyTreeId);
  ExpectRootIsStored(m_commit);
}

TEST_F(CommitEdit, RemovalOfAMissingPathReturnsFalseAndKeepsTheCaches) {
  const std::string id = IdOf(m_commit);
  const Buffer* const text = &m_commit.GetData();
  const std::string bytes = Bytes(*text);
  EXPECT_FALSE(m_commit.RemoveObject(&m_repository, TAL_WIDE("b")));
  EXPECT_FALSE(m_commit.RemoveObject(&m_repository, TAL_WIDE("/")));
  EXPECT_EQ(IdOf(m_commit), id);
  EXPECT_EQ(Bytes(m_commit.GetData()), bytes);
}

TEST_F(CommitEdit, RemovalWithoutTreeOrRootReturnsFalse) {
  Commit no_tree;
  EXPECT_FALSE(no_tree.RemoveObject(&m_repository, TAL_WIDE("a")));
  EXPECT_TRUE(no_tree.GetTree() == nullptr);
  Commit no_root(nullptr, false);
  EXPECT_FALSE(no_root.RemoveObject(&m_repository, TAL_WIDE("a")));
  EXPECT_TRUE(no_root.GetTree()->GetRoot() == nullptr);
}

TEST_F(CommitEdit, FailedRemovalCopiesASharedTree) {
  const auto head = Make<Commit>(m_commit);
  Commit next(head, false);
  EXPECT_FALSE(next.RemoveObject(&m_repository, TAL_WIDE("b")));
  EXPECT_FALSE(next.GetTree() == head->GetTree());
  EXPECT_FALSE(next.GetTree()->GetRoot() == head->GetTree()->GetRoot());
  EXPECT_EQ(RootIdOf(next), kAId);
}

TEST_F(CommitEdit, FailedAddLeavesAnEmptyRootThatIsNotStored) {
  Commit commit(nullptr, false);
  EXPECT_TRUE(commit.AddBlob(&m_repository, TAL_WIDE("/"), BlobOf("x")) == nullptr);
  EXPECT_EQ(RootIdOf(commit), kEmptyTreeId);
  EXPECT_TRUE(m_repository.GetTreeFromStorage(commit.GetTree()->GetRootId()) == nullptr);
  EXPECT_EQ(IdOf(commit), "bbdc78b91a9e560567b7dcabf000956be23c5d85519859b7473a2f0911ac7b1a");
}

TEST_F(CommitEdit, FailedAddKeepsWhatWasCached) {
  Commit commit(nullptr, false);
  const std::string id = IdOf(commit);
  EXPECT_TRUE(commit.AddBlob(nullptr, TAL_WIDE("a"), BlobOf("x")) == nullptr);
  EXPECT_EQ(IdOf(commit), id);
  EXPECT_EQ(Bytes(commit.GetData()), Bytes(Commit(nullptr, false).GetData()));
  EXPECT_EQ(RootIdOf(commit), kEmptyTreeId);
  commit.SetDescription(TAL_WIDE(""));
  EXPECT_EQ(IdOf(commit), "bbdc78b91a9e560567b7dcabf000956be23c5d85519859b7473a2f0911ac7b1a");
}

TEST_F(CommitEdit, FailedAddKeepsACachedTextWithoutId) {
  Commit commit(nullptr, false);
  const std::string text = Bytes(commit.GetData());
  EXPECT_TRUE(commit.AddObject(&m_repository, TAL_WIDE("a"), Id()) == nullptr);
  EXPECT_EQ(Bytes(commit.GetData()), text);
  EXPECT_EQ(IdOf(commit), "4c1ce23ea960edb77a50757723d57aab990fa80e70debadf7667a4f4452e9a85");
}

TEST_F(CommitEdit, FailedAddCopiesASharedTree) {
  const auto head = Make<Commit>(m_commit);
  Commit next(head, false);
  EXPECT_TRUE(next.AddBlob(&m_repository, TAL_WIDE(""), BlobOf("y")) == nullptr);
  EXPECT_FALSE(next.GetTree() == head->GetTree());
  EXPECT_FALSE(next.GetTree()->GetRoot() == head->GetTree()->GetRoot());
  EXPECT_EQ(RootIdOf(next), kAId);
  EXPECT_EQ(m_repository.GetTreeCount(), 1U);
}

TEST_F(CommitEdit, WithoutRepositoryNothingIsAdded) {
  const std::string id = IdOf(m_commit);
  EXPECT_TRUE(m_commit.AddBlob(nullptr, TAL_WIDE("b"), BlobOf("y")) == nullptr);
  EXPECT_EQ(IdOf(m_commit), id);
  EXPECT_TRUE(m_commit.GetBlob(TAL_WIDE("b")) == nullptr);
}

TEST_F(CommitEdit, RemovalWithoutRepositoryStoresNothing) {
  EXPECT_TRUE(m_commit.RemoveObject(nullptr, TAL_WIDE("a")));
  EXPECT_EQ(RootIdOf(m_commit), kEmptyTreeId);
  EXPECT_EQ(m_repository.GetTreeCount(), 1U);
  EXPECT_EQ(IdOf(m_commit), "bbdc78b91a9e560567b7dcabf000956be23c5d85519859b7473a2f0911ac7b1a");
}

TEST_F(CommitEdit, AddObjectAddsAStoredObject) {
  const auto tree =
      m_repository.SyncWithStorage(Make<Tree>(TreeOf(&m_repository, {{"a", "hello"}})));
  const auto added = m_commit.AddObject(&m_repository, TAL_WIDE("d/t"), tree->GetId());
  EXPECT_EQ(added.get(), tree.get());
  EXPECT_EQ(RootIdOf(m_commit), "d1aa103436e88e024722e6b838f2bd976dd1857f357b16a0fccc59b6b0f70ffc");
  ExpectRootIsStored(m_commit);
}

TEST_F(CommitEdit, AddObjectReturnsNullForUnknownId) {
  const std::string id = IdOf(m_commit);
  EXPECT_TRUE(m_commit.AddObject(&m_repository, TAL_WIDE("b"), Id(BufferOf("?"))) == nullptr);
  EXPECT_EQ(IdOf(m_commit), id);
}

TEST_F(CommitEdit, GetTreeReturnsASeparateHandle) {
  m_commit.AddBlob(&m_repository, TAL_WIDE("d/b"), BlobOf("y"));
  cow_ptr<CommitTree> handle = m_commit.GetTree(TAL_WIDE("d"));
  ASSERT_TRUE(handle != nullptr);
  EXPECT_EQ(handle.use_count(), 1);
  handle.write()->AddBlob(&m_repository, TAL_WIDE("c"), BlobOf("z"));
  EXPECT_TRUE(m_commit.GetBlob(TAL_WIDE("d/c")) == nullptr);
  EXPECT_TRUE(m_commit.GetTree(TAL_WIDE("a")) == nullptr);
  EXPECT_TRUE(m_commit.GetTree(TAL_WIDE("x")) == nullptr);
  EXPECT_TRUE(m_commit.GetTree(TAL_WIDE("")) == nullptr);
}

TEST_F(CommitEdit, ReadingDoesNotCallTheRepository) {
  m_repository.ForgetCalls();
  m_commit.GetBlob(TAL_WIDE("a"));
  m_commit.GetTree(TAL_WIDE("a"));
  m_commit.GetId();
  EXPECT_TRUE(m_repository.Calls().empty());
}

TEST_F(CommitEdit, ReplaceRootKeepsTheCachedIdAndText) {
  const std::string id = IdOf(m_commit);
  const std::string text = Bytes(m_commit.GetData());
  m_commit.ReplaceRoot(&m_repository, Make<Tree>(TreeOf(&m_repository, {{"b", "y"}})));
  EXPECT_EQ(RootIdOf(m_commit), "bdda7908f62706cde7c962a2b3f58d952ae6a05082c9ef4e8e447365ae3fda14");
  EXPECT_EQ(IdOf(m_commit), id);
  EXPECT_EQ(Bytes(m_commit.GetData()), text);
  m_commit.SetDescription(TAL_WIDE(""));
  EXPECT_EQ(IdOf(m_commit), "86330efb348154f4960004bec8a032efc82598ee771ab4fc3389673c4c7f13e8");
}

TEST_F(CommitEdit, ReplaceRootKeepsTheIdInACopyToo) {
  const std::string id = IdOf(m_commit);
  m_commit.ReplaceRoot(&m_repository, Make<Tree>());
  const Commit copy(m_commit);
  EXPECT_EQ(IdOf(copy), id);
  EXPECT_EQ(RootIdOf(copy), kEmptyTreeId);
}

TEST_F(CommitEdit, ReplaceRootKeepsACachedText) {
  const std::string text = Bytes(m_commit.GetData());
  m_commit.ReplaceRoot(&m_repository, Make<Tree>());
  EXPECT_EQ(Bytes(m_commit.GetData()), text);
  EXPECT_EQ(IdOf(m_commit), "fd954580a2d72bdbc3fbbc2e5bae962dedd139f098e75c78318872a6692800cd");
}

TEST_F(CommitEdit, ReplaceRootKeepsACachedPackedForm) {
  const std::string packed = Bytes(m_commit.GetPackedData());
  m_commit.ReplaceRoot(&m_repository, Make<Tree>());
  EXPECT_EQ(Bytes(m_commit.GetPackedData()), packed);
  EXPECT_EQ(IdOf(m_commit), "fd954580a2d72bdbc3fbbc2e5bae962dedd139f098e75c78318872a6692800cd");
}

TEST_F(CommitEdit, ReplaceRootWithoutCachesChangesTheId) {
  m_commit.ReplaceRoot(&m_repository, Make<Tree>());
  EXPECT_EQ(IdOf(m_commit), "bbdc78b91a9e560567b7dcabf000956be23c5d85519859b7473a2f0911ac7b1a");
  ExpectRootIsStored(m_commit);
}

TEST_F(CommitEdit, ReplaceRootUsesTheCanonicalInstance) {
  const cow_ptr<Tree> root = m_commit.GetTree()->GetRoot();
  Commit other(nullptr, false);
  other.ReplaceRoot(&m_repository, Make<Tree>(*root));
  EXPECT_TRUE(other.GetTree()->GetRoot() == root);
}

TEST_F(CommitEdit, ReplaceRootByNullRemovesTheRoot) {
  m_commit.ReplaceRoot(&m_repository, nullptr);
  EXPECT_TRUE(m_commit.GetTree()->GetRoot() == nullptr);
  EXPECT_EQ(IdOf(m_commit), "4c1ce23ea960edb77a50757723d57aab990fa80e70debadf7667a4f4452e9a85");
  EXPECT_EQ(m_repository.GetTreeCount(), 1U);
}

TEST_F(CommitEdit, ReplaceRootWithoutRepositoryUsesTheArgument) {
  const auto tree = Make<Tree>();
  m_commit.ReplaceRoot(nullptr, tree);
  EXPECT_TRUE(m_commit.GetTree()->GetRoot() == tree);
  EXPECT_EQ(m_repository.GetTreeCount(), 1U);
}

TEST_F(CommitEdit, ReplaceRootDoesNotChangeOtherHandlesOnTheTree) {
  const Commit copy(m_commit);
  m_commit.ReplaceRoot(&m_repository, Make<Tree>());
  EXPECT_EQ(RootIdOf(copy), kAId);
}

}  // namespace
}  // namespace TalVcs::Testing
