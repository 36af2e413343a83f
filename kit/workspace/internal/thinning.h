#pragma once

#include <kit/workspace/internal/history_graph.h>
#include <kit/workspace/internal/workspace_state.h>
#include <kit/workspace/retention.h>

#include <vector>

namespace TalVcs::Kit {

/// Returns for each version whether a rule keeps it.
Result<std::vector<bool>> ChooseVersions(WorkspaceState& state, const HistoryGraph& graph,
                                         const Retention& rule, Reporter& reporter);

/// A history without some of its versions: what follows what, and which versions change by that. It
/// refers to the graph.
class ThinnedHistory {
 public:
  using Index = HistoryGraph::Index;

  ThinnedHistory(const HistoryGraph& graph, const std::vector<bool>& kept);

  bool IsKept(Index index) const { return m_versions[index].nearest == index; }
  /// True for a kept version that has to be made anew.
  bool IsChanged(Index index) const { return m_versions[index].isChanged; }
  /// Returns the kept version that a version follows from now on, or `kNone`.
  Index ParentOf(Index index) const;
  /// Returns the kept versions that a version says to have merged from now on.
  const std::vector<Index>& MergesOf(Index index) const;
  /// True if everything before the version goes.
  bool IsCut(Index index) const;

  const HistoryGraph& Graph() const noexcept { return m_graph; }

 private:
  struct Version {
    Index nearest = HistoryGraph::kNone;  // the version itself, or the nearest kept one before it
    std::uint32_t merges = 0;             // what was merged since the nearest one: a list's number
    bool isChanged = false;
  };

  std::uint32_t MergesSinceNearest(Index index);
  bool Changes(Index index, const std::vector<bool>& kept) const;

  const HistoryGraph& m_graph;
  std::vector<Version> m_versions;          // by the indexes of the graph
  std::vector<std::vector<Index>> m_lists;  // the first one is empty
};

/// Makes the versions that change and writes them to the store, on no branch yet. Returns where the
/// branches move. The phase is "write".
Result<std::vector<BranchMove>> WriteThinnedHistory(WorkspaceState& state,
                                                    const ThinnedHistory& history,
                                                    Reporter& reporter);

}  // namespace TalVcs::Kit
