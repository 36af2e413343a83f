// Where the rules of a workspace begin and end: times, authors, gestures, lists. And what a version
// or an error says of an operation.

#include <kit/store/passing_store.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <set>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::Retention;
using testing::ElementsAre;

class WorkspaceBoundaries : public WorkspaceTest {
 protected:
  WorkspaceBoundaries() { CommitFiles({{"a", "0"}}, "first"); }

  /// Makes a checkpoint of one gesture so many seconds after the first version.
  void Save(const std::string& content, int second, const Kit::CheckpointOptions& options = {}) {
    workspace.Write("a", content).value();
    workspace.Checkpoint(content, "drag", begin + Seconds(second), options).value();
  }

  const std::chrono::sys_seconds begin = now;
};

TEST_F(WorkspaceBoundaries, GestureGoesOnUntilTheEndOfItsWindow) {
  Save("1", 0);
  Save("2", 60);
  EXPECT_THAT(Summaries(workspace), ElementsAre("2", "first"));
  Save("3", 121);
  EXPECT_THAT(Summaries(workspace), ElementsAre("3", "2", "first"));
  Save("4", 121, {.window = Seconds(0)});
  EXPECT_THAT(Summaries(workspace), ElementsAre("4", "2", "first"));
  Save("5", 122, {.window = Seconds(0)});
  EXPECT_THAT(Summaries(workspace), ElementsAre("5", "4", "2", "first"));
}

TEST_F(WorkspaceBoundaries, GestureIsThatOfOneAddressAndOneBranch) {
  Save("1", 0, {.author = "Ada", .email = "at home"});
  Save("2", 1, {.author = "Ada", .email = "at work"});
  EXPECT_THAT(Summaries(workspace), ElementsAre("2", "1", "first"));
  workspace.CreateBranch("topic", workspace.Log({.limit = 3})->back().id).value();
  Save("3", 2, {.author = "Ada", .email = "at work"});
  workspace.Switch("topic").value();
  workspace.Switch("master").value();
  Save("4", 3, {.author = "Ada", .email = "at work"});
  EXPECT_THAT(Summaries(workspace), ElementsAre("4", "3", "2", "1", "first"));
}

TEST_F(WorkspaceBoundaries, LogHasTheVersionsOfBothEndsOfASpan) {
  for (const char* second : {"1", "2", "3"}) Save(second, 100 * (second[0] - '0'));
  const auto from = begin + Seconds(100);
  const auto to = begin + Seconds(200);
  EXPECT_THAT(Summaries(workspace, {.since = from, .until = to}), ElementsAre("2", "1"));
  EXPECT_THAT(Summaries(workspace, {.since = from + Seconds(1), .until = to}), ElementsAre("2"));
  EXPECT_THAT(Summaries(workspace, {.since = from, .until = to - Seconds(1)}), ElementsAre("1"));
}

TEST_F(WorkspaceBoundaries, AuthorAndAddressOfACommitReplaceThoseOfTheWorkspaceTogether) {
  Kit::WorkspaceOptions options{.author = "Ada", .email = "ada@example.org"};
  Kit::Workspace document = Kit::Workspace::Open(store, options).value();
  const auto person = [&](const Kit::CommitOptions& commit) {
    document.Write("a", std::to_string(document.Log()->size())).value();
    const Version made = document.Commit("edit", commit).value().value();
    return made.author + " <" + made.email + ">";
  };
  EXPECT_EQ(person({}), "Ada <ada@example.org>");
  EXPECT_EQ(person({.author = "Bob"}), "Bob <>");
  EXPECT_EQ(person({.email = "bob@example.org"}), " <bob@example.org>");
}

TEST_F(WorkspaceBoundaries, UndoIsThatOfOneAddressAndHasItsAuthorAndTime) {
  const Kit::CommitOptions home{.author = "Ada", .email = "at home"};
  const Kit::CommitOptions work{.author = "Ada", .email = "at work"};
  workspace.Write("b", "1").value();
  const Version at_home = workspace.Commit("at home", home).value().value();
  workspace.Write("c", "1").value();
  workspace.Commit("at work", work).value().value();
  EXPECT_EQ(workspace.FindUndo(home).value()->id, at_home.id);
  Kit::CommitOptions later = home;
  later.time = begin + Seconds(5000);
  const Version undo = workspace.Undo(later).value().value();
  EXPECT_EQ(undo.undoes, at_home.id);
  EXPECT_EQ(undo.author + " " + undo.email, "Ada at home");
  EXPECT_EQ(undo.time, begin + Seconds(5000));
  EXPECT_EQ(workspace.FindRedo(work).value(), std::nullopt);
  EXPECT_EQ(workspace.Redo(home).value()->message, "Redo \"at home\"");
}

TEST_F(WorkspaceBoundaries, ErrorsNameTheOperationAndWhatIsUnchanged) {
  workspace.Write("a", "pending").value();
  const auto undone = workspace.Undo();
  ASSERT_THAT(undone, FailsWith(ErrorCode::Undecided));
  EXPECT_EQ(undone.error().message,
            "cannot undo: there are pending edits; commit or discard them first");
  Kit::Workspace other = OpenAgain();
  const Version theirs = CommitFiles(other, {{"b", "1"}}, "theirs");
  const auto made = workspace.Commit("mine");
  ASSERT_THAT(made, FailsWith(ErrorCode::HeadMoved));
  EXPECT_EQ(made.error().unchanged,
            "nothing was saved and pending edits stay; reload, then try again");
  workspace.Discard();
  workspace.Reload().value();
  const Kit::MergePreview preview = workspace.PreviewRevert(theirs.id).value();
  const Version later = CommitFiles({{"c", "1"}}, "later");
  const auto reverted = workspace.Merge(preview);
  ASSERT_THAT(reverted, FailsWith(ErrorCode::HeadMoved));
  EXPECT_THAT(reverted.error().heads, ElementsAre(Kit::Head{"master", later.id}));
}

TEST_F(WorkspaceBoundaries, CleanUpThatFailsLeavesTheVersionsForgotten) {
  for (const char* content : {"1", "2", "3"}) CommitFiles({{"a", content}}, content);
  class NoRemovals final : public Kit::PassingStore {
   public:
    using Kit::PassingStore::PassingStore;
    Kit::Result<Kit::RemovedObjects> RemoveUnmarked(const Kit::MarkObjects&) override {
      return Kit::Error{ErrorCode::Busy, "somebody reads", "", "", "", {}};
    }
  };
  Kit::Workspace document = Kit::Workspace::Open(std::make_shared<NoRemovals>(store)).value();
  const Kit::RetentionReport preview =
      document.PreviewForget(Retention::KeepNewest(1), {.mostListed = 2}).value();
  EXPECT_EQ(preview.forgottenVersions, 3U);
  ASSERT_EQ(preview.forgotten.size(), 2U);
  EXPECT_EQ(preview.forgotten[1].summary, "1");
  const auto forgotten = document.Forget(Retention::KeepNewest(1));
  ASSERT_THAT(forgotten, FailsWith(ErrorCode::Busy));
  EXPECT_EQ(forgotten.error().unchanged,
            "the versions are forgotten; the next clean-up frees their space");
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("3"));
}

TEST_F(WorkspaceBoundaries, TextWithZeroIsRefusedWithItsPlace) {
  workspace.Write("b", "1").value();
  const auto made = workspace.Commit("message", {.author = std::string("Ada\0", 4)});
  ASSERT_THAT(made, FailsWith(ErrorCode::BadText));
  EXPECT_EQ(made.error().message, "the author has U+0000 at byte 3");
}

// Branches of which the first 67 contain all three of the others: only the last ones separate them.
TEST_F(WorkspaceBoundaries, BaseOfTheLastOfManyBranchesIsKept) {
  const Version base = CommitFiles({{"a", "base"}}, "base");
  for (const char* name : {"x", "y", "z"}) {
    workspace.CreateBranch(name, base.id).value();
    workspace.Switch(name).value();
    CommitFiles({{name, "1"}}, name);
    workspace.Switch("master").value();
    workspace.Merge(name, {.allowsFastForward = false}).value();
  }
  const Id merged = workspace.GetHead().value()->id;
  for (int i = 100; i < 166; ++i) {
    const std::string name = "b" + std::to_string(i);
    workspace.CreateBranch(name, merged).value();
    workspace.Switch(name).value();
    CommitFiles({{name, "1"}}, name);
  }
  workspace.Forget(Retention::KeepNewest(1)).value();
  EXPECT_THAT(Summaries(workspace, {.branch = "z"}), ElementsAre("z", "base"));
}

// What a preview of a rule says that goes back is what the rule removes: the old commits of the
// versions that get new ids count too.
TEST_F(WorkspaceBoundaries, PreviewOfARuleCountsTheCommitsThatAreMadeAgain) {
  for (const char* content : {"1", "2", "3"}) CommitFiles({{"a", content}}, content);
  const std::size_t before = store->GetCount();
  const Kit::RetentionReport preview = workspace.PreviewForget(Retention::KeepNewest(2)).value();
  std::set<std::string> phases;
  Kit::ForgetOptions options;
  options.progress = [&phases](const Kit::ProgressStep& step) {
    phases.insert(std::string(step.phase));
    return true;
  };
  workspace.Forget(Retention::KeepNewest(2), options).value();
  // Four commits, folders and files are gone or stay; two commits were made again.
  EXPECT_EQ(before, 12U);
  EXPECT_EQ(preview.freed.count, 4U + 2 + 2);
  EXPECT_EQ(store->GetCount(), before - 8 + 2);
  EXPECT_TRUE(phases.contains("contents")) << "of the clean-up";
}

}  // namespace
}  // namespace TalVcs::Testing
