// The parsers of packed blobs and trees: what each takes, one stream at a time.

#include <talvcs/foundation/helpers.h>

#include <gmock/gmock.h>
#include <tests/support/parsing_fixture.h>
#include <tests/support/shifted_reader.h>

#include <string>

namespace TalVcs::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using BlobParsing = Parsing;
using TreeParsing = Parsing;

TEST_F(BlobParsing, NoStreamOrAnotherTypeGivesNull) {
  StreamIO none;
  EXPECT_FALSE(Blob::Deserialize(none));
  for (const char* bytes : {"", "blob", "tree 0"}) {
    StreamIO stream(StreamOf(bytes));
    EXPECT_FALSE(Blob::Deserialize(stream)) << bytes;
  }
  StreamIO tree(StreamOf(Packed("tree", "x")));
  EXPECT_FALSE(Blob::Deserialize(tree));
}

TEST_F(BlobParsing, RestOfTheStreamIsTheContent) {
  const std::string bytes("a\0b\n", 4);
  StreamIO stream(StreamOf(Packed("blob", bytes)));
  const cow_ptr<Blob> blob = Blob::Deserialize(stream);
  EXPECT_EQ(TextOf(blob), bytes);
  EXPECT_EQ(IdOf(blob), IdOf(BlobOf(bytes)));
}

TEST_F(BlobParsing, HeaderWithoutContentGivesAnEmptyBlob) {
  StreamIO stream(StreamOf(Packed("blob", "")));
  const cow_ptr<Blob> blob = Blob::Deserialize(stream);
  ASSERT_TRUE(blob);
  EXPECT_EQ(blob->GetData().GetSize(), 0u);
}

TEST_F(BlobParsing, StreamIsReadFromItsPosition) {
  StreamIO stream(StreamOf("xx" + Packed("blob", "abc")));
  char skipped[2];
  ASSERT_TRUE(stream.Read(skipped, 2));
  EXPECT_EQ(TextOf(Blob::Deserialize(stream)), "abc");
}

TEST_F(BlobParsing, ContentHasAsManyBytesAsTheReaderReports) {
  const std::string packed = Packed("blob", "abcdef");
  ShiftedReader reader(StreamOf(packed), packed.size() - 4);
  EXPECT_EQ(TextOf(Blob::Deserialize(reader)), "abcd");
}

TEST_F(TreeParsing, EmptyIdNullRepositoryOrEmptyGetterGivesNull) {
  streams[FakeId(1)] = Packed("tree", Record("blob", "a", FakeId(7)));
  EXPECT_FALSE(Tree::Deserialize(Id(), &repository, Getter()));
  EXPECT_FALSE(Tree::Deserialize(IdOfText(FakeId(1)), nullptr, Getter()));
  EXPECT_FALSE(Tree::Deserialize(IdOfText(FakeId(1)), &repository, {}));
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(TreeParsing, DoesNotReadAStoredTree) {
  const cow_ptr<Tree> stored =
      repository.SyncWithStorage(Make<Tree>(TreeOf(&repository, {{"a", "1"}})));
  EXPECT_EQ(Tree::Deserialize(stored->GetId(), &repository, Getter()), stored);
  EXPECT_EQ(Tree::Deserialize(stored->GetId(), &repository, {}), stored);
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(TreeParsing, EmptyTreeReadsAsNull) {
  EXPECT_FALSE(ParseTree(""));
  EXPECT_EQ(repository.GetTreeCount(), 0u);
}

TEST_F(TreeParsing, ReturnsTheCanonicalInstance) {
  PutBlob(7, "1");
  const cow_ptr<Tree> tree = ParseTree(Record("blob", "a", FakeId(7)));
  EXPECT_EQ(ListingOf(tree), "a=1");
  EXPECT_EQ(repository.GetTreeFromStorage(tree->GetId()), tree);
}

TEST_F(TreeParsing, StoredTreeOfTheSameIdReplacesTheResult) {
  const cow_ptr<Tree> stored =
      repository.SyncWithStorage(Make<Tree>(TreeOf(&repository, {{"a", "1"}})));
  PutBlob(7, "1");
  EXPECT_EQ(ParseTree(Record("blob", "a", FakeId(7))), stored);
}

TEST_F(TreeParsing, DoesNotReadStoredBlobs) {
  const cow_ptr<Blob> blob = repository.SyncWithStorage(SharedBlob("1"));
  const cow_ptr<Tree> tree = ParseTree(Record("blob", "a", IdOf(blob)));
  EXPECT_EQ(tree->GetLocalBlob(TAL_WIDE("a")), blob);
  EXPECT_THAT(asked, ElementsAre(FakeId(1)));
}

TEST_F(TreeParsing, ModeIsNotChecked) {
  PutBlob(7, "1");
  EXPECT_EQ(ListingOf(ParseTree("whatever blob a" + std::string(1, '\0') + FakeId(7))), "a=1");
  EXPECT_EQ(ListingOf(ParseTree(" blob b" + std::string(1, '\0') + FakeId(7))), "b=1");
}

TEST_F(TreeParsing, NameWithASeparatorIsAPath) {
  PutBlob(7, "1");
  const cow_ptr<Tree> tree = ParseTree(Record("blob", "/d//e/", FakeId(7)));
  EXPECT_EQ(ListingOf(tree), "d/e=1");
  EXPECT_EQ(repository.GetTreeCount(), 2u);
}

TEST_F(TreeParsing, SubtreeNameWithASeparatorIsAPath) {
  PutBlob(7, "1");
  streams[FakeId(8)] = Packed("tree", Record("blob", "f", FakeId(7)));
  EXPECT_EQ(ListingOf(ParseTree(Record("tree", "d/e", FakeId(8)))), "d/e/f=1");
}

TEST_F(TreeParsing, EmptyNameOrOneOfSeparatorsLosesItsEntry) {
  PutBlob(7, "1");
  const cow_ptr<Tree> tree =
      ParseTree(Record("blob", "", FakeId(7)) + Record("blob", "//", FakeId(7)) +
                Record("blob", "a", FakeId(7)));
  EXPECT_EQ(ListingOf(tree), "a=1");
}

TEST_F(TreeParsing, BlobUnderNoNameIsReadButNotStored) {
  PutBlob(7, "1");
  ParseTree(Record("blob", "", FakeId(7)) + Record("blob", "//", FakeId(7)));
  EXPECT_EQ(repository.GetBlobCount(), 0u);
  EXPECT_THAT(asked, ElementsAre(FakeId(1), FakeId(7)));
}

TEST_F(TreeParsing, BlobUnderNoNameAndUnderOneIsReadOnceAndStored) {
  PutBlob(7, "1");
  ParseTree(Record("blob", "", FakeId(7)) + Record("blob", "a", FakeId(7)));
  EXPECT_EQ(repository.GetBlobCount(), 1u);
  EXPECT_THAT(asked, ElementsAre(FakeId(1), FakeId(7)));
}

TEST_F(TreeParsing, LastEntryOfANameWins) {
  PutBlob(7, "1");
  PutBlob(8, "2");
  EXPECT_EQ(ListingOf(ParseTree(Record("blob", "a", FakeId(7)) + Record("blob", "a", FakeId(8)))),
            "a=2");
}

TEST_F(TreeParsing, KeepsBlobAndSubtreeOfOneName) {
  PutBlob(7, "1");
  streams[FakeId(8)] = Packed("tree", Record("blob", "f", FakeId(7)));
  const cow_ptr<Tree> tree =
      ParseTree(Record("blob", "a", FakeId(7)) + Record("tree", "a", FakeId(8)));
  EXPECT_TRUE(tree->GetLocalBlob(TAL_WIDE("a")));
  EXPECT_TRUE(tree->GetLocalTree(TAL_WIDE("a")));
}

TEST_F(TreeParsing, NamesMayHoldBlanksAndEndNowhereButAtAZero) {
  PutBlob(7, "1");
  EXPECT_EQ(ListingOf(ParseTree(Record("blob", "a b  c", FakeId(7)))), "a b  c=1");
}

TEST_F(TreeParsing, LastEntryMayHaveAShortId) {
  streams["abc"] = Packed("blob", "1");
  EXPECT_EQ(ListingOf(ParseTree(Record("blob", "a", "abc"))), "a=1");
  EXPECT_THAT(asked, ElementsAre(FakeId(1), "abc"));
}

TEST_F(TreeParsing, LastEntryWithoutAnIdIsDropped) {
  const cow_ptr<Tree> tree = ParseTree(Record("blob", "a", ""));
  ASSERT_TRUE(tree);
  EXPECT_TRUE(tree->IsEmpty());
}

TEST_F(TreeParsing, TextThatIsNoEntryGivesNull) {
  for (const char* text : {"x", "100644 blobs a", "  "}) {
    EXPECT_FALSE(ParseTree(text)) << text;
  }
}

TEST_F(TreeParsing, AcceptsNamesThatAreNotUtf8) {
  PutBlob(7, "1");
  const cow_ptr<Tree> tree = ParseTree(Record("blob", "a\xFF", FakeId(7)));
  EXPECT_EQ(ListingOf(tree), "a\\uFFFD=1");
}

TEST_F(TreeParsing, CommitTreeIsAHandleOnTheTreeOrNull) {
  PutBlob(7, "1");
  streams[FakeId(1)] = Packed("tree", Record("blob", "a", FakeId(7)));
  const cow_ptr<CommitTree> handle =
      CommitTree::Deserialize(IdOfText(FakeId(1)), &repository, Getter());
  ASSERT_TRUE(handle);
  EXPECT_EQ(ListingOf(handle->GetRoot()), "a=1");
  EXPECT_FALSE(CommitTree::Deserialize(IdOfText(FakeId(9)), &repository, Getter()));
  EXPECT_FALSE(CommitTree::Deserialize(Id(), &repository, Getter()));
}

// Each directory holds the next one twice. Nothing is stored that a second look could find.
TEST_F(TreeParsing, WithoutAStorageEachStreamIsReadOnceAsWell) {
  const auto put = [this](const std::string& bytes) {
    const std::string id = Ascii(Helpers::ComputeEncodedSHA256Hash(bytes.data(), bytes.size()));
    streams[id] = bytes;
    return id;
  };
  const std::string blob = put(Packed("blob", "1"));
  std::string top = put(Packed("tree", Record("blob", "a", blob) + Record("blob", "b", blob)));
  for (int level = 0; level < 15; ++level)
    top = put(Packed("tree", Record("tree", "a", top) + Record("tree", "b", top)));
  Repository without(nullptr);
  const cow_ptr<Tree> tree = Tree::Deserialize(IdOfText(top), &without, Getter());
  ASSERT_TRUE(tree);
  EXPECT_EQ(IdOf(*tree), top);
  EXPECT_EQ(asked.size(), 17u);
  EXPECT_EQ(tree->GetDeepBlobCount(), 65536u);
}

}  // namespace
}  // namespace TalVcs::Testing
