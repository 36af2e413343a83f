#include <talvcs/objects/internal/commit_access.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <optional>
#include <string>

namespace TalVcs::Testing {
namespace {

constexpr std::int64_t kMinute = 600'000'000;

std::string AuthorInfo(const char* role, std::int64_t seconds, std::int64_t bias_minutes) {
  return Ascii(CommitAccess::GetAuthorInfo(Wide(role), TAL_WIDE("N"), TAL_WIDE("e"),
                                           Time::FromTimeT(seconds),
                                           TimeDelta{bias_minutes * kMinute}));
}

/// Reads the value of `key` from `position`, or says that there is none.
std::string Parse(const std::string& text, const char* key, int& position) {
  const auto value = CommitAccess::ParseCommitInfo(
      TalStringT<char>(text.data(), static_cast<int>(text.size())), key, position);
  return value ? Bytes(*value) : "none";
}

TEST(CommitAuthorInfo, HasRoleNameEmailSecondsAndBias) {
  EXPECT_EQ(AuthorInfo("author", 1000, 330), "author N <e> 1000 +0530");
  EXPECT_EQ(AuthorInfo("committer", -1, -90), "committer N <e> -1 -0130");
  EXPECT_EQ(AuthorInfo("", 0, 0), " N <e> 0 +0000");
}

TEST(CommitAuthorInfo, SignOfTheZoneIsThatOfItsHours) {
  EXPECT_EQ(AuthorInfo("r", 0, -59), "r N <e> 0 +0059");
  EXPECT_EQ(AuthorInfo("r", 0, -60), "r N <e> 0 -0100");
  EXPECT_EQ(AuthorInfo("r", 0, 840), "r N <e> 0 +1400");
  EXPECT_EQ(AuthorInfo("r", 0, 6000), "r N <e> 0 +10000");
}

TEST(CommitAuthorInfo, AcceptsWideTextAndLongNames) {
  const std::string name(300, 'n');
  EXPECT_EQ(Ascii(CommitAccess::GetAuthorInfo(TAL_WIDE("author"), Wide(name), TAL_WIDE("\u20AC"),
                                              Time(), TimeDelta())),
            "author " + name + " <\\u20AC> 0 +0000");
}

TEST(CommitAuthorInfo, AcceptsExtremeBiases) {
  EXPECT_EQ(AuthorInfo("r", 0, 15'372'286'728), "r N <e> 0 +25620477848");
  EXPECT_EQ(Ascii(CommitAccess::GetAuthorInfo(TAL_WIDE("r"), TAL_WIDE("N"), TAL_WIDE("e"), Time(),
                                              TimeDelta{INT64_MIN})),
            "r N <e> 0 -25620477848");
}

TEST(ParseCommitInfo, GivesTheRestOfTheLine) {
  int position = 0;
  EXPECT_EQ(Parse("tree abc\nparent def\n", "tree ", position), "abc");
  EXPECT_EQ(position, 8);
  EXPECT_EQ(Parse("tree abc\nparent def\n", "parent ", position), "def");
  EXPECT_EQ(position, 19);
}

TEST(ParseCommitInfo, EmptyValueIsAValue) {
  int position = 0;
  EXPECT_EQ(Parse("tree \nauthor x\n", "tree ", position), "");
  EXPECT_EQ(position, 5);
}

TEST(ParseCommitInfo, MissingKeyLeavesThePositionAlone) {
  int position = 3;
  EXPECT_EQ(Parse("tree abc\n", "parent ", position), "none");
  EXPECT_EQ(position, 3);
  EXPECT_EQ(Parse("", "tree ", position), "none");
  EXPECT_EQ(position, 3);
}

TEST(ParseCommitInfo, PositionPastTheOnlyKeyGivesNone) {
  int position = 1;
  EXPECT_EQ(Parse("tree abc\n", "tree ", position), "none");
  EXPECT_EQ(position, 1);
}

TEST(ParseCommitInfo, MissingLineEndGivesMinusOne) {
  int position = 0;
  const std::string value = Parse("tree abc", "tree ", position);
  EXPECT_EQ(position, -1);
  // The end is -1, so the count is negative, which a part of a string takes as none.
  EXPECT_EQ(value, "");
}

TEST(ParseCommitInfo, FindsTheKeyAnywhereInTheText) {
  int position = 0;
  EXPECT_EQ(Parse("author a parent x\n", "parent ", position), "x");
}

TEST(ParseCommitInfo, KeepsZerosInTheValue) {
  int position = 0;
  EXPECT_EQ(Parse(std::string("tree a\0b\n", 9), "tree ", position), std::string("a\0b", 3));
}

TEST(CommitRebuildTree, WithoutRootChangesNothing) {
  RecordingRepository repository;
  Commit commit(nullptr, false);
  const cow_ptr<CommitTree> before = commit.GetTree();
  CommitAccess::RebuildTree(commit, &repository);
  EXPECT_TRUE(commit.GetTree() == before);
  EXPECT_TRUE(commit.GetTree()->GetRoot() == nullptr);
  EXPECT_EQ(repository.GetTreeCount(), 0U);
}

TEST(CommitRebuildTree, DoesNothingForADefaultCommit) {
  RecordingRepository repository;
  Commit commit;
  CommitAccess::RebuildTree(commit, &repository);
  EXPECT_TRUE(commit.GetTree() == nullptr);
}

TEST(CommitRebuildTree, StoresANewRootOrUsesTheStoredOne) {
  RecordingRepository repository;
  Commit first(nullptr, false);
  first.ReplaceRoot(nullptr, Make<Tree>());
  CommitAccess::RebuildTree(first, &repository);
  EXPECT_EQ(repository.GetTreeCount(), 1U);
  Commit second(nullptr, false);
  second.ReplaceRoot(nullptr, Make<Tree>());
  CommitAccess::RebuildTree(second, &repository);
  EXPECT_EQ(repository.GetTreeCount(), 1U);
  EXPECT_TRUE(second.GetTree()->GetRoot() == first.GetTree()->GetRoot());
}

TEST(CommitRebuildTree, WithoutRepositoryKeepsTheRoot) {
  const auto root = Make<Tree>();
  Commit commit(nullptr, false);
  commit.ReplaceRoot(nullptr, root);
  CommitAccess::RebuildTree(commit, nullptr);
  EXPECT_TRUE(commit.GetTree()->GetRoot() == root);
}

}  // namespace
}  // namespace TalVcs::Testing
