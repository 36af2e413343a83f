#include <kit/merge/content_merger.h>
#include <kit/open/clean_up.h>
#include <kit/store/recording_store.h>
#include <kit/text.h>
#include <tests/kit/workspace/workspace_fixture.h>
#include <tests/support/text.h>

#include <set>

namespace TalVcs::Testing {
namespace {

using Kit::Conflict;
using Kit::ConflictKind;
using Kit::Decision;
using Kit::ErrorCode;
using Kit::MergePreview;
using testing::ElementsAre;
using testing::IsEmpty;

/// A document with the branches "master", which is current, and "topic".
class WorkspaceMerge : public WorkspaceTest {
 protected:
  void Fork(const FileTexts& base, const FileTexts& ours, const FileTexts& theirs) {
    CommitFiles(base, "base");
    workspace.CreateBranch("topic").value();
    OnTopic(theirs, "theirs");
    if (!ours.empty()) CommitFiles(ours, "ours");
  }

  /// Makes a version on the branch "topic".
  Version OnTopic(const FileTexts& files, const std::string& message) {
    workspace.Switch("topic").value();
    const Version made = CommitFiles(files, message);
    workspace.Switch("master").value();
    return made;
  }

  static std::string TextOf(const Kit::ConflictSide& side) {
    if (side.isFolder) return "folder";
    return side.content ? std::string(side.content->text()) : "none";
  }
  /// Returns each conflict as its path, its kind and what the three sides have.
  static std::vector<std::string> Texts(const std::vector<Conflict>& conflicts) {
    std::vector<std::string> texts;
    for (const Conflict& conflict : conflicts) {
      texts.push_back(conflict.path + " " + ToString(conflict.kind) + ": " + TextOf(conflict.base) +
                      ", " + TextOf(conflict.ours) + ", " + TextOf(conflict.theirs));
    }
    return texts;
  }
};

TEST_F(WorkspaceMerge, ChangesOfBothSidesComeTogether) {
  Fork({{"a", "1"}, {"b", "1"}, {"c/d", "1"}, {"e", "1"}}, {{"a", "2"}, {"c/new", "1"}},
       {{"b", "2"}, {"c/d", "2"}, {"e", ""}, {"f/g", "new"}});
  const MergePreview preview = workspace.PreviewMerge("topic").value();
  EXPECT_THAT(preview.conflicts, IsEmpty());
  EXPECT_FALSE(preview.isFastForward);
  std::vector<std::string> paths;
  for (const Kit::TreeChange& change : preview.changes) paths.push_back(change.path);
  EXPECT_THAT(paths, ElementsAre("b", "c/d", "e", "f/g"));
  const Version merged = workspace.Merge(preview).value().value();
  EXPECT_EQ(merged.summary, "Merge \"topic\"");
  EXPECT_THAT(merged.merges, ElementsAre(preview.version.id));
  EXPECT_EQ(FilesOf(OpenAgain()),
            (FileTexts{{"a", "2"}, {"b", "2"}, {"c/d", "2"}, {"c/new", "1"}, {"f/g", "new"}}));
}

TEST_F(WorkspaceMerge, PreviewHasEveryConflictWithThreeContentsAndChangesNothing) {
  Fork({{"both", "1"}, {"ours-gone", "1"}, {"theirs-gone", "1"}, {"place/in", "1"}, {"flat", "1"}},
       {{"both", "2"},
        {"added", "2"},
        {"ours-gone", ""},
        {"theirs-gone", "2"},
        {"flat", ""},
        {"flat/file", "2"},
        {"new", "2"},
        {"place/in", "2"}},
       {{"both", "3"},
        {"added", "3"},
        {"ours-gone", "3"},
        {"theirs-gone", ""},
        {"flat", "3"},
        {"new/file", "3"},
        {"place/in", ""}});
  const std::size_t objects = store->GetCount();
  const auto head = workspace.GetHead().value();
  EXPECT_THAT(
      Texts(workspace.PreviewMerge("topic").value().conflicts),
      ElementsAre("added BothAdded: none, 2, 3", "both BothChanged: 1, 2, 3",
                  "flat FileAgainstFolder: 1, folder, 3", "new FileAgainstFolder: none, 2, folder",
                  "ours-gone ChangedAndRemoved: 1, none, 3",
                  "place/in ChangedAndRemoved: 1, 2, none",
                  "theirs-gone ChangedAndRemoved: 1, 2, none"));
  EXPECT_EQ(workspace.GetHead().value(), head);
  EXPECT_THAT(workspace.GetChanges().value(), IsEmpty());
  EXPECT_EQ(store->GetCount(), objects);
}

// The contents of these files are distinct, so that their ids are.
TEST_F(WorkspaceMerge, FilesOfOneSideAloneAreNotRead) {
  Fork({{"both", "base"}, {"ours", "1"}, {"theirs", "2"}, {"dir/theirs", "3"}, {"gone", "4"}},
       {{"both", "of ours"}, {"ours", "of ours alone"}},
       {{"both", "of theirs"},
        {"theirs", "of theirs alone"},
        {"dir/theirs", "of theirs below"},
        {"gone", ""},
        {"new/file", "of theirs, new"}});
  const auto recording = std::make_shared<Kit::RecordingStore>(store);
  Kit::Workspace fresh = Kit::Workspace::Open(recording).value();
  const auto id_of = [](const std::string& text) { return Kit::BlobFromBytes(text).GetId(); };
  const auto read_ids = [&] {
    std::set<std::string> ids;
    for (const Kit::RecordedCall& call : recording->GetCalls()) {
      if (call.operation != Kit::StoreOperation::Read) continue;
      for (const Id& id : call.ids) ids.insert(Ascii(id));
    }
    return ids;
  };
  const std::set<std::string> in_conflict{Ascii(id_of("base")), Ascii(id_of("of ours")),
                                          Ascii(id_of("of theirs"))};
  const auto read_files = [&] {
    std::set<std::string> files;
    for (const char* text : {"base", "of ours", "of theirs", "1", "of ours alone", "2",
                             "of theirs alone", "3", "of theirs below", "4", "of theirs, new"}) {
      if (read_ids().contains(Ascii(id_of(text)))) files.insert(Ascii(id_of(text)));
    }
    return files;
  };
  const MergePreview preview = fresh.PreviewMerge("topic").value();
  EXPECT_EQ(read_files(), in_conflict);
  fresh.Merge(preview, {{"both", Decision::Theirs()}}).value();
  EXPECT_EQ(read_files(), in_conflict);
  EXPECT_EQ(FilesOf(OpenAgain()), (FileTexts{{"both", "of theirs"},
                                             {"ours", "of ours alone"},
                                             {"theirs", "of theirs alone"},
                                             {"dir/theirs", "of theirs below"},
                                             {"new/file", "of theirs, new"}}));
}

TEST_F(WorkspaceMerge, DecisionsTakeASideOrBytes) {
  Fork({{"a", "1"}, {"b", "1"}, {"c", "1"}, {"d", "1"}, {"e", "1"}, {"f", "1"}},
       {{"a", "2"}, {"b", "2"}, {"c", "2"}, {"d", "2"}, {"e", "2"}, {"f", ""}, {"f/x", "2"}},
       {{"a", "3"}, {"b", "3"}, {"c", "3"}, {"d", "3"}, {"e", ""}, {"f", "3"}});
  const MergePreview preview = workspace.PreviewMerge("topic").value();
  Kit::Decisions decisions{{"a", Decision::Ours()},   {"b", Decision::Theirs()},
                           {"c", Decision::Base()},   {"d", Decision::Content("4")},
                           {"e", Decision::Theirs()}, {"f", Decision::Theirs()}};
  workspace.Merge(preview, decisions).value();
  EXPECT_EQ(FilesOf(OpenAgain()),
            (FileTexts{{"a", "2"}, {"b", "3"}, {"c", "1"}, {"d", "4"}, {"f", "3"}}));
}

TEST_F(WorkspaceMerge, MissingAndUnknownDecisionsAreRefused) {
  Fork({{"a", "1"}, {"b", "1"}}, {{"a", "2"}, {"b", "2"}}, {{"a", "3"}, {"b", "3"}});
  const MergePreview preview = workspace.PreviewMerge("topic").value();
  const auto missing = workspace.Merge(preview, {{"a", Decision::Ours()}});
  EXPECT_THAT(missing, FailsWith(ErrorCode::Undecided));
  EXPECT_EQ(missing.error().subject, "b");
  EXPECT_THAT(workspace.Merge(preview, {{"c", Decision::Ours()}}), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Merge("topic"), FailsWith(ErrorCode::Undecided));
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("ours", "base"));
}

TEST_F(WorkspaceMerge, SecondMergeNeitherAsksAgainNorUndoesARevert) {
  Fork({{"a", "1"}, {"b", "1"}, {"c", "1"}}, {{"b", "2"}}, {{"a", "topic's"}, {"b", "3"}});
  workspace.Merge(workspace.PreviewMerge("topic").value(), {{"b", Decision::Ours()}}).value();
  CommitFiles({{"a", "1"}}, "Take a back");
  OnTopic({{"c", "2"}}, "something else");
  Kit::Workspace again = OpenAgain();
  EXPECT_THAT(again.PreviewMerge("topic").value().conflicts, IsEmpty());
  again.Merge("topic").value();
  EXPECT_EQ(FilesOf(again), (FileTexts{{"a", "1"}, {"b", "2"}, {"c", "2"}}));
}

TEST_F(WorkspaceMerge, TenMergesWithRevertsBetweenAskOnce) {
  Fork({{"a", "0"}, {"b", "0"}}, {{"a", "ours"}}, {{"a", "theirs"}});
  int questions = 0;
  for (int i = 1; i <= 10; ++i) {
    const MergePreview preview = workspace.PreviewMerge("topic").value();
    Kit::Decisions decisions;
    for (const Conflict& conflict : preview.conflicts) {
      ++questions;
      decisions.emplace(conflict.path, Decision::Theirs());
    }
    const Version merged = workspace.Merge(preview, decisions).value().value();
    workspace.Revert(merged.id).value();
    EXPECT_EQ(workspace.Read("a").value().text(), "ours");
    OnTopic({{"b" + std::to_string(i), "more"}}, "more");
  }
  EXPECT_EQ(questions, 1);
}

TEST_F(WorkspaceMerge, MergesInBothDirectionsRememberEachOther) {
  Fork({{"a", "1"}, {"b", "1"}}, {{"a", "2"}}, {{"b", "2"}});
  workspace.Merge("topic").value();
  workspace.Switch("topic").value();
  EXPECT_FALSE(workspace.PreviewMerge("master").value().isFastForward);
  workspace.Merge("master").value();
  EXPECT_TRUE(workspace.PreviewMerge("master").value().isUpToDate);
  EXPECT_EQ(workspace.Merge("master").value(), std::nullopt);
  CommitFiles({{"a", "3"}}, "on topic");
  workspace.Switch("master").value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "2"}, {"b", "2"}}));
  workspace.Merge("topic").value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "3"}, {"b", "2"}}));
}

// Each branch merges the former head of the other: both of these are merge bases of the two.
TEST_F(WorkspaceMerge, CrossedMergesHaveTheMergeOfTheirBasesAsBase) {
  Fork({{"a", "1"}, {"b", "1"}, {"c", "1"}}, {{"a", "ours"}, {"c", "ours"}},
       {{"b", "theirs"}, {"c", "theirs"}});
  workspace.CreateBranch("old master").value();
  workspace.Merge(workspace.PreviewMerge("topic").value(), {{"c", Decision::Ours()}}).value();
  workspace.Switch("topic").value();
  workspace.Merge(workspace.PreviewMerge("old master").value(), {{"c", Decision::Theirs()}})
      .value();
  CommitFiles({{"a", "new"}, {"b", "new"}}, "on topic");
  workspace.Switch("master").value();
  EXPECT_THAT(workspace.PreviewMerge("topic").value().conflicts, IsEmpty());
  workspace.Switch("topic").value();
  CommitFiles({{"c", "new"}}, "the disputed file");
  workspace.Switch("master").value();
  EXPECT_THAT(Texts(workspace.PreviewMerge("topic").value().conflicts),
              ElementsAre("c BothChanged: none, ours, new"));
  workspace.Merge(workspace.PreviewMerge("topic").value(), {{"c", Decision::Base()}}).value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "new"}, {"b", "new"}}));
}

TEST_F(WorkspaceMerge, BranchThatIsAheadOnlyMovesTheCurrentOne) {
  Fork({{"a", "1"}}, {}, {{"a", "2"}});
  const MergePreview preview = workspace.PreviewMerge("topic").value();
  EXPECT_TRUE(preview.isFastForward);
  EXPECT_EQ(workspace.Merge(preview).value()->id, preview.version.id);
  EXPECT_EQ(FilesOf(OpenAgain()), (FileTexts{{"a", "2"}}));
  EXPECT_EQ(workspace.Merge("topic").value(), std::nullopt);
  OnTopic({{"a", "3"}}, "more");
  const Version merged = workspace.Merge("topic", {.allowsFastForward = false}).value().value();
  EXPECT_THAT(merged.merges, ElementsAre(workspace.Find("topic").value().id));
}

TEST_F(WorkspaceMerge, PreviewOfAMovedBranchIsRefused) {
  Fork({{"a", "1"}}, {{"b", "2"}}, {{"a", "2"}});
  const MergePreview preview = workspace.PreviewMerge("topic").value();
  OnTopic({{"a", "3"}}, "moved");
  EXPECT_THAT(workspace.Merge(preview), FailsWith(ErrorCode::HeadMoved));
  const MergePreview second = workspace.PreviewMerge("topic").value();
  CommitFiles({{"b", "3"}}, "moved too");
  EXPECT_THAT(workspace.Merge(second), FailsWith(ErrorCode::HeadMoved));
  EXPECT_THAT(workspace.PreviewMerge("none"), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceMerge, MergersJoinWhatIsInsideAFile) {
  Kit::WorkspaceOptions options;
  options.mergers.Add("*.txt", Kit::MakeTextMerger());
  workspace = Kit::Workspace::Open(store, options).value();
  Fork({{"a.txt", "1\n2\n3\n"}, {"b.txt", "1\n2\n3\n"}, {"c", "1\n2\n3\n"}},
       {{"a.txt", "ours\n2\n3\n"}, {"b.txt", "ours\n2\n3\n"}, {"c", "ours\n2\n3\n"}},
       {{"a.txt", "1\n2\ntheirs\n"}, {"b.txt", "theirs\n2\n3\n"}, {"c", "1\n2\ntheirs\n"}});
  const MergePreview preview = workspace.PreviewMerge("topic").value();
  ASSERT_EQ(preview.conflicts.size(), 2u);
  EXPECT_EQ(preview.conflicts[0].path, "b.txt");
  EXPECT_EQ(preview.conflicts[0].places.size(), 1u);
  EXPECT_EQ(preview.conflicts[0].merged->text(), "ours\n2\n3\n");
  EXPECT_EQ(preview.conflicts[1].path, "c");
  EXPECT_EQ(preview.conflicts[1].merged, std::nullopt);
  workspace.Merge(preview, {{"b.txt", Decision::Ours()}, {"c", Decision::Theirs()}}).value();
  EXPECT_EQ(workspace.Read("a.txt").value().text(), "ours\n2\ntheirs\n");
}

TEST_F(WorkspaceMerge, CherryPickBringsInOneVersion) {
  Fork({{"a", "1"}, {"b", "1"}}, {{"c", "ours"}}, {{"a", "2"}});
  const Version picked = OnTopic({{"b", "2"}}, "second\n\ntext");
  const Version made = workspace.CherryPick(picked.id).value().value();
  EXPECT_EQ(made.message, "second\n\ntext");
  EXPECT_EQ(FilesOf(OpenAgain()), (FileTexts{{"a", "1"}, {"b", "2"}, {"c", "ours"}}));
  EXPECT_THAT(workspace.CherryPick(Id(TAL_WIDE("none"))), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceMerge, RevertTakesBackOneVersionUnderLaterOnes) {
  CommitFiles({{"a", "1"}}, "first");
  const Version bad = CommitFiles({{"a", "2"}, {"b", "1"}}, "bad");
  CommitFiles({{"c", "1"}}, "later");
  EXPECT_EQ(workspace.Revert(bad.id).value()->summary, "Revert \"bad\"");
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}, {"c", "1"}}));
  EXPECT_EQ(workspace.Undo().value()->summary, "Undo \"Revert \"bad\"\"");
  CommitFiles({{"a", "3"}}, "other");
  EXPECT_THAT(workspace.Revert(bad.id), FailsWith(ErrorCode::Undecided));
}

TEST_F(WorkspaceMerge, RebaseReplaysVersionsWithTheirAuthorsAndTimes) {
  Fork({{"a", "1"}}, {}, {{"t", "1"}});
  CommitFiles(workspace, {{"a", "2"}}, "one", "Ada");
  const Version one = workspace.GetHead().value().value();
  workspace.Undo().value();
  workspace.Redo().value();
  CommitFiles(workspace, {{"b", "2"}}, "two", "Bob");
  EXPECT_EQ(workspace.Rebase("topic").value(), 4u);
  EXPECT_THAT(Summaries(OpenAgain()),
              ElementsAre("two", "Redo \"one\"", "Undo \"one\"", "one", "theirs", "base"));
  const std::vector<Version> log = workspace.Log().value();
  EXPECT_EQ(log[3].author, "Ada");
  EXPECT_EQ(log[3].time, one.time);
  EXPECT_EQ(log[2].undoes, log[3].id);
  EXPECT_EQ(log[1].redoes, log[2].id);
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "2"}, {"b", "2"}, {"t", "1"}}));
  EXPECT_EQ(workspace.Rebase("topic").value(), 0u);
}

TEST_F(WorkspaceMerge, RebaseAsksAndLeavesOutWhatIsThere) {
  Fork({{"a", "1"}, {"b", "1"}}, {{"a", "ours"}}, {{"a", "theirs"}, {"b", "2"}});
  CommitFiles({{"b", "2"}}, "the same");
  EXPECT_THAT(workspace.Rebase("topic"), FailsWith(ErrorCode::Undecided));
  EXPECT_THAT(Summaries(workspace), ElementsAre("the same", "ours", "base"));
  std::vector<std::string> asked;
  const auto decide = [&](const MergePreview& preview) -> Kit::Result<Kit::Decisions> {
    asked.push_back(preview.version.summary);
    return Kit::Decisions{{preview.conflicts.front().path, Decision::Theirs()}};
  };
  EXPECT_EQ(workspace.Rebase("topic", decide).value(), 1u);
  EXPECT_THAT(asked, ElementsAre("ours"));
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("ours", "theirs", "base"));
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "ours"}, {"b", "2"}}));
}

TEST_F(WorkspaceMerge, CancelledMergeAndRebaseLeaveNoTrace) {
  Fork({{"a", "1"}}, {{"b", "2"}}, {{"a", "2"}});
  const Id head = workspace.GetHead().value()->id;
  const auto cancel_at_each_call = [&](auto operation) {
    for (int most = 0;; ++most) {
      int calls = 0;
      Kit::MergeOptions options;
      options.progress = [&](const Kit::ProgressStep&) { return calls++ < most; };
      if (operation(options)) return most;
      EXPECT_EQ(workspace.GetHead().value()->id, head);
      EXPECT_EQ(OpenAgain().GetHead().value()->id, head);
      EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}, {"b", "2"}}));
    }
  };
  workspace.CreateBranch("copy").value();
  EXPECT_GT(cancel_at_each_call([&](const Kit::MergeOptions& options) {
              return workspace.Merge("topic", options).ok();
            }),
            2);
  workspace.Switch("copy").value();
  EXPECT_GT(cancel_at_each_call([&](const Kit::MergeOptions& options) {
              return workspace.Rebase("topic", {}, options).ok();
            }),
            2);
}

TEST_F(WorkspaceMerge, ReloadBringsPendingEditsAndTheirsTogether) {
  CommitFiles({{"a", "1"}, {"b", "1"}, {"c/d", "1"}}, "base");
  Kit::Workspace other = OpenAgain();
  CommitFiles(other, {{"a", "theirs"}, {"new", "theirs"}}, "theirs");
  workspace.Write("b", "mine").value();
  workspace.Remove("c").value();
  workspace.Write("c", "file").value();
  workspace.Reload().value();
  EXPECT_EQ(FilesOf(workspace),
            (FileTexts{{"a", "theirs"}, {"b", "mine"}, {"c", "file"}, {"new", "theirs"}}));
  EXPECT_EQ(workspace.GetChanges().value().size(), 3u);
  workspace.Commit("mine").value();
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("mine", "theirs", "base"));
}

TEST_F(WorkspaceMerge, ReloadAsksAboutConflictsAndChangesNothingBefore) {
  CommitFiles({{"a", "1"}, {"b", "1"}}, "base");
  Kit::Workspace other = OpenAgain();
  CommitFiles(other, {{"a", "theirs"}, {"b", "theirs"}}, "theirs");
  workspace.Write("a", "mine").value();
  EXPECT_THAT(workspace.Reload(), FailsWith(ErrorCode::Undecided));
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "mine"}, {"b", "1"}}));
  const MergePreview preview = workspace.PreviewReload().value();
  EXPECT_THAT(Texts(preview.conflicts), ElementsAre("a BothChanged: 1, mine, theirs"));
  EXPECT_THAT(workspace.Merge(preview), FailsWith(ErrorCode::Unsupported));
  workspace.Reload({{"a", Decision::Content("both")}}).value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "both"}, {"b", "theirs"}}));
}

// Decisions about an older head took back what was saved after the preview.
TEST_F(WorkspaceMerge, ReloadRefusesDecisionsAboutAnOlderHead) {
  CommitFiles({{"a", "1"}}, "base");
  Kit::Workspace other = OpenAgain();
  CommitFiles(other, {{"a", "theirs"}}, "theirs");
  workspace.Write("a", "mine").value();
  ASSERT_EQ(workspace.PreviewReload()->conflicts.size(), 1u);
  const Kit::Version later = CommitFiles(other, {{"a", "theirs, later"}}, "later");
  const Kit::Decisions decisions{{"a", Decision::Content("theirs, mine")}};
  const Kit::Status refused = workspace.Reload(decisions);
  ASSERT_THAT(refused, FailsWith(ErrorCode::HeadMoved));
  EXPECT_THAT(refused.error().heads, ElementsAre(Kit::Head{"master", later.id}));
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "mine"}}));
  ASSERT_EQ(workspace.PreviewReload()->conflicts.front().theirs.content->text(), "theirs, later");
  workspace.Reload({{"a", Decision::Content("theirs, later, mine")}}).value();
  workspace.Commit("mine").value();
  EXPECT_EQ(FilesOf(OpenAgain()), (FileTexts{{"a", "theirs, later, mine"}}));
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("mine", "later", "theirs", "base"));
}

TEST_F(WorkspaceMerge, ReloadOfABranchThatIsGoneKeepsAllFilesPending) {
  CommitFiles({{"a", "1"}}, "base");
  workspace.CreateBranch("topic").value();
  workspace.Switch("topic").value();
  workspace.Write("b", "2").value();
  Kit::Workspace other = OpenAgain();
  other.Switch("master").value();
  other.RemoveBranch("topic").value();
  workspace.Reload().value();
  EXPECT_EQ(workspace.GetBranch(), "topic");
  EXPECT_EQ(workspace.GetHead().value(), std::nullopt);
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}, {"b", "2"}}));
  workspace.Commit("anew").value();
  EXPECT_EQ(FilesOf(OpenAgain()), (FileTexts{{"a", "1"}, {"b", "2"}}));
}

}  // namespace
}  // namespace TalVcs::Testing
