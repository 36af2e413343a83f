// Each allocation of an exchange between two stores fails in turn. What was interrupted leaves
// nothing allocated, both stores whole, and the next try has the result that the first would have
// had.

#include <gtest/gtest.h>
#include <kit/history/graph_layout.h>
#include <kit/history/revision.h>
#include <kit/history/short_ids.h>
#include <kit/open/verify.h>
#include <kit/sharing/remote.h>
#include <kit/workspace/workspace.h>
#include <tests/faults/fail_each.h>
#include <tests/kit/open/histories.h>

namespace TalVcs::Testing {
namespace {

using namespace Kit;

/// A workspace and a remote that both have new versions since they were equal.
struct Pair {
  explicit Pair(bool isDiverged) {
    workspace.Write("a", "1").value();
    workspace.Write("d/e", "1").value();
    workspace.Commit("first").value();
    remote.Push(*local, "master").value();
    remote.Fetch(*local).value();
    {
      OpenedRepository opened = Open(far).value();
      AddCommit(opened.GetRepository(), "topic", {{"t", "1"}});
      if (isDiverged) AddCommit(opened.GetRepository(), "master", {{"far", "far's"}});
      Save(opened).value();
    }
    workspace.Write("near", "near's").value();
    workspace.Commit("near").value();
    workspace.Write("a", "2").value();
    workspace.Commit("again").value();
  }

  Workspace OpenWorkspace() {
    WorkspaceOptions options;
    options.author = "Ada";
    options.clock = [] { return std::chrono::sys_seconds(std::chrono::seconds(1'000'000'000)); };
    return Workspace::Open(local, options).value();
  }

  std::string Describe() {
    std::string text = HeadsOf(*local) + "|" + HeadsOf(*far) + "|";
    for (const Version& version : workspace.Log().value()) text += version.summary + ";";
    for (const std::string& path : workspace.ListFiles().value()) text += path + ";";
    text += std::to_string(Verify(*local)->IsWhole()) + std::to_string(Verify(*far)->IsWhole());
    return text;
  }

  std::shared_ptr<MemoryObjectStore> local = std::make_shared<MemoryObjectStore>();
  std::shared_ptr<MemoryObjectStore> far = std::make_shared<MemoryObjectStore>();
  Remote remote{far};
  Workspace workspace = OpenWorkspace();
};

std::unique_ptr<Pair> MakePair() { return std::make_unique<Pair>(false); }
std::unique_ptr<Pair> MakeDivergedPair() { return std::make_unique<Pair>(true); }

TEST(FailingAllocationsOfSharing, FetchCanBeRepeated) {
  EXPECT_GT(FailEach(MakeDivergedPair,
                     [](std::unique_ptr<Pair>& pair) {
                       pair->remote.Fetch(*pair->local).value();
                       return pair->Describe();
                     }),
            200U);
}

TEST(FailingAllocationsOfSharing, PushCanBeRepeated) {
  EXPECT_GT(FailEach(MakePair,
                     [](std::unique_ptr<Pair>& pair) {
                       pair->remote.Push(*pair->local, "master").value();
                       return pair->Describe();
                     }),
            200U);
}

TEST(FailingAllocationsOfSharing, SyncCanBeRepeated) {
  EXPECT_GT(FailEach(MakeDivergedPair,
                     [](std::unique_ptr<Pair>& pair) {
                       pair->remote.Sync(pair->workspace).value();
                       return pair->Describe();
                     }),
            200U);
}

TEST(FailingAllocationsOfHistories, DrawingsAndShortIdsCanBeRepeated) {
  EXPECT_GT(FailEach(MakeDivergedPair,
                     [](std::unique_ptr<Pair>& pair) {
                       const Workspace& workspace = pair->workspace;
                       const VersionGraph graph =
                           BuildVersionGraph(workspace.Log({.allBranches = true}).value());
                       const GraphLayout layout = LayOutGraph(graph, workspace.GetBranches());
                       ShortIds ids(workspace);
                       std::string text;
                       for (const GraphVersion& row : graph.versions) ids.Add(row.version.id);
                       for (const std::string& row :
                            DrawTextGraph(graph, layout, GraphCharacters::Lines).rows) {
                         text += row + '\n';
                       }
                       for (const char* name : {"HEAD~1", "master"}) {
                         text += ids.Of(FindRevision(workspace, name).value().id) + '\n';
                       }
                       return text;
                     }),
            50U);
}

}  // namespace
}  // namespace TalVcs::Testing
