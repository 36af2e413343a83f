#include <talvcs/objects/tree.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Mode = RecordingRepository::Mode;

constexpr char kEmptyTreeId[] = "6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321";

class TreePaths : public ::testing::Test {
 protected:
  /// Returns how often the repository was called to store a tree.
  std::ptrdiff_t StoredTrees() const {
    return std::count(m_repository.Calls().begin(), m_repository.Calls().end(),
                      "SyncWithStorage(tree)");
  }

  RecordingRepository m_repository;
  Tree m_tree;
};

TEST_F(TreePaths, AddBlobReturnsNullForEmptyPath) {
  for (const char* path : {"", "/", "///"}) {
    EXPECT_TRUE(m_tree.AddBlob(&m_repository, Wide(path), BlobOf("x")) == nullptr);
  }
  EXPECT_TRUE(m_tree.IsEmpty());
  EXPECT_EQ(m_repository.GetBlobCount(), 0U);
}

TEST_F(TreePaths, AddBlobWithoutRepositoryReturnsNullAndChangesNothing) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/a"), BlobOf("x"));
  const std::string id = IdOf(m_tree);
  EXPECT_TRUE(m_tree.AddBlob(nullptr, TAL_WIDE("b"), BlobOf("y")) == nullptr);
  EXPECT_TRUE(m_tree.AddBlob(nullptr, TAL_WIDE("d/b"), BlobOf("y")) == nullptr);
  EXPECT_TRUE(m_tree.AddBlob(nullptr, TAL_WIDE("e/f/b"), BlobOf("y")) == nullptr);
  EXPECT_EQ(IdOf(m_tree), id);
  EXPECT_EQ(m_tree.GetLocalObjectCount(), 1U);
}

TEST_F(TreePaths, AddBlobReturnsTheCanonicalInstance) {
  const Blob blob = BlobOf("x");
  const cow_ptr<Blob> added = m_tree.AddBlob(&m_repository, TAL_WIDE("a"), blob);
  EXPECT_NE(added.get(), &blob);
  EXPECT_TRUE(added == m_repository.GetBlobFromStorage(blob.GetId()));
  EXPECT_TRUE(added == m_tree.GetLocalBlob(TAL_WIDE("a")));
}

TEST_F(TreePaths, AddBlobMakesTheMissingDirectories) {
  const auto blob = m_tree.AddBlob(&m_repository, TAL_WIDE("a/b/c/d/e"), BlobOf("x"));
  for (const char* prefix : {"a", "a/b", "a/b/c", "a/b/c/d"}) {
    EXPECT_TRUE(m_tree.GetDeepTree(Wide(prefix)) != nullptr) << prefix;
  }
  EXPECT_TRUE(m_tree.GetDeepBlob(TAL_WIDE("a/b/c/d/e")) == blob);
  EXPECT_EQ(IdOf(m_tree), "7906f404f43944860bf1fe670015ea29359411d03b822dc26a5b86ac3b685ea8");
}

TEST_F(TreePaths, AddBlobStoresEachTreeOnThePathExceptTheTop) {
  for (const char* path : {"a", "1/a", "2/2/a", "3/3/3/a", "4/4/4/4/a", "5/5/5/5/5/a"}) {
    RecordingRepository repository;
    Tree tree;
    tree.AddBlob(&repository, Wide(path), BlobOf("x"));
    const auto directories = std::count(path, path + std::string_view(path).size(), '/');
    EXPECT_EQ(repository.GetTreeCount(), static_cast<std::uint64_t>(directories)) << path;
    EXPECT_EQ(repository.GetBlobCount(), 1U);
    EXPECT_TRUE(repository.GetTreeFromStorage(tree.GetId()) == nullptr);
  }
}

TEST_F(TreePaths, TreesOnThePathAreCanonicalInstances) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("a/b/c"), BlobOf("x"));
  for (const char* path : {"a", "a/b"}) {
    const cow_ptr<Tree> tree = m_tree.GetDeepTree(Wide(path));
    EXPECT_TRUE(tree == m_repository.GetTreeFromStorage(tree->GetId())) << path;
  }
}

TEST_F(TreePaths, ReplacedTreesStayStoredAndUnchanged) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/a"), BlobOf("x"));
  const cow_ptr<Tree> before = m_tree.GetLocalTree(TAL_WIDE("d"));
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/b"), BlobOf("y"));
  EXPECT_EQ(before->GetLocalObjectCount(), 1U);
  EXPECT_EQ(IdOf(*before), "49743a2ae9aebeb4f073ccd3064e27dd6a0cf238e764238467b7c4eda3a8a5a6");
  EXPECT_EQ(IdOf(*m_tree.GetLocalTree(TAL_WIDE("d"))),
            "b00c931357a2d58c97b52aee66701b53f8dab805ebfe6965d259bfef71f94318");
  EXPECT_EQ(m_repository.GetTreeCount(), 2U);
}

TEST_F(TreePaths, EditSharesOtherDirectories) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/a"), BlobOf("x"));
  m_tree.AddBlob(&m_repository, TAL_WIDE("e/a"), BlobOf("y"));
  const cow_ptr<Tree> other = m_tree.GetLocalTree(TAL_WIDE("d"));
  m_tree.AddBlob(&m_repository, TAL_WIDE("e/b"), BlobOf("z"));
  EXPECT_TRUE(m_tree.GetLocalTree(TAL_WIDE("d")) == other);
}

TEST_F(TreePaths, EqualBytesUnderTwoPathsShareOneInstance) {
  const auto first = m_tree.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x"));
  const auto second = m_tree.AddBlob(&m_repository, TAL_WIDE("d/b"), BlobOf("x"));
  EXPECT_TRUE(first == second);
  EXPECT_EQ(m_repository.GetBlobCount(), 1U);
  EXPECT_EQ(m_tree.GetDeepBlobCount(), 2U);
}

TEST_F(TreePaths, StoredInstanceIsCountedOnceForEachHolder) {
  const cow_ptr<Blob> blob = m_tree.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x"));
  EXPECT_EQ(blob.use_count(), 3);  // this handle, the table of the repository, the entry
  m_tree.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("x"));
  EXPECT_EQ(blob.use_count(), 4);
  m_tree.RemoveObject(&m_repository, TAL_WIDE("a"));
  EXPECT_EQ(blob.use_count(), 3);
}

TEST_F(TreePaths, StoredInstanceSharesTheBytesOfTheArgument) {
  const Blob blob = BlobOf("the bytes of a file");
  const cow_ptr<Blob> added = m_tree.AddBlob(&m_repository, TAL_WIDE("a"), blob);
  EXPECT_EQ(added->GetData().GetSegment(0).data(), blob.GetData().GetSegment(0).data());
}

TEST_F(TreePaths, AddOfAMovedFromBlobFindsTheStoredOneByItsOldId) {
  Blob source = BlobOf("x");
  const cow_ptr<Blob> stored = m_tree.AddBlob(&m_repository, TAL_WIDE("a"), source);
  source.GetId();
  const Blob target(std::move(source));
  // NOLINTNEXTLINE(bugprone-use-after-move)
  EXPECT_TRUE(m_tree.AddBlob(&m_repository, TAL_WIDE("b"), source) == stored);
  EXPECT_EQ(IdOf(m_tree), "9c3d38178fb9fcec4ffebe3d093458261407a31928e9af78f0a38368ea26dd70");
}

TEST_F(TreePaths, AddBlobReplacesABlob) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x"));
  const std::string id = IdOf(m_tree);
  m_tree.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("y"));
  EXPECT_NE(IdOf(m_tree), id);
  EXPECT_EQ(IdOf(m_tree), "359727dfda927c02fd9e9a8e15de3e9f1547ec9979de9592c63b2312acb4770f");
  EXPECT_EQ(m_tree.GetLocalObjectCount(), 1U);
}

TEST_F(TreePaths, ExtraSeparatorsHaveNoEffect) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("//d///a//"), BlobOf("x"));
  EXPECT_EQ(IdOf(m_tree), "570a67fc19fe5e2b5bcea621766e14f2097795bc360133e2db2ea0518ef38529");
  EXPECT_TRUE(m_tree.GetDeepBlob(TAL_WIDE("/d/a/")) != nullptr);
  EXPECT_TRUE(m_tree.RemoveObject(&m_repository, TAL_WIDE("d//a")));
}

TEST_F(TreePaths, AddBlobUnderTheNameOfASubtreeHidesIt) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("a/b"), BlobOf("x"));
  const cow_ptr<Blob> blob = m_tree.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("y"));
  EXPECT_TRUE(m_tree.GetLocalTree(TAL_WIDE("a")) != nullptr);
  EXPECT_EQ(m_tree.GetLocalObject(TAL_WIDE("a")).get(), blob.get());
  EXPECT_TRUE(m_tree.GetDeepBlob(TAL_WIDE("a/b")) != nullptr);
}

TEST_F(TreePaths, AddBlobThroughABlobAddsAHiddenSubtree) {
  const cow_ptr<Blob> blob = m_tree.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("y"));
  const std::string id = IdOf(m_tree);
  EXPECT_TRUE(m_tree.AddBlob(&m_repository, TAL_WIDE("a/b"), BlobOf("x")) != nullptr);
  EXPECT_EQ(IdOf(m_tree), id);
  EXPECT_EQ(m_tree.GetLocalObject(TAL_WIDE("a")).get(), blob.get());
  EXPECT_TRUE(m_tree.GetDeepBlob(TAL_WIDE("a/b")) != nullptr);
  EXPECT_EQ(m_tree.GetLocalObjectCount(), 2U);
}

TEST_F(TreePaths, AddTreeAddsACopyAndReturnsTheCanonicalInstance) {
  Tree subtree = TreeOf(&m_repository, {{"a", "x"}});
  const cow_ptr<Tree> added = m_tree.AddTree(&m_repository, TAL_WIDE("d/e"), subtree);
  subtree.AddBlob(&m_repository, TAL_WIDE("later"), BlobOf("z"));
  EXPECT_TRUE(added == m_tree.GetDeepTree(TAL_WIDE("d/e")));
  EXPECT_TRUE(added == m_repository.GetTreeFromStorage(added->GetId()));
  EXPECT_EQ(IdOf(m_tree), "910d65485a79aaab9d4f262c7a11ce4863b021185ad6894efb5771c18235e7ab");
}

TEST_F(TreePaths, AddTreeAcceptsAnEmptyTree) {
  EXPECT_TRUE(m_tree.AddTree(&m_repository, TAL_WIDE("d"), Tree()) != nullptr);
  EXPECT_EQ(m_tree.GetLocalObjectCount(), 1U);
  EXPECT_EQ(IdOf(m_tree), "398090ca64961f5ba1d66015bfdfa293c235479394ddf65f338c9726e9b1f8ef");
}

TEST_F(TreePaths, AddTreeFailsForEmptyPathAndNullRepository) {
  EXPECT_TRUE(m_tree.AddTree(&m_repository, TAL_WIDE("/"), Tree()) == nullptr);
  EXPECT_TRUE(m_tree.AddTree(nullptr, TAL_WIDE("a"), Tree()) == nullptr);
  EXPECT_TRUE(m_tree.AddTree(nullptr, TAL_WIDE("a/b"), Tree()) == nullptr);
  EXPECT_TRUE(m_tree.IsEmpty());
}

TEST_F(TreePaths, AddTreeUnderTheNameOfABlobIsHidden) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x"));
  const std::string id = IdOf(m_tree);
  m_tree.AddTree(&m_repository, TAL_WIDE("a"), TreeOf(&m_repository, {{"b", "y"}}));
  EXPECT_EQ(IdOf(m_tree), id);
  EXPECT_TRUE(m_tree.GetLocalBlob(TAL_WIDE("a")) != nullptr);
  EXPECT_TRUE(m_tree.GetLocalTree(TAL_WIDE("a")) != nullptr);
}

TEST_F(TreePaths, AddTreeOfItselfAddsItsPreviousState) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x"));
  m_tree.AddTree(&m_repository, TAL_WIDE("self"), m_tree);
  EXPECT_EQ(IdOf(m_tree), "30f2e1a234f7caa483971f42a5a2e7a0c711019c7116d75535e25cd937eee42f");
  m_tree.AddTree(&m_repository, TAL_WIDE("self/self"), m_tree);
  EXPECT_EQ(IdOf(m_tree), "105f518cf95ef25367e4ea39560aaec226f8db9abd509c1f745746a352bce5ed");
}

TEST_F(TreePaths, AddBlobAcceptsANameFromTheTreeItself) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("a rather long name of a blob"), BlobOf("x"));
  const std::vector<TalStringT<WideChar>> names = m_tree.GetLocalBlobPaths();
  m_tree.AddBlob(&m_repository, names[0], BlobOf("y"));
  EXPECT_EQ(IdOf(m_tree), "10c14e7240e5f073659eb693fe43ef90901df52093cc907e386b5207f98c44af");
}

TEST_F(TreePaths, AddObjectAddsStoredBlobsAndTrees) {
  const auto blob = m_repository.SyncWithStorage(SharedBlob("x"));
  const auto tree =
      m_repository.SyncWithStorage(Make<Tree>(TreeOf(&m_repository, {{"a", "hello"}})));
  EXPECT_EQ(m_tree.AddObject(&m_repository, TAL_WIDE("d/b"), blob->GetId()).get(), blob.get());
  EXPECT_EQ(m_tree.AddObject(&m_repository, TAL_WIDE("t"), tree->GetId()).get(), tree.get());
  EXPECT_EQ(IdOf(m_tree), "9bee24494e7d954fe89a7dc00240c1b296bc3b4a6cba4c3093beac738c07b68f");
}

TEST_F(TreePaths, AddObjectReturnsNullForUnknownIdOrEmptyPath) {
  const auto blob = m_repository.SyncWithStorage(SharedBlob("x"));
  const auto commit = m_repository.SyncWithStorage(Make<Commit>());
  EXPECT_TRUE(m_tree.AddObject(&m_repository, TAL_WIDE("a"), Id()) == nullptr);
  EXPECT_TRUE(m_tree.AddObject(&m_repository, TAL_WIDE("a"), Id(BufferOf("?"))) == nullptr);
  EXPECT_TRUE(m_tree.AddObject(&m_repository, TAL_WIDE("a"), commit->GetId()) == nullptr);
  EXPECT_TRUE(m_tree.AddObject(&m_repository, TAL_WIDE("/"), blob->GetId()) == nullptr);
  EXPECT_TRUE(m_tree.IsEmpty());
}

TEST_F(TreePaths, LookUpsReturnNullForEmptyPath) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/a"), BlobOf("x"));
  for (const char* path : {"", "/", "//"}) {
    EXPECT_TRUE(m_tree.GetDeepTree(Wide(path)) == nullptr);
    EXPECT_TRUE(m_tree.GetDeepBlob(Wide(path)) == nullptr);
    EXPECT_TRUE(m_tree.GetDeepObject(Wide(path)) == nullptr);
    EXPECT_FALSE(m_tree.GetIdByPath(Wide(path)).has_value());
  }
  EXPECT_TRUE(m_tree.GetDeepTree(array_view<const TalStringViewT<WideChar>>()) == nullptr);
  EXPECT_TRUE(m_tree.GetDeepBlob(array_view<const TalStringViewT<WideChar>>()) == nullptr);
}

TEST_F(TreePaths, LookUpsFindOnlyObjectsOfTheirType) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/e/a"), BlobOf("x"));
  EXPECT_TRUE(m_tree.GetDeepBlob(TAL_WIDE("d/e")) == nullptr);
  EXPECT_TRUE(m_tree.GetDeepTree(TAL_WIDE("d/e/a")) == nullptr);
  EXPECT_EQ(m_tree.GetDeepObject(TAL_WIDE("d/e")).get(), m_tree.GetDeepTree(TAL_WIDE("d/e")).get());
  EXPECT_EQ(m_tree.GetDeepObject(TAL_WIDE("d/e/a")).get(),
            m_tree.GetDeepBlob(TAL_WIDE("d/e/a")).get());
  EXPECT_TRUE(m_tree.GetDeepBlob(TAL_WIDE("d/e/a/b")) == nullptr);
}

TEST_F(TreePaths, LookUpsAcceptComponents) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/e/a"), BlobOf("x"));
  const std::vector<TalStringViewT<WideChar>> path{TAL_WIDE("d"), TAL_WIDE("e"), TAL_WIDE("a")};
  const array_view<const TalStringViewT<WideChar>> components = path;
  EXPECT_TRUE(m_tree.GetDeepBlob(components) == m_tree.GetDeepBlob(TAL_WIDE("d/e/a")));
  EXPECT_TRUE(m_tree.GetDeepTree(components.without_last(1)) ==
              m_tree.GetDeepTree(TAL_WIDE("d/e")));
  EXPECT_TRUE(m_tree.GetDeepTree(components.without_last(2)) == m_tree.GetLocalTree(TAL_WIDE("d")));
}

TEST_F(TreePaths, LocalLookUpsDoNotSplitNames) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/a"), BlobOf("x"));
  for (const char* name : {"", "d/a", "/d", "d/", "D"}) {
    EXPECT_TRUE(m_tree.GetLocalBlob(Wide(name)) == nullptr) << name;
    EXPECT_TRUE(m_tree.GetLocalTree(Wide(name)) == nullptr) << name;
    EXPECT_TRUE(m_tree.GetLocalObject(Wide(name)) == nullptr) << name;
  }
}

TEST_F(TreePaths, GetIdByPathReturnsTheIdOrNothing) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/a"), BlobOf("x"));
  EXPECT_EQ(Ascii(*m_tree.GetIdByPath(TAL_WIDE("d/a"))),
            "4b6cea43da6e13c24f191bcb97b51a58781d1ccdd8281d96291a2582f5177b78");
  EXPECT_EQ(Ascii(*m_tree.GetIdByPath(TAL_WIDE("d"))),
            "49743a2ae9aebeb4f073ccd3064e27dd6a0cf238e764238467b7c4eda3a8a5a6");
  EXPECT_FALSE(m_tree.GetIdByPath(TAL_WIDE("d/b")).has_value());
  EXPECT_FALSE(m_tree.GetIdByPath(TAL_WIDE("x/a")).has_value());
}

TEST_F(TreePaths, LookUpsDoNotCallTheRepository) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("d/a"), BlobOf("x"));
  m_repository.ForgetCalls();
  m_tree.GetDeepBlob(TAL_WIDE("d/a"));
  m_tree.GetIdByPath(TAL_WIDE("d"));
  EXPECT_TRUE(m_repository.Calls().empty());
}

TEST_F(TreePaths, EditStoresOneTreeForEachDirectory) {
  m_tree.AddBlob(&m_repository, TAL_WIDE("a/b/c/d"), BlobOf("x"));
  m_repository.ForgetCalls();
  m_tree.AddBlob(&m_repository, TAL_WIDE("a/b/c/e"), BlobOf("y"));
  EXPECT_EQ(m_repository.GetTreeCount(), 6U);
  EXPECT_EQ(StoredTrees(), 3);
}

TEST(TreePathsPassThrough, WithoutAStorageEntriesAreTheCopies) {
  RecordingRepository repository(Mode::PassThrough);
  Tree tree;
  const cow_ptr<Blob> added = tree.AddBlob(&repository, TAL_WIDE("d/a"), BlobOf("x"));
  EXPECT_TRUE(added != nullptr);
  EXPECT_TRUE(tree.GetDeepBlob(TAL_WIDE("d/a")) == added);
  EXPECT_EQ(repository.GetBlobCount(), 0U);
  EXPECT_NE(IdOf(tree), kEmptyTreeId);
}

}  // namespace
}  // namespace TalVcs::Testing
