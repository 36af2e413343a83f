#pragma once

#include <kit/open/internal/reporter.h>
#include <kit/store/object_store.h>
#include <kit/text.h>
#include <kit/workspace/usage.h>

#include <string>
#include <vector>

namespace TalVcs::Kit {

/// Returns what each entry of a folder takes in the versions of some roots, of which no id comes
/// twice. `folder` are the names of the path. Paths of the result are names, sorted. The phase is
/// "contents".
Result<std::vector<PathUsage>> MeasureEntries(IObjectStore& store, std::vector<Id> roots,
                                              const std::vector<WideString>& folder,
                                              Reporter& reporter);

}  // namespace TalVcs::Kit
