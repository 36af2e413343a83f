#include <talvcs/merge/internal/entry_rule.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <map>
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
    NamedEntries entries;
    for (const char letter : entry) {
      if (letter == '-') continue;
      const std::string text(1, letter);
      cow_ptr<Object>& object = m_objects[letter];
      if (letter >= 'a') {
        object = SharedBlob(text);
        entries.blob = &object;
      } else {
        object = Make<Tree>(TreeOf(&m_repository, {{"in", text}}));
        entries.tree = &object;
      }
    }
    return entries;
  }

  RecordingRepository m_repository;
  std::map<char, cow_ptr<Object>> m_objects;
};

TEST_F(EntryRule, BlobStageDecidesByWhatChanged) {
  const EntryKind stage = EntryKind::kBlob;
  EXPECT_EQ(Decide(stage, "-", "-", "-"), EntryDecision::kKeepRoot);
  EXPECT_EQ(Decide(stage, "a", "a", "a"), EntryDecision::kKeepRoot);
  EXPECT_EQ(Decide(stage, "a", "b", "a"), EntryDecision::kTakeLeft);
  EXPECT_EQ(Decide(stage, "a", "a", "b"), EntryDecision::kTakeRight);
  EXPECT_EQ(Decide(stage, "a", "b", "b"), EntryDecision::kTakeSame);
  EXPECT_EQ(Decide(stage, "a", "-", "-"), EntryDecision::kTakeSame);
  EXPECT_EQ(Decide(stage, "-", "a", "a"), EntryDecision::kTakeSame);
  EXPECT_EQ(Decide(stage, "a", "b", "c"), EntryDecision::kConflict);
  EXPECT_EQ(Decide(stage, "a", "-", "b"), EntryDecision::kConflict);
  EXPECT_EQ(Decide(stage, "-", "a", "b"), EntryDecision::kConflict);
}

TEST_F(EntryRule, TreeStageDecidesByWhatChanged) {
  const EntryKind stage = EntryKind::kTree;
  EXPECT_EQ(Decide(stage, "A", "A", "A"), EntryDecision::kKeepRoot);
  EXPECT_EQ(Decide(stage, "A", "B", "A"), EntryDecision::kTakeLeft);
  EXPECT_EQ(Decide(stage, "A", "A", "-"), EntryDecision::kTakeRight);
  EXPECT_EQ(Decide(stage, "A", "B", "B"), EntryDecision::kTakeSame);
  EXPECT_EQ(Decide(stage, "A", "B", "C"), EntryDecision::kConflict);
  EXPECT_EQ(Decide(stage, "-", "A", "B"), EntryDecision::kConflict);
}

TEST_F(EntryRule, EachStageSeesNoChangeAmongEntriesOfTheOtherKind) {
  EXPECT_EQ(Decide(EntryKind::kBlob, "A", "B", "C"), EntryDecision::kKeepRoot);
  EXPECT_EQ(Decide(EntryKind::kTree, "a", "b", "c"), EntryDecision::kKeepRoot);
}

TEST_F(EntryRule, ChangeOfKindCountsInBothStages) {
  for (const EntryKind stage : {EntryKind::kBlob, EntryKind::kTree}) {
    EXPECT_EQ(Decide(stage, "a", "B", "a"), EntryDecision::kTakeLeft);
    EXPECT_EQ(Decide(stage, "A", "A", "b"), EntryDecision::kTakeRight);
    EXPECT_EQ(Decide(stage, "a", "B", "B"), EntryDecision::kTakeSame);
  }
  EXPECT_EQ(Decide(EntryKind::kBlob, "A", "B", "c"), EntryDecision::kTakeRight);
  EXPECT_EQ(Decide(EntryKind::kTree, "A", "B", "c"), EntryDecision::kConflict);
  EXPECT_EQ(Decide(EntryKind::kTree, "A", "b", "c"), EntryDecision::kConflict);
}

TEST_F(EntryRule, HiddenDirectoryDiffersEvenFromItself) {
  EXPECT_EQ(Decide(EntryKind::kBlob, "aA", "aA", "aA"), EntryDecision::kKeepRoot);
  EXPECT_EQ(Decide(EntryKind::kTree, "aA", "aA", "aA"), EntryDecision::kTakeSame);
}

}  // namespace
}  // namespace TalVcs::Testing
