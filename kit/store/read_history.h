#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>

#include <cstdint>

namespace TalVcs::Kit {

/// Does what `IObjectStore::ReadHistory` promises for stores that have no better way: reads one
/// commit after another from `store` and follows the parent that its text names. Cost: one `Read` a
/// commit.
TALVCS_KIT_API Status ReadHistoryByParents(IObjectStore& store, const Id& id, std::uint64_t most,
                                           const ReadSink& sink);

}  // namespace TalVcs::Kit
