#pragma once

#include <kit/workspace/internal/history_graph.h>
#include <kit/workspace/internal/workspace_state.h>
#include <kit/workspace/retention.h>

#include <vector>

namespace TalVcs::Kit {

/// Returns for each version whether a rule keeps it.
Result<std::vector<bool>> ChooseVersions(WorkspaceState& state, const HistoryGraph& graph,
                                         const Retention& rule, Reporter& reporter);

/// A history without some of its versions. The commits are in the repository, on no branch yet.
class ThinnedHistory {
 public:
  /// Makes the commits that are kept again where something before them goes.
  static Result<ThinnedHistory> Make(WorkspaceState& state, const HistoryGraph& graph,
                                     const std::vector<bool>& kept);

  /// Returns what a version became; null if it goes.
  const cow_ptr<Commit>& operator[](std::size_t index) const { return m_versions[index].commit; }
  /// Returns the branches that move.
  std::vector<BranchMove> Moves(const HistoryGraph& graph) const;

 private:
  struct Version {
    cow_ptr<Commit> commit;               // null if it goes
    cow_ptr<Commit> nearest;              // the commit itself, or the nearest kept one before it
    std::vector<cow_ptr<Commit>> merges;  // what versions that go have merged since the nearest one
    bool isCut = false;                   // everything before it goes
  };

  void AddMerged(const HistoryGraph::Node& node, Version& version) const;
  Result<cow_ptr<Commit>> MakeAgain(WorkspaceState& state, const HistoryGraph::Node& node,
                                    const HistoryGraph& graph, const Version& version) const;
  Annotations NewAnnotations(const HistoryGraph::Node& node, const HistoryGraph& graph,
                             const Version& version) const;

  std::vector<Version> m_versions;  // by the indexes of the graph
};

}  // namespace TalVcs::Kit
