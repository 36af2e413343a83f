// Decisions about the conflicts of a merge that a host doesn't have to work out itself.

#include <kit/workspace/decisions.h>
#include <tests/kit/workspace/workspace_fixture.h>

namespace TalVcs::Testing {
namespace {

using Kit::Conflict;
using Kit::ConflictSide;
using Kit::Decision;
using Kit::MergePreview;

const ConflictSide kNothing;
const ConflictSide kFolder{{}, true};

ConflictSide FileOf(std::string_view text) { return {Kit::Bytes(text), false}; }

std::string Described(const ConflictSide& base, const ConflictSide& ours,
                      const ConflictSide& theirs) {
  Conflict conflict;
  conflict.base = base;
  conflict.ours = ours;
  conflict.theirs = theirs;
  return Kit::Describe(conflict);
}

TEST(DescribeConflict, NamesWhatBothSidesDid) {
  const ConflictSide file = FileOf("1");
  EXPECT_EQ(Described(file, file, file), "changed on both sides");
  EXPECT_EQ(Described(kNothing, file, file), "added on both sides");
  EXPECT_EQ(Described(file, kNothing, file), "removed here, changed there");
  EXPECT_EQ(Described(file, file, kFolder), "changed here, folder there");
  EXPECT_EQ(Described(kNothing, kFolder, file), "folder here, added there");
  EXPECT_EQ(Described(kFolder, kFolder, kNothing), "changed folder here, removed there");
  EXPECT_EQ(Described(kFolder, file, kFolder), "added here, changed folder there");
}

TEST(DecisionSide, HasAName) {
  EXPECT_STREQ(ToString(Decision::Ours().GetSide()), "ours");
  EXPECT_STREQ(ToString(Decision::Theirs().GetSide()), "theirs");
  EXPECT_STREQ(ToString(Decision::Base().GetSide()), "base");
  EXPECT_STREQ(ToString(Decision::Content("x").GetSide()), "edited");
}

class Decisions : public WorkspaceTest {
 protected:
  /// Makes two branches that begin with the same files, and returns what a merge would do.
  MergePreview Diverge(const FileTexts& base, const FileTexts& ours, const FileTexts& theirs) {
    CommitFiles(base, "base");
    workspace.CreateBranch("topic").value();
    CommitFiles(ours, "ours");
    workspace.Switch("topic").value();
    CommitFiles(theirs, "theirs");
    workspace.Switch("master").value();
    return workspace.PreviewMerge("topic").value();
  }

  /// Returns the name of the side that is later, or nothing.
  std::string LaterSide(const MergePreview& preview, std::string_view timePath = "saved") {
    const auto decision =
        Kit::DecideByTime(preview.conflicts.at(0), workspace.At(preview.head).value(),
                          workspace.At(preview.version.id).value(), timePath)
            .value();
    return decision ? ToString(decision->GetSide()) : "";
  }
};

TEST_F(Decisions, LaterTimeOfTheNearestFolderDecides) {
  const MergePreview preview =
      Diverge({{"d/a", "0"}}, {{"d/a", "1"}, {"d/saved", "2024-05-31"}, {"saved", "2024-01-01"}},
              {{"d/a", "2"}, {"d/saved", "1717113599"}, {"saved", "2024-02-01"}});
  EXPECT_EQ(preview.conflicts.front().path, "d/a");
  EXPECT_EQ(LaterSide(preview), "ours");
  EXPECT_EQ(LaterSide(preview, "none"), "");
}

TEST_F(Decisions, EqualTimesLeaveItToTheFolderAbove) {
  const MergePreview preview =
      Diverge({{"d/a", "0"}, {"d/saved", "5"}}, {{"d/a", "1"}, {"saved", "8"}},
              {{"d/a", "2"}, {"saved", "9"}});
  EXPECT_EQ(LaterSide(preview), "theirs");
}

TEST_F(Decisions, ATimeOnOneSideIsTheLaterOne) {
  const MergePreview preview =
      Diverge({{"a", "0"}}, {{"a", "1"}, {"saved", "no time"}}, {{"a", "2"}, {"saved", "5"}});
  ASSERT_EQ(preview.conflicts.front().path, "a");
  EXPECT_EQ(LaterSide(preview), "theirs");
}

TEST_F(Decisions, WithoutTimesThereIsNone) {
  EXPECT_EQ(LaterSide(Diverge({{"a", "0"}}, {{"a", "1"}}, {{"a", "2"}})), "");
}

TEST_F(Decisions, KeepBothSidesTakesTheMarkedTextOrTheSideThatIsThere) {
  Kit::WorkspaceOptions options;
  options.mergers.Add("*.txt", Kit::MakeTextMerger({.conflictText = Kit::ConflictText::Markers}));
  Diverge({{"a.txt", "1\n"}, {"b", "1"}, {"c", "1"}, {"d", "1"}},
          {{"a.txt", "2\n"}, {"b", "2"}, {"c", ""}, {"d", "2"}},
          {{"a.txt", "3\n"}, {"b", "3"}, {"c", "3"}, {"d", "3"}});
  Kit::Workspace merging = Kit::Workspace::Open(store, options).value();
  const MergePreview preview = merging.PreviewMerge("topic").value();
  ASSERT_EQ(preview.conflicts.size(), 4u);
  merging.Merge(preview, Kit::KeepBothSides(preview, {{"d", Decision::Theirs()}})).value();
  EXPECT_EQ(FilesOf(merging), (FileTexts{{"a.txt", "<<<<<<< ours\n2\n=======\n3\n>>>>>>> theirs\n"},
                                         {"b", "2"},
                                         {"c", "3"},
                                         {"d", "3"}}));
}

}  // namespace
}  // namespace TalVcs::Testing
