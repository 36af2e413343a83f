// The parsers of packed objects: what each takes, one stream at a time.

#include <gmock/gmock.h>
#include <tests/support/store_fixture.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Parsing : public ::testing::Test {
 protected:
  Delegate<StreamIO(const Id&)> Getter() {
    return {this, [](void* self, const Id& id) {
              auto& test = *static_cast<Parsing*>(self);
              test.asked.push_back(Ascii(id));
              const auto found = test.streams.find(Ascii(id));
              return found == test.streams.end() ? StreamIO() : StreamIO(StreamOf(found->second));
            }};
  }
  static Id IdOfText(const std::string& text) { return Id(Wide(text)); }

  cow_ptr<Tree> ParseTree(const std::string& records) {
    streams[FakeId(1)] = Packed("tree", records);
    return Tree::Deserialize(IdOfText(FakeId(1)), &repository, Getter());
  }
  cow_ptr<Commit> ParseCommit(const std::string& text) {
    streams[FakeId(2)] = Packed("commit", text);
    parentId = Id();
    return Commit::Deserialize(IdOfText(FakeId(2)), parentId, &repository, Getter());
  }
  void PutBlob(unsigned n, const std::string& bytes) { streams[FakeId(n)] = Packed("blob", bytes); }

  Repository repository = NewRepository();
  std::map<std::string, std::string> streams;
  std::vector<std::string> asked;
  Id parentId;
};

using BlobParsing = Parsing;
using TreeParsing = Parsing;
using CommitParsing = Parsing;

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

TEST_F(BlobParsing, StreamThatStandsInTheMiddleIsReadFromThere) {
  StreamIO stream(StreamOf("xx" + Packed("blob", "abc")));
  char skipped[2];
  ASSERT_TRUE(stream.Read(skipped, 2));
  EXPECT_EQ(TextOf(Blob::Deserialize(stream)), "abc");
}

TEST_F(TreeParsing, EmptyIdNullRepositoryOrEmptyGetterGivesNull) {
  streams[FakeId(1)] = Packed("tree", Record("blob", "a", FakeId(7)));
  EXPECT_FALSE(Tree::Deserialize(Id(), &repository, Getter()));
  EXPECT_FALSE(Tree::Deserialize(IdOfText(FakeId(1)), nullptr, Getter()));
  EXPECT_FALSE(Tree::Deserialize(IdOfText(FakeId(1)), &repository, {}));
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(TreeParsing, StoredTreeIsTheResultWithoutARead) {
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

TEST_F(TreeParsing, ResultIsTheStoredInstance) {
  PutBlob(7, "1");
  const cow_ptr<Tree> tree = ParseTree(Record("blob", "a", FakeId(7)));
  EXPECT_EQ(ListingOf(tree), "a=1");
  EXPECT_EQ(repository.GetTreeFromStorage(tree->GetId()), tree);
}

TEST_F(TreeParsing, TreeOfTheSameContentThatIsStoredTakesItsPlace) {
  const cow_ptr<Tree> stored =
      repository.SyncWithStorage(Make<Tree>(TreeOf(&repository, {{"a", "1"}})));
  PutBlob(7, "1");
  EXPECT_EQ(ParseTree(Record("blob", "a", FakeId(7))), stored);
}

TEST_F(TreeParsing, StoredBlobsAreNotAskedFor) {
  const cow_ptr<Blob> blob = repository.SyncWithStorage(SharedBlob("1"));
  const cow_ptr<Tree> tree = ParseTree(Record("blob", "a", IdOf(blob)));
  EXPECT_EQ(tree->GetLocalBlob(TAL_WIDE("a")), blob);
  EXPECT_THAT(asked, ElementsAre(FakeId(1)));
}

TEST_F(TreeParsing, ModeIsNotLookedAt) {
  PutBlob(7, "1");
  EXPECT_EQ(ListingOf(ParseTree("whatever blob a" + std::string(1, '\0') + FakeId(7))), "a=1");
  EXPECT_EQ(ListingOf(ParseTree(" blob b" + std::string(1, '\0') + FakeId(7))), "b=1");
}

TEST_F(TreeParsing, NameWithASeparatorIsCutAsAPath) {
  PutBlob(7, "1");
  const cow_ptr<Tree> tree = ParseTree(Record("blob", "/d//e/", FakeId(7)));
  EXPECT_EQ(ListingOf(tree), "d/e=1");
  EXPECT_EQ(repository.GetTreeCount(), 2u);
}

TEST_F(TreeParsing, SubtreeNameWithASeparatorIsCutAsAPath) {
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

TEST_F(TreeParsing, SecondEntryOfANameWins) {
  PutBlob(7, "1");
  PutBlob(8, "2");
  EXPECT_EQ(ListingOf(ParseTree(Record("blob", "a", FakeId(7)) + Record("blob", "a", FakeId(8)))),
            "a=2");
}

TEST_F(TreeParsing, BlobAndSubtreeOfOneNameBothStand) {
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

TEST_F(TreeParsing, ShortIdOfTheLastEntryIsTakenAsItStands) {
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

TEST_F(TreeParsing, NameThatIsNoUtf8IsRead) {
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

TEST_F(CommitParsing, EmptyIdNullRepositoryOrEmptyGetterGivesNullAndLeavesTheParentId) {
  streams[FakeId(2)] = Packed("commit", CommitText(""));
  parentId = IdOfText("as before");
  EXPECT_FALSE(Commit::Deserialize(Id(), parentId, &repository, Getter()));
  EXPECT_FALSE(Commit::Deserialize(IdOfText(FakeId(2)), parentId, nullptr, Getter()));
  EXPECT_FALSE(Commit::Deserialize(IdOfText(FakeId(2)), parentId, &repository, {}));
  EXPECT_EQ(Ascii(parentId), "as before");
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(CommitParsing, StoredCommitIsTheResultAndLeavesTheParentId) {
  const History history = DrawHistory(repository, "A-B");
  parentId = IdOfText("as before");
  EXPECT_EQ(Commit::Deserialize(history.at("B")->GetId(), parentId, &repository, Getter()),
            history.at("B"));
  EXPECT_EQ(Ascii(parentId), "as before");
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(CommitParsing, FieldsAreReadAndNothingIsStored) {
  PutBlob(7, "1");
  streams[FakeId(1)] = Packed("tree", Record("blob", "a", FakeId(7)));
  const cow_ptr<Commit> commit = ParseCommit(
      "tree " + FakeId(1) + "\nparent " + FakeId(3) +
      "\nauthor Ann B. <a@b.c> 1000 -0130\ncommitter Zed <z@z> 7 +0000\n\nText <here>\n");
  ASSERT_TRUE(commit);
  EXPECT_EQ(Ascii(parentId), FakeId(3));
  EXPECT_EQ(Ascii(commit->GetAuthorName()), "Ann B.");
  EXPECT_EQ(Ascii(commit->GetAuthorEmail()), "a@b.c");
  EXPECT_EQ(Ascii(commit->GetDesciption()), "Text <here>");
  EXPECT_EQ(commit->GetCommitTime().ToTimeT(), 1000);
  EXPECT_EQ(commit->GetCommitTimezoneBias().ticks, -90 * 600000000LL);
  EXPECT_EQ(ListingOf(commit), "a=1");
  EXPECT_FALSE(commit->GetParent());
  EXPECT_EQ(repository.GetCommitCount(), 0u);
}

TEST_F(CommitParsing, NewCommitHasTheCurrentHeadAsItsParent) {
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  const cow_ptr<Commit> commit = ParseCommit(CommitText("", FakeId(3)));
  ASSERT_TRUE(commit);
  EXPECT_EQ(commit->GetParent(), repository.GetHead());
}

TEST_F(CommitParsing, EmptyTreeIdKeepsTheTreeOfTheCurrentHead) {
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  const cow_ptr<Commit> commit = ParseCommit(CommitText(""));
  ASSERT_TRUE(commit);
  EXPECT_EQ(ListingOf(commit), "lib/common=common name=A");
}

TEST_F(CommitParsing, EmptyTreeIdWithoutAHeadGivesACommitTreeWithoutRoot) {
  const cow_ptr<Commit> commit = ParseCommit(CommitText(""));
  ASSERT_TRUE(commit);
  ASSERT_TRUE(commit->GetTree());
  EXPECT_FALSE(commit->GetTree()->GetRoot());
}

TEST_F(CommitParsing, UnreadableTreeGivesNoCommitTreeEvenWithAHead) {
  PlaceBranches(repository, DrawHistory(repository, "A"), "master=A");
  const cow_ptr<Commit> commit = ParseCommit(CommitText(FakeId(9)));
  ASSERT_TRUE(commit);
  EXPECT_FALSE(commit->GetTree());
}

TEST_F(CommitParsing, NoParentLineGivesAnEmptyParentId) {
  ASSERT_TRUE(ParseCommit(CommitText("")));
  EXPECT_TRUE(parentId == Id());
}

TEST_F(CommitParsing, ParentInTheDescriptionOfARootIsTakenForAParentLine) {
  ASSERT_TRUE(ParseCommit(CommitText("", "", "see parent 123")));
  EXPECT_EQ(Ascii(parentId), "123");
}

TEST_F(CommitParsing, OnlyTheFirstLineOfADescriptionComesBack) {
  const cow_ptr<Commit> commit = ParseCommit(CommitText("", "", "one\ntwo\n\nthree"));
  EXPECT_EQ(Ascii(commit->GetDesciption()), "one");
}

TEST_F(CommitParsing, EmptyDescriptionStaysEmpty) {
  const cow_ptr<Commit> commit = ParseCommit(CommitText(""));
  EXPECT_EQ(Ascii(commit->GetDesciption()), "");
  EXPECT_EQ(Bytes(commit->GetData()), CommitText(""));
}

TEST_F(CommitParsing, ZonesAreReadWithTheirSign) {
  const auto minutesOf = [&](const std::string& zone) {
    const cow_ptr<Commit> commit =
        ParseCommit("tree \nauthor A <a> 1 " + zone + "\ncommitter A <a> 1 " + zone + "\n\n\n");
    return commit->GetCommitTimezoneBias().ticks / 600000000;
  };
  EXPECT_EQ(minutesOf("+0530"), 330);
  EXPECT_EQ(minutesOf("-0130"), -90);
  EXPECT_EQ(minutesOf("+1400"), 840);
  EXPECT_EQ(minutesOf("+0030"), 30);
  EXPECT_EQ(minutesOf("*0100"), -60);
  EXPECT_EQ(minutesOf("+"), 0);
}

TEST_F(CommitParsing, SecondsMayBeNegative) {
  const cow_ptr<Commit> commit =
      ParseCommit("tree \nauthor A <a> -77 +0000\ncommitter A <a> -77 +0000\n\n\n");
  EXPECT_EQ(commit->GetCommitTime().ToTimeT(), -77);
}

TEST_F(CommitParsing, MissingAuthorLineIsNoFailure) {
  const cow_ptr<Commit> commit = ParseCommit("tree \n\nText\n");
  ASSERT_TRUE(commit);
  EXPECT_EQ(Ascii(commit->GetAuthorName()), "");
  EXPECT_EQ(commit->GetCommitTime().ToTimeT(), 0);
}

TEST_F(CommitParsing, AuthorLinesInDisorderAreHarmless) {
  for (const char* author :
       {"", "A", "A <", "A >", "A > <", "<>", "A <a", "A <a>", "A <a> ", "A <a> 1", "A <a> x y",
        "A <a> 99999999999999999999999 +99999999999999", "A <a> 1 -"}) {
    EXPECT_TRUE(ParseCommit("tree \nauthor " + std::string(author) + "\n\nText\n")) << author;
    EXPECT_TRUE(ParseCommit("tree \nauthor " + std::string(author))) << author;
  }
}

TEST_F(CommitParsing, TreeLineAloneIsACommit) {
  const cow_ptr<Commit> commit = ParseCommit("tree ");
  ASSERT_TRUE(commit);
  EXPECT_EQ(Bytes(commit->GetData()), "tree \nauthor  <> 0 +0000\ncommitter  <> 0 +0000\n\n\n");
}

}  // namespace
}  // namespace TalVcs::Testing
