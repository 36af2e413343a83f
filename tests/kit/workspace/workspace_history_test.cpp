#include <kit/open/clean_up.h>
#include <kit/store/directory_object_store.h>
#include <kit/text.h>
#include <tests/kit/temporary_folder.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <stdexcept>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using testing::ElementsAre;
using testing::IsEmpty;

class WorkspaceHistory : public WorkspaceTest {};

TEST_F(WorkspaceHistory, UndoAndRedoGoThroughAllVersions) {
  CommitFiles({{"a", "1"}}, "A");
  CommitFiles({{"a", "2"}}, "B");
  CommitFiles({{"b", "3"}}, "C");
  EXPECT_EQ(workspace.FindUndo().value()->summary, "C");
  EXPECT_EQ(workspace.FindRedo().value(), std::nullopt);
  EXPECT_EQ(workspace.Undo().value()->summary, "Undo \"C\"");
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "2"}}));
  workspace.Undo().value();
  workspace.Undo().value();
  EXPECT_THAT(FilesOf(workspace), IsEmpty());
  EXPECT_EQ(workspace.Undo().value(), std::nullopt);
  EXPECT_EQ(workspace.Redo().value()->summary, "Redo \"A\"");
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}}));
  workspace.Redo().value();
  EXPECT_EQ(workspace.Redo().value()->summary, "Redo \"C\"");
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "2"}, {"b", "3"}}));
  EXPECT_EQ(workspace.Redo().value(), std::nullopt);
}

TEST_F(WorkspaceHistory, UndoAfterRedoTakesTheSameVersionBack) {
  CommitFiles({{"a", "1"}}, "A");
  CommitFiles({{"a", "2"}}, "B");
  workspace.Undo().value();
  workspace.Redo().value();
  EXPECT_EQ(workspace.FindUndo().value()->summary, "B");
  workspace.Undo().value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}}));
  workspace.Undo().value();
  EXPECT_THAT(FilesOf(workspace), IsEmpty());
}

TEST_F(WorkspaceHistory, VersionAfterAnUndoEndsTheRedo) {
  CommitFiles({{"a", "1"}}, "A");
  CommitFiles({{"a", "2"}}, "B");
  workspace.Undo().value();
  CommitFiles({{"b", "1"}}, "C");
  EXPECT_EQ(workspace.Redo().value(), std::nullopt);
  workspace.Undo().value();
  EXPECT_EQ(workspace.FindUndo().value()->summary, "A");
  workspace.Undo().value();
  EXPECT_THAT(FilesOf(workspace), IsEmpty());
}

TEST_F(WorkspaceHistory, UndoAndRedoSurviveClosing) {
  CommitFiles({{"a", "1"}}, "A");
  CommitFiles({{"a", "2"}}, "B");
  OpenAgain().Undo().value();
  Kit::Workspace again = OpenAgain();
  EXPECT_EQ(FilesOf(again), (FileTexts{{"a", "1"}}));
  EXPECT_EQ(again.FindRedo().value()->undoes, workspace.GetHead().value()->id);
  again.Redo().value();
  EXPECT_EQ(FilesOf(OpenAgain()), (FileTexts{{"a", "2"}}));
}

TEST_F(WorkspaceHistory, UndoTakesBackTheAuthorsEditUnderThoseOfOthers) {
  Kit::Workspace ada = OpenAgain("Ada");
  CommitFiles(ada, {{"a", "1"}, {"b", "1"}}, "first");
  CommitFiles(ada, {{"a", "2"}}, "Ada's");
  Kit::Workspace bob = OpenAgain("Bob");
  CommitFiles(bob, {{"b", "2"}}, "Bob's");
  ada.Reload().value();
  EXPECT_EQ(ada.Undo().value()->summary, "Undo \"Ada's\"");
  EXPECT_EQ(FilesOf(ada), (FileTexts{{"a", "1"}, {"b", "2"}}));
  bob.Reload().value();
  EXPECT_EQ(bob.FindRedo().value(), std::nullopt);
  EXPECT_EQ(bob.Undo().value()->summary, "Undo \"Bob's\"");
  ada.Reload().value();
  EXPECT_EQ(ada.Redo().value()->summary, "Redo \"Ada's\"");
  EXPECT_EQ(FilesOf(ada), (FileTexts{{"a", "2"}, {"b", "1"}}));
}

TEST_F(WorkspaceHistory, UndoOfWhatOthersChangedSinceAsks) {
  CommitFiles(workspace, {{"a", "1"}}, "first", "Ada");
  CommitFiles(workspace, {{"a", "2"}}, "Ada's", "Ada");
  CommitFiles(workspace, {{"a", "3"}}, "Bob's", "Bob");
  const Kit::CommitOptions ada{.author = "Ada"};
  EXPECT_THAT(workspace.Undo(ada), FailsWith(ErrorCode::Undecided));
  const Kit::MergePreview preview = workspace.PreviewUndo(ada).value().value();
  ASSERT_EQ(preview.conflicts.size(), 1u);
  EXPECT_EQ(preview.conflicts[0].base.content->text(), "2");
  EXPECT_EQ(preview.conflicts[0].ours.content->text(), "3");
  EXPECT_EQ(preview.conflicts[0].theirs.content->text(), "1");
  workspace.Merge(preview, {{"a", Kit::Decision::Theirs()}}, {.author = "Ada"}).value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}}));
  EXPECT_EQ(workspace.FindUndo(ada).value()->summary, "first");
}

TEST_F(WorkspaceHistory, UndoPassesOverVersionsThatAProgramMade) {
  CommitFiles({{"a", "1"}}, "mine");
  workspace.Write("index", "x").value();
  workspace.Commit("Update the index", {.isMachineMade = true}).value();
  EXPECT_TRUE(workspace.GetHead().value()->isMachineMade);
  workspace.Undo().value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"index", "x"}}));
}

TEST_F(WorkspaceHistory, UndoNeedsNoPendingEdits) {
  CommitFiles({{"a", "1"}}, "A");
  workspace.Write("b", "2").value();
  EXPECT_THAT(workspace.Undo(), FailsWith(ErrorCode::Undecided));
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}, {"b", "2"}}));
}

TEST_F(WorkspaceHistory, BranchesAndTheCurrentOneAreKept) {
  const Version first = CommitFiles({{"a", "1"}}, "first");
  workspace.CreateBranch("topic").value();
  workspace.Switch("topic").value();
  const Version second = CommitFiles({{"a", "2"}}, "second");
  Kit::Workspace again = OpenAgain();
  EXPECT_EQ(again.GetBranch(), "topic");
  EXPECT_EQ(again.GetBranches(),
            (std::vector<Kit::Head>{{"master", first.id}, {"topic", second.id}}));
  again.Switch("master").value();
  EXPECT_EQ(FilesOf(again), (FileTexts{{"a", "1"}}));
  EXPECT_EQ(OpenAgain().GetBranch(), "master");
}

TEST_F(WorkspaceHistory, BranchesAreRefusedByName) {
  EXPECT_THAT(workspace.CreateBranch("early"), FailsWith(ErrorCode::NotFound));
  CommitFiles({{"a", "1"}}, "first");
  EXPECT_THAT(workspace.CreateBranch(""), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.CreateBranch("tags/x"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.CreateBranch("master"), FailsWith(ErrorCode::Conflict));
  EXPECT_THAT(workspace.CreateBranch("\xff"), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.CreateBranch("x", Id(TAL_WIDE("none"))), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Switch("x"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.RemoveBranch("x"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.RemoveBranch("master"), FailsWith(ErrorCode::Denied));
  workspace.CreateBranch("topic").value();
  workspace.Write("b", "2").value();
  EXPECT_THAT(workspace.Switch("topic"), FailsWith(ErrorCode::Undecided));
  workspace.RemoveBranch("topic").value();
  EXPECT_EQ(OpenAgain().GetBranches().size(), 1u);
}

TEST_F(WorkspaceHistory, TagKeepsItsVersionThroughACleanUp) {
  const Version first = CommitFiles({{"a", "1"}}, "first");
  workspace.CreateBranch("topic").value();
  workspace.Switch("topic").value();
  const Version second = CommitFiles({{"a", "2"}}, "second");
  workspace.CreateTag("1.0").value();
  EXPECT_EQ(workspace.GetTags(), (std::vector<Kit::Head>{{"1.0", second.id}}));
  EXPECT_THAT(workspace.GetHead().value()->tags, ElementsAre("1.0"));
  EXPECT_THAT(workspace.CreateTag("1.0", first.id), FailsWith(ErrorCode::Conflict));
  EXPECT_THAT(workspace.Switch("tags/1.0"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.RemoveBranch("tags/1.0"), FailsWith(ErrorCode::NotFound));
  workspace.Switch("master").value();
  workspace.RemoveBranch("topic").value();
  Kit::CleanUp(*store).value();
  Kit::Workspace again = OpenAgain();
  EXPECT_EQ(FilesOf(again.At(again.Find("1.0").value().id).value()), (FileTexts{{"a", "2"}}));
  again.RemoveTag("1.0").value();
  EXPECT_THAT(again.RemoveTag("1.0"), FailsWith(ErrorCode::NotFound));
  Kit::CleanUp(*store).value();
  EXPECT_THAT(OpenAgain().At(second.id), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceHistory, VersionsAreFoundByBranchTagAndId) {
  const Version first = CommitFiles({{"a", "1"}}, "first");
  workspace.CreateTag("start").value();
  const Version second = CommitFiles({{"a", "2"}}, "second");
  EXPECT_EQ(workspace.Find("master").value().id, second.id);
  EXPECT_EQ(workspace.Find("start").value().id, first.id);
  EXPECT_EQ(workspace.Find(Kit::ToUtf8(first.id.View())).value().summary, "first");
  EXPECT_THAT(workspace.Find("nothing"), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceHistory, RestoreMakesAVersionOnTop) {
  const Version first = CommitFiles({{"a", "1"}}, "first");
  CommitFiles({{"a", ""}, {"b", "2"}}, "second");
  EXPECT_EQ(workspace.Restore(first.id).value()->summary, "Restore \"first\"");
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}}));
  EXPECT_EQ(workspace.Restore(first.id).value(), std::nullopt);
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("Restore \"first\"", "second", "first"));
}

TEST_F(WorkspaceHistory, SnapshotStaysAsItWas) {
  const Version first = CommitFiles({{"a", "1"}}, "first");
  const Kit::Snapshot snapshot = workspace.At(first.id).value();
  CommitFiles({{"a", "2"}}, "second");
  workspace.Trim();
  EXPECT_EQ(FilesOf(snapshot), (FileTexts{{"a", "1"}}));
  EXPECT_EQ(snapshot.GetVersion().summary, "first");
}

TEST_F(WorkspaceHistory, LogSelectsByPathAuthorAndTime) {
  CommitFiles(workspace, {{"a/x", "1"}}, "1", "Ada");
  const auto first = now;
  CommitFiles(workspace, {{"b", "1"}}, "2", "Bob");
  CommitFiles(workspace, {{"a/y", "1"}}, "3", "Bob");
  CommitFiles(workspace, {{"a/x", "2"}}, "4", "Ada");
  CommitFiles(workspace, {{"a/x", ""}, {"a/y", ""}}, "5", "Ada");
  EXPECT_THAT(Summaries(workspace, {.path = "a/x"}), ElementsAre("5", "4", "1"));
  EXPECT_THAT(Summaries(workspace, {.path = "a"}), ElementsAre("5", "4", "3", "1"));
  EXPECT_THAT(Summaries(workspace, {.path = "none"}), IsEmpty());
  EXPECT_THAT(Summaries(workspace, {.author = "Bob"}), ElementsAre("3", "2"));
  EXPECT_THAT(Summaries(workspace, {.since = first + Seconds(60), .until = first + Seconds(120)}),
              ElementsAre("3", "2"));
  EXPECT_THAT(Summaries(workspace, {.limit = 2}), ElementsAre("5", "4"));
  EXPECT_THAT(workspace.Log({.path = "/a"}), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Log({.branch = "none"}), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceHistory, LogGoesOnAfterAPage) {
  for (int i = 0; i < 7; ++i) CommitFiles({{"a", std::to_string(i)}}, std::to_string(i));
  for (const bool all : {false, true}) {
    Kit::LogOptions options{.allBranches = all, .limit = 3};
    std::string seen;
    for (;;) {
      const std::vector<Version> page = workspace.Log(options).value();
      if (page.empty()) break;
      for (const Version& version : page) seen += version.summary;
      options.after = page.back().id;
    }
    EXPECT_EQ(seen, "6543210") << all;
  }
  EXPECT_THAT(workspace.Log({.allBranches = true, .after = Id(TAL_WIDE("none"))}),
              FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceHistory, LogBeginsWithAVersion) {
  CommitFiles({{"a", "1"}}, "1");
  CommitFiles({{"b", "2"}}, "2");
  const Id second = CommitFiles({{"a", "3"}}, "3").parent;
  EXPECT_THAT(Summaries(workspace, {.from = second}), ElementsAre("2", "1"));
  EXPECT_THAT(Summaries(workspace, {.from = second, .path = "b"}), ElementsAre("2"));
  EXPECT_THAT(Summaries(workspace, {.from = second, .path = "a"}), ElementsAre("1"));
  EXPECT_THAT(Summaries(workspace, {.from = second, .after = second}), ElementsAre("1"));
  EXPECT_THAT(Summaries(workspace, {.from = second, .allBranches = true}),
              ElementsAre("3", "2", "1"));
  EXPECT_THAT(workspace.Log({.from = Id(TAL_WIDE("none"))}), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceHistory, LogOfAllBranchesHasEachVersionOnce) {
  CommitFiles({{"a", "1"}}, "1");
  workspace.CreateBranch("topic").value();
  CommitFiles({{"a", "2"}}, "2");
  workspace.Switch("topic").value();
  CommitFiles({{"b", "3"}}, "3");
  workspace.Switch("master").value();
  CommitFiles({{"a", "4"}}, "4");
  EXPECT_THAT(Summaries(workspace, {.allBranches = true}), ElementsAre("4", "3", "2", "1"));
  EXPECT_THAT(Summaries(workspace, {.branch = "topic"}), ElementsAre("3", "1"));
}

TEST_F(WorkspaceHistory, CancelledLogFails) {
  CommitFiles({{"a", "1"}}, "1");
  Kit::LogOptions options;
  options.progress = [](const Kit::ProgressStep&) { return false; };
  EXPECT_THAT(workspace.Log(options), FailsWith(ErrorCode::Cancelled));
}

TEST_F(WorkspaceHistory, ObserverSeesOwnMovesAndThoseOfOthers) {
  std::vector<std::string> seen;
  workspace.Observe([&](const Kit::Workspace::Move& move) {
    seen.push_back(move.name + (move.isBySomebodyElse ? " by others" : ""));
  });
  CommitFiles({{"a", "1"}}, "1");
  workspace.CreateTag("t").value();
  Kit::Workspace other = OpenAgain();
  CommitFiles(other, {{"a", "2"}}, "2");
  other.CreateBranch("b").value();
  EXPECT_TRUE(workspace.IsBehind().value());
  workspace.Reload().value();
  workspace.Reload().value();
  EXPECT_THAT(seen, ElementsAre("master", "tags/t", "b by others", "master by others"));
}

TEST_F(WorkspaceHistory, ObserverThatThrowsLeavesTheSavedVersion) {
  workspace.Observe([](const Kit::Workspace::Move&) { throw std::runtime_error("observer"); });
  workspace.Write("a", "1").value();
  EXPECT_THROW(static_cast<void>(workspace.Commit("1")), std::runtime_error);
  EXPECT_THAT(workspace.GetChanges().value(), IsEmpty());
  EXPECT_THAT(Summaries(workspace), ElementsAre("1"));
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("1"));
}

TEST(WorkspaceInAFolder, IsOpenedByTheResultOfTheStore) {
  const TemporaryFolder folder;
  {
    auto workspace = Kit::Workspace::Open(Kit::DirectoryObjectStore::Create(folder.Path())).value();
    workspace.Write("pages/1/shape-7", "circle").value();
    workspace.Commit("Draw", {.author = "Ada"}).value();
  }
  const auto again = Kit::Workspace::Open(Kit::DirectoryObjectStore::Open(folder.Path())).value();
  EXPECT_EQ(again.Read("pages/1/shape-7").value().text(), "circle");
  EXPECT_THAT(Kit::Workspace::Open(Kit::DirectoryObjectStore::Open(folder.Path() / "none")),
              FailsWith(ErrorCode::NotFound));
}

}  // namespace
}  // namespace TalVcs::Testing
