#include <kit/open/try.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/path_usage.h>
#include <kit/workspace/internal/version_usage.h>
#include <kit/workspace/workspace.h>

#include <unordered_set>
#include <utility>

namespace TalVcs::Kit {

namespace {

std::vector<Id> RootsOf(const HistoryGraph& graph) {
  std::unordered_set<Id> seen;
  std::vector<Id> roots;
  for (const HistoryGraph::Node& node : graph.Nodes()) {
    const cow_ptr<CommitTree> tree = node.commit->GetTree();
    if (tree && seen.insert(tree->GetRootId()).second) roots.push_back(tree->GetRootId());
  }
  return roots;
}

std::vector<WideString> NamesOf(std::string_view folder) {
  std::vector<WideString> names;
  while (!folder.empty()) {
    const std::size_t end = folder.find('/');
    names.push_back(ToWide(folder.substr(0, end)));
    folder = end == folder.npos ? std::string_view() : folder.substr(end + 1);
  }
  return names;
}

}  // namespace

Result<std::vector<BranchStatistics>> Workspace::MeasureBranches(
    const MeasureOptions& options) const {
  Result<StoreStatistics> statistics = Statistics(*m_state->store, {.progress = options.progress});
  if (!statistics) return std::move(statistics).error();
  return std::move(statistics->branches);
}

Result<std::vector<VersionUsage>> Workspace::MeasureVersions(const MeasureOptions& options) const {
  return Try([&]() -> Result<std::vector<VersionUsage>> {
    Reporter reporter(options.progress);
    const Result<HistoryGraph> graph = HistoryGraph::Read(*m_state, reporter);
    if (!graph) return graph.error();
    Result<std::vector<VersionUsage>> usage =
        Kit::MeasureVersions(*m_state->store, *graph, reporter);
    if (!usage) return usage;
    const NamesOfIds names = m_state->NamesOfHeads();
    std::vector<VersionUsage> sorted;
    for (const std::size_t at : graph->ByTime()) {
      (*usage)[at].version = WorkspaceState::VersionOf((*graph)[at].commit, names);
      sorted.push_back(std::move((*usage)[at]));
    }
    return sorted;
  });
}

Result<std::vector<PathUsage>> Workspace::MeasurePaths(std::string_view folder,
                                                       const MeasureOptions& options) const {
  return Try([&]() -> Result<std::vector<PathUsage>> {
    const Result<WideString> checked = CheckedFolder(folder);
    if (!checked) return checked.error();
    Reporter reporter(options.progress);
    const Result<HistoryGraph> graph = HistoryGraph::Read(*m_state, reporter);
    if (!graph) return graph.error();
    Result<std::vector<PathUsage>> usage =
        MeasureEntries(*m_state->store, RootsOf(*graph), NamesOf(folder), reporter);
    if (!usage || folder.empty()) return usage;
    for (PathUsage& entry : *usage) entry.path = std::string(folder) + "/" + entry.path;
    return usage;
  });
}

}  // namespace TalVcs::Kit
