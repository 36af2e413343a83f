#include <kit/open/clean_up.h>
#include <kit/text.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <sstream>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::FolderEntry;
using testing::ElementsAre;
using testing::IsEmpty;

class WorkspaceEdit : public WorkspaceTest {};

TEST_F(WorkspaceEdit, NewDocumentHasNoFilesAndNoVersion) {
  EXPECT_THAT(workspace.List().value(), IsEmpty());
  EXPECT_THAT(workspace.ListFiles().value(), IsEmpty());
  EXPECT_EQ(workspace.GetHead().value(), std::nullopt);
  EXPECT_EQ(workspace.GetBranch(), "master");
  EXPECT_THAT(workspace.GetBranches(), IsEmpty());
  EXPECT_THAT(workspace.Log().value(), IsEmpty());
  EXPECT_EQ(workspace.Commit("nothing").value(), std::nullopt);
  EXPECT_THAT(workspace.Read("a"), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceEdit, PendingEditsAreReadBeforeACommit) {
  workspace.Write("a/b", "1").value();
  workspace.Write("c", "2").value();
  EXPECT_EQ(workspace.Read("a/b").value().text(), "1");
  EXPECT_TRUE(workspace.Contains("a").value());
  EXPECT_FALSE(workspace.Contains("b").value());
  EXPECT_THAT(workspace.List().value(),
              ElementsAre(FolderEntry{"a", true}, FolderEntry{"c", false}));
  EXPECT_THAT(workspace.List("a").value(), ElementsAre(FolderEntry{"b", false}));
  EXPECT_THAT(workspace.ListFiles("a").value(), ElementsAre("a/b"));
  EXPECT_THAT(workspace.List("c"), FailsWith(ErrorCode::NotFound));
  EXPECT_EQ(store->GetCount(), 0u);
}

TEST_F(WorkspaceEdit, CommitSavesAndAnotherSessionReadsIt) {
  workspace.Write("a/b", "1").value();
  const Version made =
      workspace.Commit("First\n\nline", {.author = "Ada", .email = "ada@example.org"})
          .value()
          .value();
  EXPECT_EQ(made.summary, "First");
  EXPECT_EQ(made.message, "First\n\nline");
  EXPECT_EQ(made.author, "Ada");
  EXPECT_EQ(made.email, "ada@example.org");
  EXPECT_EQ(made.time, now);
  EXPECT_THAT(made.branches, ElementsAre("master"));
  Kit::Workspace again = OpenAgain();
  EXPECT_EQ(again.GetHead().value(), made);
  EXPECT_EQ(FilesOf(again), (FileTexts{{"a/b", "1"}}));
}

// The id was computed apart: SHA-256 over the packed blob, tree and commit.
TEST_F(WorkspaceEdit, CommitHasTheIdOfItsContent) {
  workspace.Write("a", "x").value();
  const Version made =
      workspace
          .Commit("m", {.author = "A", .email = "e", .time = std::chrono::sys_seconds(Seconds(1))})
          .value()
          .value();
  std::ostringstream text;
  text << made.id;
  EXPECT_EQ(text.str(), "f732490e7edc23579949f7ae688da6bf39fc29dbfc20d02d9eecb671a61f81ee");
}

TEST_F(WorkspaceEdit, CommitOfAnEqualTreeMakesNoVersion) {
  const Version first = CommitFiles({{"a", "1"}}, "first");
  workspace.Write("a", "2").value();
  workspace.Write("a", "1").value();
  EXPECT_THAT(workspace.GetChanges().value(), IsEmpty());
  EXPECT_EQ(workspace.Commit("again").value(), std::nullopt);
  EXPECT_EQ(workspace.GetHead().value()->id, first.id);
}

TEST_F(WorkspaceEdit, CommitWritesEachFolderOnce) {
  for (int i = 0; i < 100; ++i) workspace.Write("folder/" + std::to_string(i), "same").value();
  workspace.Commit("all").value();
  EXPECT_EQ(store->GetCount(), 4u);  // a commit, two folders, a file
}

TEST_F(WorkspaceEdit, RemovalOfAFolderRemovesItsFiles) {
  CommitFiles({{"a/b/c", "1"}, {"a/d", "2"}, {"e", "3"}}, "first");
  workspace.Remove("a/b").value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a/d", "2"}, {"e", "3"}}));
  workspace.Remove("a/d").value();
  EXPECT_FALSE(workspace.Contains("a").value());
  EXPECT_THAT(workspace.Remove("a"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Remove("a/d"), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceEdit, RemovedFileCanBeWrittenAgain) {
  CommitFiles({{"a", "1"}}, "first");
  workspace.Remove("a").value();
  EXPECT_THAT(workspace.Read("a"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Remove("a"), FailsWith(ErrorCode::NotFound));
  workspace.Write("a", "2").value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "2"}}));
}

TEST_F(WorkspaceEdit, NewFileCanBeRemovedBeforeTheCommit) {
  workspace.Write("a/b", "1").value();
  workspace.Remove("a/b").value();
  EXPECT_THAT(workspace.ListFiles().value(), IsEmpty());
  workspace.Write("a", "2").value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "2"}}));
}

TEST_F(WorkspaceEdit, FileAndFolderCantHaveOnePath) {
  CommitFiles({{"file", "1"}, {"folder/in", "2"}}, "first");
  EXPECT_THAT(workspace.Write("file/below", "x"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Write("file/far/below", "x"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Write("folder", "x"), FailsWith(ErrorCode::BadName));
  workspace.Write("new/file", "3").value();
  EXPECT_THAT(workspace.Write("new", "x"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Write("new/file/below/it", "x"), FailsWith(ErrorCode::BadName));
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"file", "1"}, {"folder/in", "2"}, {"new/file", "3"}}));
}

TEST_F(WorkspaceEdit, FileTakesThePlaceOfAFolderThatWasRemovedAndTheOtherWayRound) {
  CommitFiles({{"file", "1"}, {"folder/in", "2"}}, "first");
  workspace.Remove("file").value();
  workspace.Write("file/below", "3").value();
  workspace.Remove("folder/in").value();
  workspace.Write("folder", "4").value();
  const FileTexts expected{{"file/below", "3"}, {"folder", "4"}};
  EXPECT_EQ(FilesOf(workspace), expected);
  workspace.Commit("second").value();
  EXPECT_EQ(FilesOf(OpenAgain()), expected);
}

TEST_F(WorkspaceEdit, RenameMovesFilesAndFolders) {
  CommitFiles({{"a/b", "1"}, {"a/c", "2"}, {"d", "3"}}, "first");
  workspace.Rename("a", "x/y").value();
  workspace.Rename("d", "a").value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"x/y/b", "1"}, {"x/y/c", "2"}, {"a", "3"}}));
  EXPECT_THAT(workspace.Rename("gone", "z"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Rename("a", "x"), FailsWith(ErrorCode::BadName));
  EXPECT_EQ(Describe(workspace.Rename("a", "x").error()),
            "cannot move \"a\" to \"x\": there is a file or folder already; nothing has changed");
  EXPECT_THAT(workspace.Rename("x", "x/below"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Rename("x", "a/below"), FailsWith(ErrorCode::BadName));
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"x/y/b", "1"}, {"x/y/c", "2"}, {"a", "3"}}));
}

TEST_F(WorkspaceEdit, CopyTakesFilesAndFoldersOfAnotherVersion) {
  const Version first = CommitFiles({{"a/b", "1"}, {"c", "2"}}, "first");
  CommitFiles({{"a/b", "changed"}, {"c", ""}, {"d", "4"}}, "second");
  const Kit::Snapshot old = workspace.At(first.id).value();
  workspace.CopyFrom(old, "c", "c").value();
  workspace.CopyFrom(old, "a", "d").value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a/b", "changed"}, {"c", "2"}, {"d/b", "1"}}));
  EXPECT_THAT(workspace.CopyFrom(old, "none", "e"), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.CopyFrom(old, "c", "c/below"), FailsWith(ErrorCode::BadName));
}

TEST_F(WorkspaceEdit, ChangesNameWhatIsPending) {
  CommitFiles({{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}}, "first");
  workspace.Write("a", "changed").value();
  workspace.Remove("b").value();
  workspace.Rename("c", "folder/c").value();
  workspace.Write("e", "5").value();
  std::vector<std::string> found;
  for (const Kit::TreeChange& change : workspace.GetChanges().value()) {
    found.push_back(std::to_string(static_cast<int>(change.kind)) + " " + change.oldPath + ">" +
                    change.path);
  }
  EXPECT_THAT(found, ElementsAre("2 >a", "1 >b", "0 >e", "3 c>folder/c"));
}

TEST_F(WorkspaceEdit, DiscardBringsBackTheHead) {
  CommitFiles({{"a", "1"}, {"b/c", "2"}}, "first");
  workspace.Write("a", "changed").value();
  workspace.Remove("b").value();
  workspace.Write("new", "3").value();
  workspace.Discard("b").value();
  workspace.Discard("new").value();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "changed"}, {"b/c", "2"}}));
  EXPECT_THAT(workspace.Discard("nowhere"), FailsWith(ErrorCode::NotFound));
  workspace.Discard();
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}, {"b/c", "2"}}));
  EXPECT_THAT(workspace.GetChanges().value(), IsEmpty());
}

TEST_F(WorkspaceEdit, PathsThatNothingCanHaveAreRefused) {
  for (const std::string path : {"", "/", "/a", "a/", "a//b", "/a/b"}) {
    EXPECT_THAT(workspace.Write(path, "x"), FailsWith(ErrorCode::BadName)) << path;
    EXPECT_THAT(workspace.Read(path), FailsWith(ErrorCode::BadName)) << path;
    EXPECT_THAT(workspace.Remove(path), FailsWith(ErrorCode::BadName)) << path;
  }
  EXPECT_THAT(workspace.Write(std::string("a\0b", 3), "x"), FailsWith(ErrorCode::BadName));
  const Kit::Status status = workspace.Write("ab\xff", "x");
  EXPECT_THAT(status, FailsWith(ErrorCode::BadText));
  EXPECT_EQ(status.error().message, "the path is no UTF-8 at byte 2");
  EXPECT_EQ(status.error().subject, "ab\xEF\xBF\xBD");
}

// Every other name comes back as it was: dots, blanks, backslashes, line breaks, a lone surrogate.
TEST_F(WorkspaceEdit, EveryOtherNameComesBack) {
  FileTexts files;
  for (const std::string name :
       {".", "..", " ", "a\\b", "a\nb", "\xed\xa0\x80", "\xf0\x9f\x99\x82", "CON", "*", "\t"}) {
    files.emplace("folder" + name + "/" + name, "content of " + name);
  }
  CommitFiles(files, "odd names");
  EXPECT_EQ(FilesOf(OpenAgain()), files);
}

TEST_F(WorkspaceEdit, EveryMessageAndAuthorComesBack) {
  std::vector<Version> made;
  for (const std::string text :
       {"two\nlines", "x\n", "\nx", "a\r\nb", "our parent company", "", "a<b>", "a>b", "> 1 +0000",
        "a> 5 +0100\nauthor b", "x\n\nWorkspace:", "x\n\nWorkspace: undoes=1 machine",
        "Workspace:", "\n\nWorkspace: machine", "x\n\nWorkspace: machine\n\nWorkspace: machine"}) {
    workspace.Write("a", "content " + std::to_string(made.size())).value();
    made.push_back(workspace.Commit(text, {.author = text, .email = text}).value().value());
    EXPECT_EQ(made.back().message, text);
    EXPECT_EQ(made.back().author, text);
    EXPECT_EQ(made.back().email, text);
    EXPECT_FALSE(made.back().isMachineMade);
  }
  const std::vector<Version> log = OpenAgain().Log().value();
  ASSERT_EQ(log.size(), made.size());
  for (std::size_t i = 0; i < log.size(); ++i) {
    made[made.size() - 1 - i].branches.clear();
    if (i == 0) made.back().branches = {"master"};
    EXPECT_EQ(log[i], made[made.size() - 1 - i]);
  }
}

TEST_F(WorkspaceEdit, AuthorsAndTimesThatNoVersionCanHoldAreRefused) {
  workspace.Write("a", "1").value();
  EXPECT_THAT(workspace.Commit("x", {.author = "A <b>"}), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Commit("x", {.email = "a\ncommitter b"}), FailsWith(ErrorCode::BadText));
  const std::chrono::sys_seconds late(Seconds(std::int64_t{1} << 31));
  EXPECT_THAT(workspace.Commit("x", {.time = late}), FailsWith(ErrorCode::Unsupported));
  EXPECT_EQ(workspace.Commit("x", {.time = late - Seconds(1)}).value()->time, late - Seconds(1));
}

TEST_F(WorkspaceEdit, TextsWithZeroAreRefusedAndTheEditsStay) {
  workspace.Write("a", "1").value();
  const std::string zero("x\0y", 3);
  EXPECT_THAT(workspace.Commit(zero), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Commit("x", {.author = zero}), FailsWith(ErrorCode::BadText));
  EXPECT_THAT(workspace.Commit("x", {.email = "\xff"}), FailsWith(ErrorCode::BadText));
  EXPECT_EQ(workspace.GetHead().value(), std::nullopt);
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}}));
}

TEST_F(WorkspaceEdit, OffsetsComeBackOrAreRefused) {
  const auto commit = [&](int minutes) {
    Kit::Workspace there =
        Kit::Workspace::Open(store, {.offset = std::chrono::minutes(minutes)}).value();
    there.Write("a", std::to_string(minutes)).value();
    return there.Commit("x");
  };
  for (const int minutes : {0, 30, 60, 345, 840, -60, -90, -720}) {
    commit(minutes).value();
    EXPECT_EQ(OpenAgain().GetHead().value()->offset, std::chrono::minutes(minutes));
  }
  EXPECT_THAT(commit(-30), FailsWith(ErrorCode::Unsupported));
}

TEST_F(WorkspaceEdit, BytesOfEveryKindComeBack) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  workspace.Write("all", all).value();
  workspace.Write("empty", "").value();
  const std::vector<std::byte> raw{std::byte{0}, std::byte{255}};
  workspace.Write("raw", raw).value();
  workspace.Write("same", workspace.Read("all").value()).value();
  workspace.Commit("bytes").value();
  Kit::Workspace again = OpenAgain();
  EXPECT_EQ(again.Read("all").value().text(), all);
  EXPECT_TRUE(again.Read("empty").value().empty());
  EXPECT_EQ(again.Read("raw").value(), Kit::Bytes(raw));
  EXPECT_EQ(again.Read("same").value().size(), 256u);
}

TEST_F(WorkspaceEdit, CommitOnAMovedBranchFailsAndKeepsTheEdits) {
  CommitFiles({{"a", "1"}}, "first");
  Kit::Workspace other = OpenAgain();
  const Version theirs = CommitFiles(other, {{"b", "2"}}, "theirs");
  workspace.Write("c", "3").value();
  const auto failed = workspace.Commit("mine");
  ASSERT_THAT(failed, FailsWith(ErrorCode::HeadMoved));
  EXPECT_EQ(failed.error().heads, (std::vector<Kit::Head>{{"master", theirs.id}}));
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}, {"c", "3"}}));
  EXPECT_TRUE(workspace.IsBehind().value());
  workspace.Reload().value();
  EXPECT_FALSE(workspace.IsBehind().value());
  workspace.Commit("mine").value();
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("mine", "theirs", "first"));
  EXPECT_EQ(FilesOf(OpenAgain()), (FileTexts{{"a", "1"}, {"b", "2"}, {"c", "3"}}));
}

TEST_F(WorkspaceEdit, CancelledCommitLeavesNoTrace) {
  CommitFiles({{"a", "1"}}, "first");
  workspace.Write("b", "2").value();
  int calls = 0;
  for (int most = 0;; ++most) {
    calls = 0;
    Kit::CommitOptions options;
    options.progress = [&](const Kit::ProgressStep&) { return calls++ < most; };
    const auto made = workspace.Commit("second", options);
    if (made.ok()) break;
    EXPECT_THAT(made, FailsWith(ErrorCode::Cancelled));
    EXPECT_THAT(Summaries(workspace), ElementsAre("first"));
    EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("first"));
    EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}, {"b", "2"}}));
  }
  EXPECT_GT(calls, 2);
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("second", "first"));
}

TEST_F(WorkspaceEdit, CheckpointsOfOneGestureAreOneVersion) {
  const Version first = CommitFiles({{"a", "0"}}, "first");
  const auto begin = now;
  for (int i = 1; i <= 5; ++i) {
    workspace.Write("a", std::to_string(i)).value();
    workspace.Checkpoint("Drag " + std::to_string(i), "drag 7", begin + Seconds(i * 50)).value();
  }
  EXPECT_THAT(Summaries(workspace), ElementsAre("Drag 5", "first"));
  EXPECT_EQ(workspace.GetHead().value()->parent, first.id);
  EXPECT_EQ(workspace.GetHead().value()->gesture, "drag 7");
  EXPECT_EQ(workspace.GetHead().value()->message, "Drag 5");
  EXPECT_EQ(workspace.Checkpoint("none", "drag 7", begin).value(), std::nullopt);
}

TEST_F(WorkspaceEdit, CheckpointsThatDontBelongTogetherStay) {
  CommitFiles({{"a", "0"}}, "first");
  int content = 0;
  const auto save = [&](const std::string& gesture, int second, const std::string& author = {}) {
    workspace.Write("a", std::to_string(++content)).value();
    workspace
        .Checkpoint(std::to_string(content), gesture, now + Seconds(second), {.author = author})
        .value();
  };
  save("x", 0);
  save("y", 1);  // another gesture
  save("", 2);
  save("", 3);  // no gesture
  save("z", 4);
  save("z", 65);       // too late
  save("z", 60);       // before
  save("z", 61, "B");  // somebody else
  workspace.CreateTag("kept").value();
  save("z", 62, "B");  // the one before has a name
  EXPECT_THAT(Summaries(workspace),
              ElementsAre("9", "8", "7", "6", "5", "4", "3", "2", "1", "first"));
}

// A drag over the place where it had begun left two versions, and an undo led into its middle.
TEST_F(WorkspaceEdit, GestureThatComesBackLeavesNoVersion) {
  CommitFiles({{"a", "0"}}, "first");
  const auto drag_to = [&](std::string_view place) {
    workspace.Write("a", place).value();
    return workspace.Checkpoint("Drag", "g", now).value();
  };
  drag_to("1");
  EXPECT_EQ(drag_to("0"), std::nullopt);
  EXPECT_THAT(Summaries(workspace), ElementsAre("first"));
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("first"));
  EXPECT_TRUE(workspace.GetChanges().value().empty());
  drag_to("2");
  drag_to("3");
  EXPECT_THAT(Summaries(workspace), ElementsAre("Drag", "first"));
  workspace.Undo().value();
  EXPECT_EQ(workspace.Read("a").value().text(), "0");
}

TEST_F(WorkspaceEdit, GestureThatComesBackToAnEmptyDocumentIsKept) {
  workspace.Write("a", "1").value();
  workspace.Checkpoint("there", "g", now).value();
  workspace.Remove("a").value();
  workspace.Checkpoint("back", "g", now).value();
  EXPECT_THAT(Summaries(workspace), ElementsAre("back", "there"));
}

TEST_F(WorkspaceEdit, ReplacedCheckpointsAreCleanedUp) {
  CommitFiles({{"a", "0"}}, "first");
  const std::size_t before = store->GetCount();
  for (int i = 1; i <= 20; ++i) {
    workspace.Write("a", std::to_string(i)).value();
    workspace.Checkpoint("Drag", "g", now).value();
  }
  Kit::CleanUp(*store).value();
  EXPECT_EQ(store->GetCount(), before + 3);  // a commit, its folder, its file
}

}  // namespace
}  // namespace TalVcs::Testing
