#include <kit/open/try.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/content_usage.h>
#include <kit/workspace/internal/path_usage.h>
#include <kit/workspace/internal/version_usage.h>
#include <kit/workspace/workspace.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

std::vector<Id> RootsOf(const HistoryGraph& graph) {
  IdMap seen;
  std::vector<Id> roots;
  for (const HistoryGraph::Node& node : graph.Nodes()) {
    if (node.hasRoot && seen.Insert(node.root, 0).second) roots.push_back(IdOf(node.root));
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
    for (const HistoryGraph::Index at : graph->ByTime()) {
      const Result<cow_ptr<TalVcs::Commit>> commit = m_state->FindCommit(IdOf((*graph)[at].id));
      if (!commit) return commit.error();
      (*usage)[at].version = WorkspaceState::VersionOf(*commit, names);
      sorted.push_back(std::move((*usage)[at]));
      m_state->PassVersion();
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

Result<ContentUsage> Workspace::MeasureContents(const MeasureOptions& options) const {
  return Try([&]() -> Result<ContentUsage> {
    Reporter reporter(options.progress);
    const Result<HistoryGraph> graph = HistoryGraph::Read(*m_state, reporter);
    if (!graph) return graph.error();
    return Kit::MeasureContents(*m_state->store, *graph, reporter);
  });
}

}  // namespace TalVcs::Kit
