#pragma once

#include <kit/open/internal/reporter.h>
#include <kit/workspace/internal/history_graph.h>
#include <kit/workspace/usage.h>

namespace TalVcs::Kit {

/// Measures the files of all versions of a graph. The phase is "contents".
Result<ContentUsage> MeasureContents(IObjectStore& store, const HistoryGraph& graph,
                                     Reporter& reporter);

}  // namespace TalVcs::Kit
