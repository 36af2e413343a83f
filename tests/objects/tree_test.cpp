#include <talvcs/objects/tree.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

constexpr char kEmptyTreeId[] = "6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321";
constexpr char kHelloId[] = "8aec4e4876f854f688d0ebfc8f37598f38e5fd6903cccc850ca36591175aeb60";
constexpr char kOneEntryId[] = "c91e041eb83553dc49f865126a6528e9a7d54180d7aeb53633121dff7d48cf66";
constexpr char kXId[] = "4b6cea43da6e13c24f191bcb97b51a58781d1ccdd8281d96291a2582f5177b78";

/// Returns the bytes before the name in a record.
std::string BlobWords() { return "100644 blob "; }
std::string TreeWords() { return "40000 tree "; }

/// Returns a record of the blob "x" under a name given in bytes.
std::string XRecord(const std::string& name) { return BlobWords() + name + '\0' + kXId; }

class TreeTest : public ::testing::Test {
 protected:
  Tree OfX(std::initializer_list<TalStringViewT<WideChar>> names) {
    Tree tree;
    for (const TalStringViewT<WideChar> name : names) {
      tree.AddBlob(&m_repository, name, BlobOf("x"));
    }
    return tree;
  }

  RecordingRepository m_repository;
};

TEST_F(TreeTest, HasItsTypeAndModeWords) {
  const Tree tree;
  EXPECT_EQ(Bytes(tree.GetHeader()), "tree");
  EXPECT_EQ(Bytes(tree.GetStoragePrefix()), "40000");
  EXPECT_EQ(Bytes(Tree::kType), "tree");
  EXPECT_EQ(Bytes(Tree::kMode), "40000");
}

TEST_F(TreeTest, EmptyTreeHasSevenPackedBytes) {
  const Tree tree;
  EXPECT_TRUE(tree.IsEmpty());
  EXPECT_EQ(tree.GetLocalObjectCount(), 0U);
  EXPECT_EQ(tree.GetLocalBlobCount(), 0U);
  EXPECT_EQ(tree.GetDeepBlobCount(), 0U);
  EXPECT_EQ(tree.GetData().GetSize(), 0U);
  EXPECT_EQ(Hex(Bytes(tree.GetPackedData())), "74 72 65 65 20 30 00");
  EXPECT_EQ(IdOf(tree), kEmptyTreeId);
}

TEST_F(TreeTest, OneEntryGivesOneRecord) {
  const Tree tree = TreeOf(&m_repository, {{"a", "hello"}});
  EXPECT_EQ(Bytes(tree.GetData()), std::string("100644 blob a\0", 14) + kHelloId);
  EXPECT_EQ(tree.GetData().GetSize(), 78U);
  EXPECT_EQ(Bytes(tree.GetPackedData()).substr(0, 8), std::string("tree 78\0", 8));
  EXPECT_EQ(IdOf(tree), kOneEntryId);
}

TEST_F(TreeTest, SubtreeRecordHasItsModeAndId) {
  const Tree tree = TreeOf(&m_repository, {{"d/a", "hello"}});
  EXPECT_EQ(Bytes(tree.GetData()), std::string("40000 tree d\0", 13) + kOneEntryId);
  EXPECT_EQ(IdOf(tree), "b1e05c4ddbcb1565660288aa0addc71d25e677193a848ba6aad63c04d2f8f336");
}

TEST_F(TreeTest, RecordsOfBothKindsMixInTheOrderOfNames) {
  const Tree tree =
      TreeOf(&m_repository, {{"b", "x"}, {"c/a", "hello"}, {"a/a", "hello"}, {"B", "x"}});
  EXPECT_EQ(Bytes(tree.GetData()), XRecord("B") + TreeWords() + std::string("a\0", 2) +
                                       kOneEntryId + XRecord("b") + TreeWords() +
                                       std::string("c\0", 2) + kOneEntryId);
  EXPECT_EQ(IdOf(tree), "fec90e4cb580b25d26caa19ecbe143bdf1f385111970b367346d9df147d0f3c5");
}

TEST_F(TreeTest, NameComesBeforeLongerNamesThatBeginWithIt) {
  const Tree tree = OfX({TAL_WIDE("ab"), TAL_WIDE("a"), TAL_WIDE("a.b"), TAL_WIDE("a-b")});
  EXPECT_EQ(Bytes(tree.GetData()), XRecord("a") + XRecord("a-b") + XRecord("a.b") + XRecord("ab"));
}

TEST_F(TreeTest, OrderOfInsertionDoesNotMatter) {
  const Tree first = TreeOf(&m_repository, {{"a", "1"}, {"b", "2"}, {"d/x", "3"}, {"d/y", "4"}});
  const Tree second = TreeOf(&m_repository, {{"d/y", "4"}, {"b", "2"}, {"d/x", "3"}, {"a", "1"}});
  EXPECT_EQ(Bytes(first.GetData()), Bytes(second.GetData()));
  EXPECT_EQ(IdOf(first), IdOf(second));
  EXPECT_EQ(IdOf(first), "5316cd994e030308ded39e66677c99c0467657b22b7ae857cb69edf4347144be");
}

TEST_F(TreeTest, NamesThatDifferInCaseAreTwoEntries) {
  const Tree tree = OfX({TAL_WIDE("name"), TAL_WIDE("Name")});
  EXPECT_EQ(tree.GetLocalObjectCount(), 2U);
  EXPECT_EQ(Bytes(tree.GetData()), XRecord("Name") + XRecord("name"));
}

TEST_F(TreeTest, NonAsciiNameTakesItsUtf8Length) {
  const Tree tree = OfX({TAL_WIDE("\u00E9\u20AC")});
  EXPECT_EQ(Bytes(tree.GetData()), XRecord("\xC3\xA9\xE2\x82\xAC"));
  EXPECT_EQ(Bytes(tree.GetPackedData()).substr(0, 8), std::string("tree 82\0", 8));
  EXPECT_EQ(IdOf(tree), "76f73f367ebdbf80156ac5a67f2ff9d6bb0f3609db8318e02f6f708427db26a7");
}

TEST_F(TreeTest, RecordsFollowCodeUnitsNotUtf8) {
  // U+FF5E is EF BD 9E and U+1F600 is F0 9F 98 80, but the units of the latter begin with D83D.
  const Tree tree = OfX({TAL_WIDE("\uFF5E"), TAL_WIDE("\U0001F600")});
  EXPECT_EQ(Bytes(tree.GetData()), XRecord("\xF0\x9F\x98\x80") + XRecord("\xEF\xBD\x9E"));
  EXPECT_EQ(IdOf(tree), "b35cd7ba27a3d2dbe31529b4ea8efa756ace923a70ba95313f0b5349eff20333");
}

TEST_F(TreeTest, LoneSurrogateIsWrittenInItsGeneralisedForm) {
  const Tree tree = OfX({TAL_WIDE("a\xD800"), TAL_WIDE("a\xDC00")});
  EXPECT_EQ(Bytes(tree.GetData()), XRecord("a\xED\xA0\x80") + XRecord("a\xED\xB0\x80"));
}

TEST_F(TreeTest, NameEndsAtZeroWhereItIsWritten) {
  const Tree tree = OfX({TalStringViewT<WideChar>(TAL_WIDE("ab\0cd"), 5)});
  EXPECT_EQ(Bytes(tree.GetData()), XRecord("ab"));
  EXPECT_TRUE(tree.GetLocalBlob(TalStringViewT<WideChar>(TAL_WIDE("ab\0cd"), 5)) != nullptr);
  EXPECT_TRUE(tree.GetLocalBlob(TAL_WIDE("ab")) == nullptr);
}

TEST_F(TreeTest, HiddenSubtreeIsCountedAndNotWritten) {
  Tree tree = TreeOf(&m_repository, {{"a/deep", "hello"}});
  tree.AddBlob(&m_repository, TAL_WIDE("a"), BlobOf("x"));
  EXPECT_EQ(tree.GetLocalObjectCount(), 2U);
  EXPECT_EQ(tree.GetLocalBlobCount(), 1U);
  EXPECT_EQ(tree.GetDeepBlobCount(), 2U);
  EXPECT_EQ(Bytes(tree.GetData()), XRecord("a"));
  EXPECT_TRUE(tree.GetLocalTree(TAL_WIDE("a")) != nullptr);
}

TEST_F(TreeTest, IdDoesNotDependOnAHiddenSubtree) {
  Tree tree = OfX({TAL_WIDE("a")});
  const std::string id = IdOf(tree);
  tree.AddBlob(&m_repository, TAL_WIDE("a/b/c"), BlobOf("hidden"));
  EXPECT_EQ(IdOf(tree), id);
  EXPECT_EQ(id, "49743a2ae9aebeb4f073ccd3064e27dd6a0cf238e764238467b7c4eda3a8a5a6");
}

TEST_F(TreeTest, CountsOfALevelAndBelow) {
  const Tree tree =
      TreeOf(&m_repository, {{"a", "1"}, {"b", "2"}, {"d/a", "1"}, {"d/e/a", "1"}, {"f/a", "1"}});
  EXPECT_EQ(tree.GetLocalObjectCount(), 4U);
  EXPECT_EQ(tree.GetLocalBlobCount(), 2U);
  EXPECT_EQ(tree.GetDeepBlobCount(), 5U);
  EXPECT_FALSE(tree.IsEmpty());
}

TEST_F(TreeTest, BlobReachedByTwoPathsCountsTwice) {
  Tree tree = TreeOf(&m_repository, {{"d/a", "1"}, {"d/b", "2"}});
  tree.AddTree(&m_repository, TAL_WIDE("e"), *tree.GetLocalTree(TAL_WIDE("d")));
  EXPECT_TRUE(tree.GetLocalTree(TAL_WIDE("d")) == tree.GetLocalTree(TAL_WIDE("e")));
  EXPECT_EQ(tree.GetDeepBlobCount(), 4U);
}

TEST_F(TreeTest, CachedDataLastsUntilTheNextChange) {
  Tree tree = OfX({TAL_WIDE("a")});
  const Buffer* const data = &tree.GetData();
  EXPECT_EQ(&tree.GetData(), data);
  tree.GetId();
  tree.GetPackedData();
  tree.AddBlob(&m_repository, TAL_WIDE("b"), BlobOf("x"));
  EXPECT_EQ(Bytes(tree.GetData()), XRecord("a") + XRecord("b"));
  EXPECT_EQ(Bytes(tree.GetPackedData()),
            std::string("tree 156\0", 9) + XRecord("a") + XRecord("b"));
  EXPECT_EQ(IdOf(tree), "9c3d38178fb9fcec4ffebe3d093458261407a31928e9af78f0a38368ea26dd70");
}

TEST_F(TreeTest, BuildPackedDataGivesThePackedForm) {
  const Tree tree = OfX({TAL_WIDE("a")});
  EXPECT_EQ(Bytes(tree.BuildPackedData()), std::string("tree 78\0", 8) + XRecord("a"));
}

}  // namespace
}  // namespace TalVcs::Testing
