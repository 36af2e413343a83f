#include <talvcs/merge/internal/entry_rule.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <deque>
#include <string>

namespace TalVcs::Testing {
namespace {

// The entries "-", "a" to "c" (blobs), "A" to "C" (directories) and "aA" (a blob that hides one).
class EntryRule : public ::testing::Test {
 protected:
  EntryDecision Decide(EntryKind stage, const char* root, const char* left, const char* right) {
    return DecideEntry(stage, Of(root), Of(left), Of(right));
  }

 private:
  NamedEntries Of(const std::string& entry) {
    Tree& directory = m_directories.emplace_back();
    for (const char letter : entry) {
      if (letter == '-') continue;
      const std::string text(1, letter);
      if (letter >= 'a') {
        directory.AddBlob(&m_repository, TAL_WIDE("name"), *SharedBlob(text));
      } else {
        directory.AddTree(&m_repository, TAL_WIDE("name"), TreeOf(&m_repository, {{"in", text}}));
      }
    }
    return EntriesUnder(TreeAccess::Entries(directory), TAL_WIDE("name"));
  }

  RecordingRepository m_repository;
  std::deque<Tree> m_directories;
};

TEST_F(EntryRule, BlobStageDecidesByWhatChanged) {
  const EntryKind stage = EntryKind::Blob;
  EXPECT_EQ(Decide(stage, "-", "-", "-"), EntryDecision::KeepRoot);
  EXPECT_EQ(Decide(stage, "a", "a", "a"), EntryDecision::KeepRoot);
  EXPECT_EQ(Decide(stage, "a", "b", "a"), EntryDecision::TakeLeft);
  EXPECT_EQ(Decide(stage, "a", "a", "b"), EntryDecision::TakeRight);
  EXPECT_EQ(Decide(stage, "a", "b", "b"), EntryDecision::TakeSame);
  EXPECT_EQ(Decide(stage, "a", "-", "-"), EntryDecision::TakeSame);
  EXPECT_EQ(Decide(stage, "-", "a", "a"), EntryDecision::TakeSame);
  EXPECT_EQ(Decide(stage, "a", "b", "c"), EntryDecision::Conflict);
  EXPECT_EQ(Decide(stage, "a", "-", "b"), EntryDecision::Conflict);
  EXPECT_EQ(Decide(stage, "-", "a", "b"), EntryDecision::Conflict);
}

TEST_F(EntryRule, TreeStageDecidesByWhatChanged) {
  const EntryKind stage = EntryKind::Tree;
  EXPECT_EQ(Decide(stage, "A", "A", "A"), EntryDecision::KeepRoot);
  EXPECT_EQ(Decide(stage, "A", "B", "A"), EntryDecision::TakeLeft);
  EXPECT_EQ(Decide(stage, "A", "A", "-"), EntryDecision::TakeRight);
  EXPECT_EQ(Decide(stage, "A", "B", "B"), EntryDecision::TakeSame);
  EXPECT_EQ(Decide(stage, "A", "B", "C"), EntryDecision::Conflict);
  EXPECT_EQ(Decide(stage, "-", "A", "B"), EntryDecision::Conflict);
}

TEST_F(EntryRule, EntriesOfTheOtherKindDoNotChangeAStage) {
  EXPECT_EQ(Decide(EntryKind::Blob, "A", "B", "C"), EntryDecision::KeepRoot);
  EXPECT_EQ(Decide(EntryKind::Tree, "a", "b", "c"), EntryDecision::KeepRoot);
}

TEST_F(EntryRule, ChangeOfKindIsAChangeInBothStages) {
  for (const EntryKind stage : {EntryKind::Blob, EntryKind::Tree}) {
    EXPECT_EQ(Decide(stage, "a", "B", "a"), EntryDecision::TakeLeft);
    EXPECT_EQ(Decide(stage, "A", "A", "b"), EntryDecision::TakeRight);
    EXPECT_EQ(Decide(stage, "a", "B", "B"), EntryDecision::TakeSame);
  }
  EXPECT_EQ(Decide(EntryKind::Blob, "A", "B", "c"), EntryDecision::TakeRight);
  EXPECT_EQ(Decide(EntryKind::Tree, "A", "B", "c"), EntryDecision::Conflict);
  EXPECT_EQ(Decide(EntryKind::Tree, "A", "b", "c"), EntryDecision::Conflict);
}

TEST_F(EntryRule, HiddenDirectoryAlwaysCountsAsChanged) {
  EXPECT_EQ(Decide(EntryKind::Blob, "aA", "aA", "aA"), EntryDecision::KeepRoot);
  EXPECT_EQ(Decide(EntryKind::Tree, "aA", "aA", "aA"), EntryDecision::TakeSame);
}

}  // namespace
}  // namespace TalVcs::Testing
