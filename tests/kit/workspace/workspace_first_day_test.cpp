// What application developers did on their first day, on the core alone, and what it led to: saves
// that don't load, lost histories, lost edits. Each test does the same on a workspace, in memory
// and in a folder.

#include <kit/open/clean_up.h>
#include <kit/open/verify.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/fault_injection_store.h>
#include <kit/text.h>
#include <tests/kit/temporary_folder.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <type_traits>
#include <unordered_set>

namespace TalVcs::Testing {
namespace {

using Kit::Decision;
using Kit::ErrorCode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

enum class Place { Memory, Folder };

class FirstDay : public testing::TestWithParam<Place> {
 protected:
  /// Opens the document as a new session does.
  Kit::Workspace Open(Kit::WorkspaceOptions options = {.author = "Ada"}) {
    return Kit::Workspace::Open(Store(), options).value();
  }

  std::shared_ptr<Kit::IObjectStore> Store() {
    if (GetParam() == Place::Memory) return m_memory;
    const bool exists = std::filesystem::exists(m_folder.Path() / ".vcs");
    using Kit::DirectoryObjectStore;
    return std::make_shared<DirectoryObjectStore>(
        exists ? DirectoryObjectStore::Open(m_folder.Path(), {.durable = false}).value()
               : DirectoryObjectStore::Create(m_folder.Path(), {.durable = false}).value());
  }

  static void Save(Kit::Workspace& workspace, const FileTexts& files, const std::string& message) {
    for (const auto& [path, text] : files) workspace.Write(path, text).value();
    workspace.Commit(message).value().value();
  }

  static std::vector<std::string> Messages(const Kit::Workspace& of,
                                           const Kit::LogOptions& options = {}) {
    std::vector<std::string> messages;
    for (const Kit::Version& version : of.Log(options).value()) messages.push_back(version.message);
    return messages;
  }

 private:
  TemporaryFolder m_folder;
  std::shared_ptr<Kit::MemoryObjectStore> m_memory = std::make_shared<Kit::MemoryObjectStore>();
};

// S1: a save that succeeded could not be loaded.
TEST_P(FirstDay, EveryMessageAuthorAndAddressLoads) {
  const std::vector<std::string> texts{"two\nlines", "x\n", "\nx", "a\r\nb", "our parent company"};
  Kit::Workspace workspace = Open();
  for (const std::string& text : texts) {
    workspace.Write("a", text).value();
    workspace.Commit(text, {.author = text, .email = "a>b"}).value().value();
  }
  EXPECT_THAT(Messages(Open()),
              ElementsAre("our parent company", "a\r\nb", "\nx", "x\n", "two\nlines"));
  EXPECT_EQ(Open().Log()->front().author, "our parent company");
  EXPECT_EQ(Open().Log()->front().email, "a>b");
  workspace.Write("a", "refused before anything is saved").value();
  EXPECT_THAT(workspace.Commit("x", {.author = "A <b>"}), FailsWith(ErrorCode::BadText));
  EXPECT_EQ(Messages(Open()).size(), texts.size());
}

TEST_P(FirstDay, DocumentWhoseLastFileWasRemovedLoads) {
  Kit::Workspace workspace = Open();
  Save(workspace, {{"folder/a", "1"}}, "first");
  workspace.Remove("folder/a").value();
  workspace.Commit("empty").value().value();
  Save(workspace, {{"b", "2"}}, "later");
  EXPECT_EQ(FilesOf(Open()), (FileTexts{{"b", "2"}}));
  EXPECT_THAT(Messages(Open()), ElementsAre("later", "empty", "first"));
}

TEST_P(FirstDay, MergeThatRemovesTheLastTwoFilesOfAFolderLoads) {
  Kit::Workspace workspace = Open();
  Save(workspace, {{"folder/a", "1"}, {"folder/b", "1"}, {"other/c", "1"}}, "first");
  workspace.CreateBranch("topic").value();
  workspace.Remove("folder/a").value();
  workspace.Commit("ours").value();
  workspace.Switch("topic").value();
  workspace.Remove("folder/b").value();
  workspace.Commit("theirs").value();
  workspace.Merge("master").value().value();
  EXPECT_EQ(FilesOf(Open()), (FileTexts{{"other/c", "1"}}));
}

// S2: after a failed load, the next save replaced the history.
TEST_P(FirstDay, DamagedBranchIsAnErrorAndLosesNoOther) {
  Kit::Workspace workspace = Open();
  for (int i = 0; i < 23; ++i) Save(workspace, {{"a", std::to_string(i)}}, std::to_string(i));
  workspace.CreateBranch("topic").value();
  const Id shared_head = workspace.GetHead().value()->id;
  Save(workspace, {{"a", "master's"}}, "master's");
  const Id head = workspace.GetHead().value()->id;
  auto faulty = std::make_shared<Kit::FaultInjectionStore>(Store());
  faulty->FailObject(head, ErrorCode::Damaged);
  EXPECT_THAT(Kit::Workspace::Open(faulty), FailsWith(ErrorCode::Damaged));
  Kit::Workspace topic = Kit::Workspace::Open(faulty, {.branch = "topic"}).value();
  EXPECT_EQ(topic.GetHead().value()->id, shared_head);
  Save(topic, {{"b", "saved beside the damage"}}, "topic's");
  EXPECT_THAT(Messages(Open({.branch = "master"}), {.limit = 2}), ElementsAre("master's", "22"));
  EXPECT_EQ(Messages(Open({.branch = "topic"})).size(), 24u);
}

// S3: an autosave cost the whole history. The benchmark has the times; here, the calls are counted.
TEST_P(FirstDay, AutosaveAsksTheStoreTheSameAfterManySaves) {
  std::vector<std::uint64_t> counts;
  int saved = 0;
  for (const int saves : {10, 200}) {
    Kit::Workspace workspace = Open();
    while (saved < saves) {
      Save(workspace, {{"pages/" + std::to_string(saved % 5), std::to_string(saved)}}, "x");
      ++saved;
    }
    const auto counting = std::make_shared<Kit::RecordingStore>(Store());
    Kit::Workspace counted = Kit::Workspace::Open(counting).value();
    counted.Write("pages/1", "autosave " + std::to_string(saves)).value();
    const auto time = std::chrono::sys_seconds(std::chrono::seconds(1'000'000'000));
    counted.Checkpoint("Autosave", "", time).value().value();
    std::uint64_t count = 0;
    for (const auto& call : counting->GetCalls()) count += 1 + call.count;
    counts.push_back(count);
  }
  EXPECT_EQ(counts[0], counts[1]);
}

// A storage keeps what was saved, so a day of autosaves must not fill the memory.
TEST_P(FirstDay, AutosavesFreeWhatTheySavedBefore) {
  const auto recording = std::make_shared<Kit::RecordingStore>(Store());
  Kit::Workspace workspace = Kit::Workspace::Open(recording).value();
  const auto reads_of_version = [&](const Id& id) {
    recording->ClearCalls();
    EXPECT_EQ(workspace.At(id).value().Read("notes").value().text(), "first");
    return std::ranges::count(recording->GetCalls(), Kit::StoreOperation::Read,
                              &Kit::RecordedCall::operation);
  };
  Save(workspace, {{"notes", "first"}}, "first");
  const Id first = workspace.Log().value().front().id;
  EXPECT_EQ(reads_of_version(first), 0);
  for (int i = 0; i < 120; ++i) Save(workspace, {{"notes", std::to_string(i)}}, "autosave");
  EXPECT_GT(reads_of_version(first), 0);
  EXPECT_EQ(reads_of_version(first), 0);
}

// S4: a second merge undid a revert, and a decided conflict came back.
TEST_P(FirstDay, SecondMergeKeepsARevertAndADecision) {
  Kit::Workspace workspace = Open();
  Save(workspace, {{"a", "1"}, {"b", "1"}, {"c", "1"}}, "base");
  workspace.CreateBranch("topic").value();
  workspace.Switch("topic").value();
  Save(workspace, {{"a", "topic's"}, {"b", "topic's"}}, "topic");
  workspace.Switch("master").value();
  Save(workspace, {{"b", "master's"}}, "master");
  const Kit::MergePreview preview = workspace.PreviewMerge("topic").value();
  workspace.Merge(preview, {{"b", Decision::Ours()}}).value().value();
  Save(workspace, {{"a", "1"}}, "a set back");
  workspace.Switch("topic").value();
  Save(workspace, {{"c", "topic's"}}, "something else");
  workspace.Switch("master").value();
  workspace.Merge("topic").value().value();
  EXPECT_EQ(FilesOf(Open()), (FileTexts{{"a", "1"}, {"b", "master's"}, {"c", "topic's"}}));
}

// S5: of two commits prepared on one head, one vanished.
TEST_P(FirstDay, TwoEditsOnOneHeadBothArrive) {
  Kit::Workspace first = Open();
  Save(first, {{"a", "1"}}, "base");
  Kit::Workspace second = Open();
  first.Write("b", "first's").value();
  second.Write("c", "second's").value();
  first.Commit("first").value().value();
  EXPECT_THAT(second.Commit("second"), FailsWith(ErrorCode::HeadMoved));
  second.Reload().value();
  second.Commit("second").value().value();
  EXPECT_EQ(second.Commit("again").value(), std::nullopt);
  EXPECT_EQ(FilesOf(Open()), (FileTexts{{"a", "1"}, {"b", "first's"}, {"c", "second's"}}));
  EXPECT_THAT(Messages(Open()), ElementsAre("second", "first", "base"));
}

// S6: deleted commits stayed in memory and in the store.
TEST_P(FirstDay, ForgottenVersionsLeaveMemoryAndStore) {
  Kit::Workspace workspace = Open();
  std::vector<Id> forgotten;
  for (int i = 1; i <= 5; ++i) {
    Save(workspace, {{"a", std::to_string(i)}}, std::to_string(i));
    if (i <= 3) forgotten.push_back(workspace.GetHead().value()->id);
  }
  const auto report = workspace.Forget(Kit::Retention::KeepNewest(2)).value();
  EXPECT_EQ(report.forgotten.size(), 3u);
  for (const Id& id : forgotten) EXPECT_THAT(workspace.At(id), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(Messages(Open()), ElementsAre("5", "4"));
  std::size_t objects = 0;
  Store()
      ->List([&](std::span<const Id> ids) {
        objects += ids.size();
        return true;
      })
      .value();
  EXPECT_EQ(objects, 6u);  // two versions, each with its root and its file
}

// S7: nothing said why it had failed, and nothing asked to be looked at.
TEST_P(FirstDay, FailuresSayWhatWhyAndWhatIsUnchanged) {
  const TemporaryFolder folder;
  const auto missing =
      Kit::Workspace::Open(Kit::DirectoryObjectStore::Open(folder.Path() / "nowhere"));
  ASSERT_THAT(missing, FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(Kit::Describe(missing.error()), HasSubstr("nowhere"));
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "nowhere"));

  Kit::Workspace workspace = Open();
  Save(workspace, {{"a", "1"}}, "base");
  EXPECT_EQ(Kit::Describe(workspace.Read("b").error()),
            "there is no file \"b\"; nothing has changed");
  EXPECT_EQ(workspace.Read("b").error().subject, "b");
  Kit::Workspace other = Open();
  Save(other, {{"a", "2"}}, "theirs");
  workspace.Write("a", "3").value();
  EXPECT_EQ(Kit::Describe(workspace.Commit("mine").error()),
            "cannot move branch \"master\": another save has moved it; nothing was saved and "
            "pending edits stay; reload, then try again");
  EXPECT_EQ(Kit::Describe(workspace.Reload().error()),
            "both sides changed \"a\"; nothing has changed");
}

// S8: a new repository gave null handles, which crashed.
TEST_P(FirstDay, NewDocumentAnswersEveryQuestion) {
  Kit::Workspace workspace = Open();
  EXPECT_EQ(workspace.GetHead().value(), std::nullopt);
  EXPECT_EQ(workspace.GetBranch(), "master");
  EXPECT_THAT(workspace.GetBranches(), IsEmpty());
  EXPECT_THAT(workspace.List().value(), IsEmpty());
  EXPECT_THAT(workspace.Log().value(), IsEmpty());
  EXPECT_EQ(workspace.Undo().value(), std::nullopt);
  EXPECT_EQ(workspace.Commit("nothing").value(), std::nullopt);
  EXPECT_THAT(Kit::Snapshot().List().value(), IsEmpty());
}

// S9: a clean-up showed no progress and could not be stopped.
TEST_P(FirstDay, CleanUpShowsProgressAndCanBeCancelled) {
  Kit::Workspace workspace = Open();
  for (int i = 0; i < 50; ++i) Save(workspace, {{"a", std::to_string(i)}}, std::to_string(i));
  std::set<std::string> phases;
  Kit::ForgetOptions options;
  options.progress = [&](const Kit::ProgressStep& step) {
    phases.emplace(step.phase);
    return !phases.contains("write");
  };
  EXPECT_THAT(workspace.Forget(Kit::Retention::KeepNewest(5), options),
              FailsWith(ErrorCode::Cancelled));
  EXPECT_EQ(Messages(Open()).size(), 50u);
  EXPECT_THAT(phases, ElementsAre("bases", "history", "write"));
  workspace.Forget(Kit::Retention::KeepNewest(5)).value();
  EXPECT_EQ(Messages(Open()).size(), 5u);
  workspace = Kit::Workspace::Open(std::make_shared<Kit::MemoryObjectStore>()).value();
  const auto store = Store();
  EXPECT_THAT(Kit::CleanUp(*store, {.progress = [](const auto&) { return false; }}),
              FailsWith(ErrorCode::Cancelled));
}

// S10: lines that one writes without thinking did not compile.
TEST_P(FirstDay, NaturalLinesCompile) {
  Kit::Workspace workspace = Open();
  std::string name = "shape";
  workspace.Write("pages/" + name, std::string("text")).value();
  workspace.Write(std::string_view("pages/2"), "literal").value();
  workspace.Write(std::filesystem::path("pages/3").generic_string(), name).value();
  std::string message = "Draw " + name;
  auto version = workspace.Commit(message, {.author = name}).value().value();
  workspace.CreateBranch("topic").value();
  workspace.Switch("topic").value();
  std::ostringstream out;
  out << version.id << ' ' << version.summary << ' ' << workspace.GetBranch() << '\n';
  for (char character : workspace.Read("pages/2").value().text()) out << character;
  for (const auto& entry : workspace.List("pages").value()) out << ' ' << entry.name;
  EXPECT_EQ(out.str(), Kit::ToUtf8(version.id.View()) + " Draw shape topic\nliteral 2 3 shape");
  const std::set<Id> sorted{version.id, version.parent};
  const std::unordered_set<Id> hashed{version.id, version.parent};
  EXPECT_EQ(sorted.size(), hashed.size());
  EXPECT_TRUE(workspace.Find("topic")->id == version.id);
  EXPECT_TRUE(workspace.Find(Kit::ToUtf8(version.id.View()))->summary == message);
}

// S11: branches, the current branch, paths of damaged files, times of versions.
TEST_P(FirstDay, GapsAreClosed) {
  {
    Kit::Workspace workspace = Open();
    Save(workspace, {{"pages/house", "1"}}, "base");
    workspace.CreateBranch("topic").value();
    workspace.Switch("topic").value();
    workspace.Write("pages/house", "2").value();
    const std::chrono::sys_seconds time(std::chrono::seconds(1234567890));
    EXPECT_EQ(workspace.Commit("dated", {.time = time}).value()->time, time);
  }
  const Kit::Workspace again = Open();
  EXPECT_EQ(again.GetBranch(), "topic");
  EXPECT_EQ(again.GetBranches().size(), 2u);
  EXPECT_EQ(again.GetBranches()[0].name, "master");
  EXPECT_EQ(again.GetHead().value()->time.time_since_epoch().count(), 1234567890);
  Kit::FaultInjectionStore faulty(Store());
  faulty.FailObject(Kit::BlobFromBytes("2").GetId(), ErrorCode::Damaged);
  const Kit::VerifyReport report = Kit::Verify(faulty).value();
  ASSERT_EQ(report.damages.size(), 1u);
  EXPECT_EQ(report.damages[0].path, "pages/house");
  EXPECT_EQ(report.damages[0].branch, "topic");
}

INSTANTIATE_TEST_SUITE_P(Stores, FirstDay, testing::Values(Place::Memory, Place::Folder),
                         [](const testing::TestParamInfo<Place>& place) {
                           return place.param == Place::Memory ? "Memory" : "Folder";
                         });

}  // namespace
}  // namespace TalVcs::Testing
