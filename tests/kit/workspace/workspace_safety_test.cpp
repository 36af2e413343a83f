// What an application does on its first day, and what must not go wrong then.

#include <kit/open/clean_up.h>
#include <kit/store/passing_store.h>
#include <kit/store/read_history.h>
#include <kit/text.h>
#include <tests/kit/workspace/workspace_fixture.h>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using testing::ElementsAre;
using testing::IsEmpty;

class WorkspaceSafety : public WorkspaceTest {};

TEST_F(WorkspaceSafety, DocumentWithoutFilesComesBack) {
  CommitFiles({{"a/b", "1"}, {"c", "2"}}, "first");
  CommitFiles({{"a/b", ""}, {"c", ""}}, "all removed");
  EXPECT_THAT(FilesOf(OpenAgain()), IsEmpty());
  CommitFiles({{"d", "3"}}, "again");
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("again", "all removed", "first"));
}

TEST_F(WorkspaceSafety, MergeThatEmptiesAFolderComesBack) {
  CommitFiles({{"folder/a", "1"}, {"folder/b", "1"}, {"c", "1"}}, "first");
  workspace.CreateBranch("topic").value();
  CommitFiles({{"folder/a", ""}}, "ours");
  workspace.Switch("topic").value();
  CommitFiles({{"folder/b", ""}}, "theirs");
  workspace.Merge("master").value();
  EXPECT_EQ(FilesOf(OpenAgain()), (FileTexts{{"c", "1"}}));
  EXPECT_FALSE(OpenAgain().Contains("folder").value());
}

/// A store in which one object is gone.
class LossyStore final : public Kit::PassingStore {
 public:
  using Kit::PassingStore::PassingStore;

  Kit::Status Read(std::span<const Id> ids, const Kit::ReadSink& sink) override {
    return Kit::PassingStore::Read(ids, [&](const Id& id, Kit::Result<Buffer> packed) {
      if (id == lost) packed = Kit::Error{ErrorCode::NotFound, "gone", "", "", "", {}};
      sink(id, std::move(packed));
    });
  }
  Kit::Status ReadHistory(const Id& id, std::uint64_t most, const Kit::ReadSink& sink) override {
    return Kit::ReadHistoryByParents(*this, id, most, sink);
  }

  Id lost;
};

TEST_F(WorkspaceSafety, DamagedDocumentIsAnErrorAndNoSaveReplacesIt) {
  CommitFiles({{"a", "1"}}, "first");
  const Version head = CommitFiles({{"a", "2"}}, "second");
  const auto heads = store->Heads().value();
  auto lossy = std::make_shared<LossyStore>(store);
  lossy->lost = head.id;
  EXPECT_FALSE(Kit::Workspace::Open(lossy).ok());
  EXPECT_EQ(store->Heads().value(), heads);
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("second", "first"));
}

TEST_F(WorkspaceSafety, DamagedFileLeavesTheOthersReadable) {
  CommitFiles({{"a", "1"}, {"b", "2"}}, "first");
  auto lossy = std::make_shared<LossyStore>(store);
  lossy->lost = Kit::BlobFromBytes("1").GetId();
  Kit::Workspace damaged = Kit::Workspace::Open(lossy).value();
  EXPECT_THAT(damaged.Read("a"), FailsWith(ErrorCode::Damaged));
  EXPECT_EQ(damaged.Read("b").value().text(), "2");
  damaged.Write("a", "again").value();
  damaged.Commit("Repair").value();
  const Kit::Workspace again = Kit::Workspace::Open(lossy).value();
  EXPECT_EQ(FilesOf(again), (FileTexts{{"a", "again"}, {"b", "2"}}));
}

/// A store that counts what is asked of it.
class CallCountingStore final : public Kit::PassingStore {
 public:
  using Kit::PassingStore::PassingStore;

  Kit::Result<std::vector<Id>> Missing(std::span<const Id> ids) override {
    calls += 1 + ids.size();
    return Kit::PassingStore::Missing(ids);
  }
  Kit::Status Read(std::span<const Id> ids, const Kit::ReadSink& sink) override {
    calls += 1 + ids.size();
    return Kit::PassingStore::Read(ids, sink);
  }
  Kit::Status ReadHistory(const Id& id, std::uint64_t most, const Kit::ReadSink& sink) override {
    calls += 1 + most;
    return Kit::PassingStore::ReadHistory(id, most, sink);
  }
  Kit::Status List(const Kit::IdSink& sink) override {
    calls += 1000000;
    return Kit::PassingStore::List(sink);
  }

  std::uint64_t calls = 0;
};

TEST_F(WorkspaceSafety, CheckpointUndoAndLogCostTheSameInALongHistory) {
  std::vector<std::uint64_t> costs;
  int content = 0;
  for (const int versions : {100, 1000}) {
    while (content < versions) {
      workspace.Write("file " + std::to_string(content % 10), std::to_string(content)).value();
      workspace.Commit(std::to_string(content++)).value();
    }
    auto counting = std::make_shared<CallCountingStore>(store);
    Kit::Workspace counted = Kit::Workspace::Open(counting).value();
    counted.Write("file 0", "autosave " + std::to_string(versions)).value();
    counted.Checkpoint("Autosave", "", now).value();
    counted.Undo().value();
    EXPECT_EQ(counted.Log({.limit = 20}).value().size(), 20u);
    costs.push_back(counting->calls);
    workspace = OpenAgain();
  }
  EXPECT_EQ(costs[0], costs[1]);
  EXPECT_LT(costs[0], 200u);
}

TEST_F(WorkspaceSafety, TwoSessionsLoseNoEdit) {
  Kit::Workspace other = OpenAgain();
  workspace.Write("a", "1").value();
  other.Write("b", "2").value();
  workspace.Commit("a").value();
  EXPECT_THAT(other.Commit("b"), FailsWith(ErrorCode::HeadMoved));
  other.Reload().value();
  other.Commit("b").value();
  EXPECT_EQ(FilesOf(OpenAgain()), (FileTexts{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(other.Commit("b").value(), std::nullopt);
}

TEST_F(WorkspaceSafety, CommitKeepsTheTimeOfTheCaller) {
  workspace.Write("a", "1").value();
  const std::chrono::sys_seconds time(Seconds(1234567890));
  EXPECT_EQ(workspace.Commit("x", {.time = time}).value()->time, time);
  EXPECT_EQ(OpenAgain().GetHead().value()->time, time);
}

TEST_F(WorkspaceSafety, MovedWorkspaceGoesOn) {
  workspace.Write("a", "1").value();
  Kit::Workspace moved = std::move(workspace);
  moved.Commit("x").value();
  workspace = std::move(moved);
  EXPECT_EQ(FilesOf(workspace), (FileTexts{{"a", "1"}}));
}

}  // namespace
}  // namespace TalVcs::Testing
