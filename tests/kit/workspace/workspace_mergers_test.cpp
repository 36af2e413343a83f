// Mergers by path pattern, and cancelling, in every operation that merges.

#include <kit/merge/content_merger.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <functional>

namespace TalVcs::Testing {
namespace {

using Kit::Decision;
using Kit::ErrorCode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kText = "one\ntwo\nthree\nfour\nfive\n";
const std::string kOurText = "ONE\ntwo\nthree\nfour\nfive\n";
const std::string kTheirText = "one\ntwo\nthree\nfour\nFIVE\n";
const std::string kBothTexts = "ONE\ntwo\nthree\nfour\nFIVE\n";
const std::string kShape = R"({"x":1,"y":1})";
const std::string kOurShape = R"({"x":2,"y":1})";
const std::string kTheirShape = R"({"x":1,"y":2})";
const std::string kBothShapes = R"({"x":2,"y":2})";

/// A document whose texts and shapes have mergers; files "raw" have none.
class WorkspaceMergers : public WorkspaceTest {
 protected:
  WorkspaceMergers() : m_base{{"notes.txt", kText}, {"shapes/1/house", kShape}, {"raw", "0"}} {
    m_options.clock = [this] { return now += Seconds(60); };
    m_options.mergers.Add("*.txt", Kit::MakeTextMerger());
    m_options.mergers.Add("shapes/**", Kit::MakeJsonMerger());
    workspace = Open();
    CommitFiles(m_base, "base");
  }

  Kit::Workspace Open() { return Kit::Workspace::Open(store, m_options).value(); }

  /// Makes the branch "topic", one version on it and one on "master", which is current.
  void Fork() {
    workspace.CreateBranch("topic").value();
    workspace.Switch("topic").value();
    m_theirs = CommitFiles({{"notes.txt", kTheirText}, {"shapes/1/house", kTheirShape}}, "theirs");
    workspace.Switch("master").value();
    CommitFiles({{"notes.txt", kOurText}, {"shapes/1/house", kOurShape}}, "ours");
  }

  void ExpectBoth(const Kit::Workspace& of) const {
    EXPECT_EQ(
        FilesOf(of),
        (FileTexts{{"notes.txt", kBothTexts}, {"shapes/1/house", kBothShapes}, {"raw", "0"}}));
  }

  Kit::WorkspaceOptions m_options;
  FileTexts m_base;
  Version m_theirs;
};

TEST_F(WorkspaceMergers, MergeJoinsTextsAndShapes) {
  Fork();
  const Kit::MergePreview preview = workspace.PreviewMerge("topic").value();
  EXPECT_THAT(preview.conflicts, IsEmpty());
  EXPECT_THAT(preview.changes, SizeIs(2));
  workspace.Merge("topic").value().value();
  ExpectBoth(OpenAgain());
}

TEST_F(WorkspaceMergers, CherryPickJoinsTextsAndShapes) {
  Fork();
  workspace.CherryPick(m_theirs.id).value().value();
  ExpectBoth(OpenAgain());
}

TEST_F(WorkspaceMergers, RevertKeepsWhatOthersChangedInTheSameFiles) {
  const Version ours =
      CommitFiles({{"notes.txt", kOurText}, {"shapes/1/house", kOurShape}}, "ours");
  CommitFiles({{"notes.txt", kBothTexts}, {"shapes/1/house", kBothShapes}}, "both");
  workspace.Revert(ours.id).value().value();
  EXPECT_EQ(FilesOf(OpenAgain()),
            (FileTexts{{"notes.txt", kTheirText}, {"shapes/1/house", kTheirShape}, {"raw", "0"}}));
}

TEST_F(WorkspaceMergers, UndoAndRedoKeepWhatOthersChangedInTheSameFiles) {
  CommitFiles(workspace, {{"notes.txt", kOurText}, {"shapes/1/house", kOurShape}}, "mine", "Ada");
  CommitFiles(workspace, {{"notes.txt", kBothTexts}, {"shapes/1/house", kBothShapes}}, "Bob's",
              "Bob");
  workspace.Undo({.author = "Ada"}).value().value();
  EXPECT_EQ(workspace.Read("notes.txt").value().text(), kTheirText);
  EXPECT_EQ(workspace.Read("shapes/1/house").value().text(), kTheirShape);
  workspace.Redo({.author = "Ada"}).value().value();
  ExpectBoth(OpenAgain());
}

TEST_F(WorkspaceMergers, RebaseJoinsTextsAndShapes) {
  Fork();
  EXPECT_EQ(workspace.Rebase("topic").value(), 1u);
  ExpectBoth(OpenAgain());
  EXPECT_THAT(Summaries(workspace), ElementsAre("ours", "theirs", "base"));
}

TEST_F(WorkspaceMergers, ReloadJoinsPendingTextsAndShapes) {
  Kit::Workspace other = OpenAgain();
  CommitFiles(other, {{"notes.txt", kTheirText}, {"shapes/1/house", kTheirShape}}, "theirs");
  workspace.Write("notes.txt", kOurText).value();
  workspace.Write("shapes/1/house", kOurShape).value();
  EXPECT_THAT(workspace.PreviewReload()->conflicts, IsEmpty());
  workspace.Reload().value();
  workspace.Commit("mine").value().value();
  ExpectBoth(OpenAgain());
}

TEST_F(WorkspaceMergers, ConflictInsideAFileHasItsPlaceAndWhatWasMerged) {
  workspace.CreateBranch("topic").value();
  workspace.Switch("topic").value();
  CommitFiles({{"notes.txt", "theirs\ntwo\nthree\nfour\nFIVE\n"}, {"raw", "2"}}, "theirs");
  workspace.Switch("master").value();
  CommitFiles({{"notes.txt", kOurText}, {"raw", "1"}}, "ours");
  const Kit::MergePreview preview = workspace.PreviewMerge("topic").value();
  ASSERT_THAT(preview.conflicts, SizeIs(2));
  const Kit::Conflict& notes = preview.conflicts[0];
  ASSERT_THAT(notes.places, SizeIs(1));
  EXPECT_EQ(notes.places[0].place, "line 1");
  EXPECT_EQ(notes.places[0].left, "ONE\n");
  EXPECT_EQ(notes.places[0].right, "theirs\n");
  EXPECT_EQ(notes.merged->text(), kBothTexts);
  EXPECT_EQ(preview.conflicts[1].merged, std::nullopt);
  workspace
      .Merge(preview, {{"notes.txt", Decision::Content(*notes.merged)}, {"raw", Decision::Ours()}})
      .value();
  EXPECT_EQ(workspace.Read("notes.txt").value().text(), kBothTexts);
}

TEST_F(WorkspaceMergers, FileThatAMergerCantReadIsAConflictAsAWhole) {
  workspace.CreateBranch("topic").value();
  workspace.Switch("topic").value();
  CommitFiles({{"shapes/1/house", "no JSON"}}, "theirs");
  workspace.Switch("master").value();
  CommitFiles({{"shapes/1/house", kOurShape}}, "ours");
  const Kit::MergePreview preview = workspace.PreviewMerge("topic").value();
  ASSERT_THAT(preview.conflicts, SizeIs(1));
  EXPECT_EQ(preview.conflicts[0].merged, std::nullopt);
  EXPECT_EQ(preview.conflicts[0].theirs.content->text(), "no JSON");
}

TEST_F(WorkspaceMergers, MergerThatThrowsLeavesEverything) {
  m_options.mergers = {};
  m_options.mergers.Add("*", [](const Kit::ContentToMerge&) -> Kit::Result<Kit::MergedContent> {
    throw std::runtime_error("the host's own");
  });
  workspace = Open();
  Fork();
  EXPECT_THROW((void)workspace.Merge("topic"), std::runtime_error);
  EXPECT_THAT(Summaries(workspace), ElementsAre("ours", "base"));
  CommitFiles({{"raw", "1"}}, "later");
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("later", "ours", "base"));
}

/// Cancels an operation at its first call, its second one and so on, and checks that nothing has
/// changed. Returns at how many calls it was cancelled.
class WorkspaceCancelling : public WorkspaceMergers {
 protected:
  using Operation = std::function<Kit::Result<bool>(const Kit::Progress&)>;

  int CancelAtEachCall(const Operation& operation) {
    const FileTexts files = FilesOf(workspace);
    const auto versions = Summaries(workspace, {.allBranches = true});
    for (int most = 0;; ++most) {
      int calls = 0;
      const auto done = operation([&](const Kit::ProgressStep&) { return calls++ < most; });
      if (done.ok()) return most;
      EXPECT_THAT(done, FailsWith(ErrorCode::Cancelled));
      EXPECT_EQ(calls, most + 1);
      EXPECT_EQ(FilesOf(workspace), files);
      EXPECT_EQ(Summaries(workspace, {.allBranches = true}), versions);
      if (HasFailure()) return -1;
    }
  }

  template <class Value>
  static Kit::Result<bool> Done(const Kit::Result<Value>& result) {
    if (!result) return result.error();
    return true;
  }
};

TEST_F(WorkspaceCancelling, EveryPreviewEndsAtEachCall) {
  Fork();
  workspace.Write("raw", "pending").value();
  EXPECT_EQ(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.PreviewMerge("topic", {progress}));
            }),
            2);
  EXPECT_EQ(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.PreviewCherryPick(m_theirs.id, {progress}));
            }),
            2);
  EXPECT_EQ(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.PreviewRevert(m_theirs.id, {progress}));
            }),
            2);
  EXPECT_EQ(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.PreviewUndo({.progress = progress}));
            }),
            3);
  EXPECT_EQ(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.PreviewReload({progress}));
            }),
            2);
}

TEST_F(WorkspaceCancelling, EveryOperationThatMergesEndsAtEachCall) {
  Fork();
  EXPECT_GT(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.CherryPick(m_theirs.id, {.progress = progress}));
            }),
            5);
  EXPECT_GT(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.Undo({.progress = progress}));
            }),
            6);
  EXPECT_GT(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.Redo({.progress = progress}));
            }),
            6);
  EXPECT_GT(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.Revert(m_theirs.id, {.progress = progress}));
            }),
            5);
  EXPECT_GT(CancelAtEachCall([&](const Kit::Progress& progress) {
              return Done(workspace.Merge("topic", {.progress = progress}));
            }),
            5);
  EXPECT_EQ(OpenAgain().GetHead().value(), workspace.GetHead().value());
}

TEST_F(WorkspaceCancelling, ReloadEndsAtEachCallAndKeepsPendingEdits) {
  Kit::Workspace other = OpenAgain();
  CommitFiles(other, {{"notes.txt", kTheirText}}, "theirs");
  workspace.Write("notes.txt", kOurText).value();
  EXPECT_GT(CancelAtEachCall([&](const Kit::Progress& progress) -> Kit::Result<bool> {
              const Kit::Status status = workspace.Reload({}, {progress});
              if (!status) return status.error();
              return true;
            }),
            1);
  EXPECT_EQ(workspace.Read("notes.txt").value().text(), kBothTexts);
}

}  // namespace
}  // namespace TalVcs::Testing
