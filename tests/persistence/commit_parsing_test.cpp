// The parser of packed commits, one stream at a time.

#include <gmock/gmock.h>
#include <tests/support/history_drawing.h>
#include <tests/support/parsing_fixture.h>

#include <string>

namespace TalVcs::Testing {
namespace {

using ::testing::IsEmpty;

using CommitParsing = Parsing;

TEST_F(CommitParsing, EmptyIdNullRepositoryOrEmptyGetterGivesNullAndLeavesTheParentId) {
  streams[FakeId(2)] = Packed("commit", CommitText(""));
  parentId = IdOfText("as before");
  EXPECT_FALSE(Commit::Deserialize(Id(), parentId, &repository, Getter()));
  EXPECT_FALSE(Commit::Deserialize(IdOfText(FakeId(2)), parentId, nullptr, Getter()));
  EXPECT_FALSE(Commit::Deserialize(IdOfText(FakeId(2)), parentId, &repository, {}));
  EXPECT_EQ(Ascii(parentId), "as before");
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(CommitParsing, ReturnsAStoredCommitAndKeepsTheParentId) {
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

TEST_F(CommitParsing, ParentInTheDescriptionOfAFirstCommitCountsAsAParentLine) {
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

TEST_F(CommitParsing, AuthorLineMayBeMissing) {
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
