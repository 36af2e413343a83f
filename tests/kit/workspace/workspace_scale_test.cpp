// Documents beyond the usual: thousands of branches, folders as deep as a path can be, times at the
// ends of the clock. Costs are compared as ratios of processor times, with room for a busy machine:
// eight times as much of something must not take forty times as long.

#include <kit/open/statistics.h>
#include <tests/kit/workspace/counting_store.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <algorithm>
#include <ctime>
#include <functional>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::Workspace;

/// Returns the shortest processor time of three runs.
std::clock_t TimeOf(const std::function<void()>& run) {
  std::clock_t best = 0;
  for (int attempt = 0; attempt < 3; ++attempt) {
    const std::clock_t begin = std::clock();
    run();
    const std::clock_t time = std::max<std::clock_t>(std::clock() - begin, 1);
    best = attempt == 0 ? time : std::min(best, time);
  }
  return best;
}

std::string DeepFolder(int depth) {
  std::string path = "d";
  for (int level = 1; level < depth; ++level) path += "/d";
  return path;
}

class WorkspaceScale : public WorkspaceTest {
 protected:
  /// Makes a document with one version on so many branches and as many tags.
  Workspace DocumentWithBranches(int count) {
    store = std::make_shared<Kit::MemoryObjectStore>();
    workspace = OpenAgain();
    const Id head = CommitFiles({{"a", "1"}}, "first").id;
    std::vector<Kit::HeadMove> moves;
    for (int i = 0; i < count; ++i) {
      moves.push_back({"branch " + std::to_string(i), {}, head});
      moves.push_back({"tags/" + std::to_string(i), {}, head});
    }
    store->MoveHeads(moves).value();
    return OpenAgain();
  }
};

// Each save looked for each branch among all branches.
TEST_F(WorkspaceScale, SaveCostsTheNumberOfBranchesAndNotItsSquare) {
  const auto time_with = [this](int branches) {
    Workspace document = DocumentWithBranches(branches);
    int edits = 0;
    return TimeOf([&] {
      for (int i = 0; i < 2; ++i)
        CommitFiles(document, {{"a", "edit " + std::to_string(++edits)}}, "edit");
    });
  };
  const std::clock_t few = time_with(2000);
  EXPECT_LT(time_with(16000), 40 * few);
  EXPECT_EQ(OpenAgain().GetBranches().size(), 16001U);
  EXPECT_EQ(OpenAgain().GetTags().size(), 16000U);
}

TEST_F(WorkspaceScale, ManyBranchesOnOneVersionAreMeasuredAndForgottenFrom) {
  Workspace document = DocumentWithBranches(3000);
  for (int i = 0; i < 5; ++i) CommitFiles(document, {{"a", "edit " + std::to_string(i)}}, "edit");
  const auto branches = document.MeasureBranches().value();
  ASSERT_EQ(branches.size(), 6001U);
  EXPECT_EQ(branches.front().name, "branch 0");
  EXPECT_EQ(branches.front().commits, 1U);
  EXPECT_EQ(branches.front().own, Kit::ObjectTotals());
  EXPECT_EQ(branches.front().shared.count, 3U);
  const auto master = std::ranges::find(branches, "master", &Kit::BranchStatistics::name);
  EXPECT_EQ(master->commits, 6U);
  EXPECT_EQ(master->own.count, 15U);
  EXPECT_EQ(master->shared.count, 3U);
  EXPECT_EQ(document.Forget(Kit::Retention::KeepNewest(2))->forgottenVersions, 3U);
  EXPECT_THAT(Summaries(document), testing::ElementsAre("edit", "edit", "first"));
}

TEST_F(WorkspaceScale, EachOfManyTagsKnowsTheVersionsBeforeIt) {
  constexpr int kTags = 300;
  for (int i = 0; i < kTags; ++i) {
    CommitFiles({{"a", std::to_string(i)}}, "edit");
    workspace.CreateTag(std::to_string(1000 + i)).value();
  }
  const auto branches = workspace.MeasureBranches().value();
  ASSERT_EQ(branches.size(), kTags + 1U);
  EXPECT_EQ(branches[0].name, "master");
  for (int i = 0; i < kTags; ++i) {
    EXPECT_EQ(branches[i + 1].commits, i + 1U);
    EXPECT_EQ(branches[i + 1].own.count + branches[i + 1].shared.count, 3U * (i + 1U));
  }
}

// The place of a file was looked up from the top for each folder on its path.
TEST_F(WorkspaceScale, WriteCostsTheDepthOfThePathAndNotItsSquare) {
  const auto time_of = [this](int depth) {
    const std::string path = DeepFolder(depth) + "/f";
    CommitFiles({{path, "1"}}, "deep");
    return TimeOf([&] {
      workspace.Write(path, "2").value();
      workspace.Discard();
    });
  };
  const std::clock_t shallow = time_of(2000);
  EXPECT_LT(time_of(16000), 40 * shallow);
}

TEST_F(WorkspaceScale, PlaceOfAFileIsFoundInTheTreeAndAmongTheEdits) {
  CommitFiles({{"a/b", "1"}, {"c/d/e", "1"}}, "first");
  EXPECT_THAT(workspace.Write("a/b/x", "2"), FailsWith(ErrorCode::BadName));
  EXPECT_THAT(workspace.Write("a/b/x/y", "2"), FailsWith(ErrorCode::BadName));
  workspace.Write("c/new", "2").value();
  EXPECT_THAT(workspace.Write("c/new/x", "2"), FailsWith(ErrorCode::BadName));
  workspace.Write("other", "2").value();
  EXPECT_THAT(workspace.Write("other/x/y", "2"), FailsWith(ErrorCode::BadName));
  workspace.Remove("a/b").value();
  workspace.Write("a/b/x/y", "3").value();
  workspace.Remove("c/d/e").value();
  workspace.Write("c/d", "3").value();
  EXPECT_THAT(workspace.Write("c/d/e", "4"), FailsWith(ErrorCode::BadName));
  workspace.Commit("second").value();
  EXPECT_EQ(FilesOf(OpenAgain()),
            (FileTexts{{"a/b/x/y", "3"}, {"c/d", "3"}, {"c/new", "2"}, {"other", "2"}}));
}

// Each walk along the history held everything that it had read until the next saves. What it frees
// meanwhile, a second one reads again.
TEST_F(WorkspaceScale, WalksAlongALongHistoryHoldAFewThousandVersions) {
  constexpr std::uint64_t kVersions = 9000;
  CommitFiles({{"readme", "1"}}, "first");
  for (std::uint64_t i = 1; i < kVersions; ++i) CommitFiles({{"a", std::to_string(i)}}, "edit");
  workspace.CreateBranch("topic").value();
  auto counting = std::make_shared<CountingStore>(store);
  Workspace document = Workspace::Open(counting).value();
  const auto expect_freed = [&](const std::string& walk, const std::function<void()>& act) {
    document.Trim();
    const std::uint64_t first = counting->CountIn(act);
    const std::uint64_t second = counting->CountIn(act);
    EXPECT_GE(first, kVersions) << walk;
    EXPECT_LT(first, 4 * kVersions) << walk;
    EXPECT_GE(second, kVersions - 4096) << walk;
  };
  expect_freed("log of an author", [&] { EXPECT_TRUE(document.Log({.author = "Bob"})->empty()); });
  expect_freed("log of all branches",
               [&] { EXPECT_TRUE(document.Log({.allBranches = true, .author = "Bob"})->empty()); });
  const Id oldest = document.Log({.path = "readme"})->front().id;
  expect_freed("log of a path", [&] { EXPECT_EQ(document.Log({.path = "readme"})->size(), 1U); });
  expect_freed("last page of all branches",
               [&] { EXPECT_TRUE(document.Log({.allBranches = true, .after = oldest})->empty()); });
  expect_freed("blame", [&] { EXPECT_EQ(document.BlameFile("readme")->lines.size(), 1U); });
  expect_freed("search for an undo",
               [&] { EXPECT_EQ(document.FindUndo({.author = "Bob"}).value(), std::nullopt); });
  expect_freed("sizes of versions",
               [&] { EXPECT_EQ(document.MeasureVersions()->size(), kVersions); });
}

// Differences of such times have more than 64 bits.
TEST_F(WorkspaceScale, TimesAtTheEndsOfTheClockAreRefused) {
  using std::chrono::sys_seconds;
  const Kit::CheckpointOptions always{.window = Seconds::max()};
  workspace.Write("a", "1").value();
  ASSERT_TRUE(
      workspace.Checkpoint("drag", "g", sys_seconds(Seconds(-2147483648)), always)->has_value());
  workspace.Write("a", "2").value();
  for (const sys_seconds time : {sys_seconds::min(), sys_seconds::max()}) {
    EXPECT_THAT(workspace.Checkpoint("drag", "g", time, always), FailsWith(ErrorCode::Unsupported));
  }
  ASSERT_TRUE(
      workspace.Checkpoint("drag", "g", sys_seconds(Seconds(2147483647)), always)->has_value());
  EXPECT_EQ(workspace.Log()->size(), 1U);
  workspace.Write("a", "3").value();
  ASSERT_TRUE(
      workspace.Checkpoint("drag", "g", sys_seconds(Seconds(2147483647)), {.window = Seconds(-1)})
          ->has_value());
  EXPECT_EQ(workspace.Log()->size(), 2U);
}

TEST_F(WorkspaceScale, CheckpointsAreThinnedWhateverTheTimeIs) {
  using Kit::Retention;
  using std::chrono::sys_seconds;
  for (int i = 0; i < 4; ++i) {
    workspace.Write("a", std::to_string(i)).value();
    workspace.Checkpoint("save", "", sys_seconds(Seconds(1000000000 + i))).value();
  }
  for (const sys_seconds time : {sys_seconds::min(), sys_seconds::max()}) {
    EXPECT_EQ(workspace.PreviewForget(Retention::ThinAutosaves(1, 1, time))->forgottenVersions, 3U);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
