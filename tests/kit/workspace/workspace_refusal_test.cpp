// What a careless host passes to a workspace: each call is refused with a code and changes nothing,
// or does the obvious thing.

#include <kit/open/clean_up.h>
#include <kit/text.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <limits>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using testing::ElementsAre;
using testing::IsEmpty;

class WorkspaceRefusal : public WorkspaceTest {
 protected:
  WorkspaceRefusal() { CommitFiles(m_files, "first"); }

  FileTexts m_files{{"a", "1"}, {"d/x", "2"}, {"d/y", "3"}};
};

TEST_F(WorkspaceRefusal, NamesOfBranchesThatAreNoUtf8AreNeverReplaced) {
  workspace.CreateBranch("\xef\xbf\xbd").value();
  const std::string zero("master\0", 7);
  for (const std::string& name : {std::string("\xff"), zero, std::string("\xed\xa0\x80\xff")}) {
    EXPECT_THAT(workspace.Find(name), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(workspace.Switch(name), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(workspace.CreateBranch(name), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(workspace.CreateTag(name), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(workspace.RemoveBranch(name), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(workspace.RemoveTag(name), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(workspace.PreviewMerge(name), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(workspace.Merge(name), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(workspace.Rebase(name), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(workspace.Log({.branch = name}), FailsWith(ErrorCode::BadText));
    EXPECT_THAT(Kit::Workspace::Open(store, {.branch = name}), FailsWith(ErrorCode::BadText));
  }
  EXPECT_EQ(workspace.GetBranches().size(), 2u);
  EXPECT_EQ(workspace.GetBranch(), "master");
}

TEST_F(WorkspaceRefusal, TextsThatAreNoUtf8AreRefusedEverywhere) {
  const std::string bad = "a\xc3";
  workspace.Write("a", "new").value();
  EXPECT_THAT(workspace.Checkpoint("x", bad, now), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Checkpoint(bad, "", now), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Commit(bad), FailsWith(ErrorCode::BadText));
  workspace.Discard();
  EXPECT_THAT(workspace.List(bad), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.ListFiles(bad), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Contains(bad), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Rename("a", bad), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Rename(bad, "b"), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Discard(bad), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Log({.path = bad}), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.BlameFile(bad), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.MeasurePaths(bad), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.CopyFrom(Kit::Snapshot(), bad, "b"), FailsWith(ErrorCode::BadText));
  EXPECT_EQ(FilesOf(workspace), m_files);
}

TEST_F(WorkspaceRefusal, HalvesOfSurrogatePairsThatBelongTogetherAreNoUtf8) {
  EXPECT_THAT(workspace.Write("\xed\xa0\xbd\xed\xb8\x80", "x"), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Write("\xc0\xaf", "x"), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Write("\xf4\x90\x80\x80", "x"), FailsWith(ErrorCode::BadText));
}

TEST_F(WorkspaceRefusal, RenameIntoItselfOntoSomethingOrThroughAFileIsRefused) {
  EXPECT_THAT(workspace.Rename("a", "a"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Rename("a", "a/b"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Rename("d", "d/z"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Rename("d", "d/x/z"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Rename("d/x", "d"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Rename("d", "a"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Rename("d", "a/d"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Rename("none", "b"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.GetChanges().value(), IsEmpty());
  workspace.Rename("d", "dd").value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}, {"dd/x", "2"}, {"dd/y", "3"}}));
}

TEST_F(WorkspaceRefusal, RemovedFileCantBeReadUntilItIsWrittenAgain) {
  workspace.Remove("a").value();
  EXPECT_THAT(workspace.Read("a"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Remove("a"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Rename("a", "b"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Read("d"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.List("a"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.ListFiles("none"), FailsWith(ErrorCode::NotFound));
  workspace.Write("a/b", "under the old name").value();
  EXPECT_EQ(workspace.Read("a/b").value().text(), "under the old name");
}

// A path of 5,000 names is a path, and costs what it contains.
TEST_F(WorkspaceRefusal, DeepAndLongPathsComeBack) {
  std::string deep = "n";
  for (int i = 1; i < 5000; ++i) deep += "/n";
  const std::string wide(100000, 'n');
  workspace.Write(deep, "deep").value();
  workspace.Write(wide, "wide").value();
  workspace.Commit("large names").value();
  Kit::Workspace again = OpenAgain();
  EXPECT_EQ(again.Read(deep).value().text(), "deep");
  EXPECT_EQ(again.Read(wide).value().text(), "wide");
  again.Write(deep + "er", "beside").value();
  again.Remove(deep).value();
  again.Commit("deeper").value();
  EXPECT_EQ(OpenAgain().ListFiles("n").value(), std::vector<std::string>{deep + "er"});
  EXPECT_EQ(again.Log({.path = deep}).value().size(), 2u);
}

TEST_F(WorkspaceRefusal, UnknownVersionsAreNotFound) {
  const Id blob = Kit::BlobFromBytes("1").GetId();
  const Id tree = workspace.At(workspace.GetHead().value()->id)->GetTree()->GetId();
  const Id unknown(Kit::ToWide(std::string(64, 'a')));
  for (const Id& id : {blob, tree, unknown, Id(), Id(Kit::ToWide("master"))}) {
    EXPECT_THAT(workspace.At(id), FailsWith(ErrorCode::NotFound)) << id;
    EXPECT_THAT(workspace.Restore(id), FailsWith(ErrorCode::NotFound)) << id;
    EXPECT_THAT(workspace.CherryPick(id), FailsWith(ErrorCode::NotFound)) << id;
    EXPECT_THAT(workspace.Revert(id), FailsWith(ErrorCode::NotFound)) << id;
    EXPECT_THAT(workspace.PreviewRevert(id), FailsWith(ErrorCode::NotFound)) << id;
  }
  EXPECT_THAT(workspace.CreateTag("x", unknown), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Log({.after = unknown}), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Log({.allBranches = true, .after = unknown}),
              FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Find(""), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Find("none"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Switch("none"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Merge("none"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Rebase("none"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.RemoveTag("none"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.BlameFile("none"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("first"));
}

TEST_F(WorkspaceRefusal, TagIsNeverTheCurrentBranch) {
  workspace.CreateTag("1.0").value();
  EXPECT_THAT(workspace.Switch("tags/1.0"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(Kit::Workspace::Open(store, {.branch = "tags/1.0"}), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.RemoveBranch("tags/1.0"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(Kit::Workspace::Open(store, {.branch = "none"}), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceRefusal, NewDocumentHasNothingToUndoMergeOrForget) {
  store = std::make_shared<Kit::MemoryObjectStore>();
  Kit::Workspace empty = OpenAgain();
  EXPECT_EQ(empty.Undo().value(), std::nullopt);
  EXPECT_EQ(empty.Redo().value(), std::nullopt);
  EXPECT_EQ(empty.PreviewUndo().value(), std::nullopt);
  EXPECT_EQ(empty.FindRedo().value(), std::nullopt);
  EXPECT_THAT(empty.Merge("master"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(empty.Rebase("master"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(empty.Remove("a"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(empty.Log().value(), IsEmpty());
  EXPECT_THAT(empty.Log({.allBranches = true}).value(), IsEmpty());
  EXPECT_THAT(empty.Forget(Kit::Retention::KeepNewest(0))->forgotten, IsEmpty());
  EXPECT_THAT(empty.MeasureVersions().value(), IsEmpty());
  EXPECT_THAT(empty.MeasurePaths().value(), IsEmpty());
  EXPECT_FALSE(empty.IsBehind().value());
  empty.Reload().value();
}

TEST_F(WorkspaceRefusal, BranchIsUpToDateWithItself) {
  EXPECT_TRUE(workspace.PreviewMerge("master")->isUpToDate);
  EXPECT_EQ(workspace.Merge("master").value(), std::nullopt);
  EXPECT_EQ(workspace.Rebase("master").value(), 0u);
}

TEST_F(WorkspaceRefusal, LimitsOfZeroAndOfAllAreLimits) {
  EXPECT_THAT(workspace.Log({.limit = 0}).value(), IsEmpty());
  EXPECT_EQ(workspace.Log({.limit = std::numeric_limits<std::uint64_t>::max()})->size(), 1u);
  const auto last = workspace.Log()->back().id;
  EXPECT_THAT(workspace.Log({.after = last}).value(), IsEmpty());
  EXPECT_THAT(workspace.Log({.since = now + Seconds(1), .until = now}).value(), IsEmpty());
}

TEST_F(WorkspaceRefusal, RulesThatKeepNothingKeepTheHeads) {
  using Kit::Retention;
  const Version second = CommitFiles({{"a", "2"}}, "second");
  workspace.CreateTag("tag", second.id).value();
  CommitFiles({{"a", "3"}}, "third");
  for (const Retention& rule :
       {Retention::KeepNewest(0), Retention::KeepUnder(0), Retention::KeepSince(now + Seconds(9)),
        Retention::ThinAutosaves(0, 0, now), Retention::TipsAndForks()}) {
    const Kit::RetentionReport report = workspace.PreviewForget(rule).value();
    const bool thins = rule.GetKind() == Retention::Kind::Thin;
    EXPECT_EQ(report.keptVersions, thins ? 3u : 2u);
    EXPECT_EQ(report.forgotten.size(), thins ? 0u : 1u);
  }
  workspace.Forget(Retention::KeepUnder(0)).value();
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("third", "second"));
  EXPECT_EQ(OpenAgain().Find("tag")->summary, "second");
}

TEST_F(WorkspaceRefusal, CheckpointsOfAClockThatGoesBackAreVersions) {
  for (int i = 1; i <= 3; ++i) {
    workspace.Write("a", "moved " + std::to_string(i)).value();
    workspace.Checkpoint(std::to_string(i), "drag", now - Seconds(i)).value();
  }
  EXPECT_THAT(Summaries(workspace), ElementsAre("3", "2", "1", "first"));
  workspace.Undo().value();
  EXPECT_EQ(workspace.Read("a").value().text(), "moved 2");
  EXPECT_THAT(Summaries(workspace, {.allBranches = true, .limit = 2}),
              ElementsAre("Undo \"3\"", "3"));
}

TEST_F(WorkspaceRefusal, VersionThatIsThereAlreadyIsNotPickedTwice) {
  workspace.CreateBranch("topic").value();
  const Version picked = CommitFiles({{"b", "1"}}, "picked");
  workspace.Switch("topic").value();
  EXPECT_FALSE(workspace.PreviewCherryPick(picked.id)->isUpToDate);
  workspace.CherryPick(picked.id).value().value();
  EXPECT_TRUE(workspace.PreviewCherryPick(picked.id)->isUpToDate);
  EXPECT_EQ(workspace.CherryPick(picked.id).value(), std::nullopt);
  workspace.Revert(picked.id).value().value();
  EXPECT_EQ(workspace.Revert(picked.id).value(), std::nullopt);
  EXPECT_THAT(Summaries(workspace), ElementsAre("Revert \"picked\"", "picked", "first"));
}

TEST_F(WorkspaceRefusal, PreviewThatAHostHasChangedDoesNoHarm) {
  workspace.CreateBranch("topic").value();
  Kit::MergePreview preview = workspace.PreviewMerge("topic").value();
  preview.branch = "\xff";
  EXPECT_THAT(workspace.Merge(preview), FailsWith(ErrorCode::BadText));
  preview.branch = "none";
  EXPECT_THAT(workspace.Merge(preview), FailsWith(ErrorCode::HeadMoved));
  preview.action = Kit::MergeAction::Revert;
  preview.version.id = Id();
  EXPECT_THAT(workspace.Merge(preview), FailsWith(ErrorCode::NotFound));
  preview.action = Kit::MergeAction::Reload;
  EXPECT_THAT(workspace.Merge(preview), FailsWith(ErrorCode::Unsupported));
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("first"));
}

TEST_F(WorkspaceRefusal, SnapshotOutlivesItsWorkspaceAndGoesToAnotherDocument) {
  std::string large(100000, 'x');
  CommitFiles({{"d/e/large", large}}, "large");
  const Kit::Snapshot snapshot = workspace.At(workspace.GetHead().value()->id).value();
  const auto elsewhere = std::make_shared<Kit::MemoryObjectStore>();
  Kit::Workspace other = Kit::Workspace::Open(elsewhere).value();
  workspace = Kit::Workspace::Open(std::make_shared<Kit::MemoryObjectStore>()).value();
  EXPECT_EQ(snapshot.Read("d/x").value().text(), "2");
  other.CopyFrom(snapshot, "d", "copies/d").value();
  other.CopyFrom(snapshot, "a", "copies/a").value();
  EXPECT_THAT(other.CopyFrom(snapshot, "none", "b"), FailsWith(ErrorCode::NotFound));
  other.Commit("copies").value();
  store.reset();
  const FileTexts expected{
      {"copies/a", "1"}, {"copies/d/e/large", large}, {"copies/d/x", "2"}, {"copies/d/y", "3"}};
  EXPECT_EQ(FilesOf(Kit::Workspace::Open(elsewhere).value()), expected);
}

TEST_F(WorkspaceRefusal, ObserverHearsOnceOfWhatSomebodyElseMoved) {
  std::vector<std::string> moves;
  workspace.Observe([&](const Kit::Workspace::Move& move) {
    moves.push_back(move.name + (move.isBySomebodyElse ? " theirs" : " own"));
  });
  Kit::Workspace other = OpenAgain();
  CommitFiles(other, {{"b", "1"}}, "theirs");
  EXPECT_THAT(moves, IsEmpty());
  EXPECT_TRUE(workspace.IsBehind().value());
  EXPECT_TRUE(workspace.IsBehind().value());
  EXPECT_THAT(moves, ElementsAre("master theirs"));
  other.CreateTag("1.0").value();
  workspace.Reload().value();
  EXPECT_THAT(moves, ElementsAre("master theirs", "tags/1.0 theirs"));
  EXPECT_FALSE(workspace.IsBehind().value());
  CommitFiles({{"c", "1"}}, "mine");
  EXPECT_FALSE(workspace.IsBehind().value());
  EXPECT_THAT(moves, ElementsAre("master theirs", "tags/1.0 theirs", "master own"));
}

}  // namespace
}  // namespace TalVcs::Testing
