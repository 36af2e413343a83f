#pragma once

#include <kit/workspace/internal/history_graph.h>

#include <vector>

namespace TalVcs::Kit {

/// Returns the versions with which a merge of any two branches begins: those that both contain and
/// that no other such version contains. Tags don't count. Cost: linear in the versions where
/// branches share one base each; memory for each set of branches that contain a version together.
Result<std::vector<HistoryGraph::Index>> FindBranchBases(const HistoryGraph& graph,
                                                         Reporter& reporter);

}  // namespace TalVcs::Kit
