#pragma once

#include <kit/workspace/internal/history_graph.h>
#include <kit/workspace/usage.h>

#include <vector>

namespace TalVcs::Kit {

/// Returns what each version of a graph takes in the store, in the order of the graph. `version` of
/// the results is left empty. The phase is "contents".
Result<std::vector<VersionUsage>> MeasureVersions(IObjectStore& store, const HistoryGraph& graph,
                                                  Reporter& reporter);

}  // namespace TalVcs::Kit
