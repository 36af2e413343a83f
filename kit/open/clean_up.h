#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>

namespace TalVcs::Kit {

/// Options of `CleanUp`.
struct CleanUpOptions {
  /// Phases: "history" and "contents" for each branch. Nothing was removed when the last one ends.
  Progress progress = {};
};

/// Removes the objects of a store that no branch reaches.
///
/// Saving never removes an object: what branches let go of, and what cancelled or failed saves
/// wrote, stays until a clean-up. The marks come from the store's own records, from the heads down,
/// so no repository takes part, and it doesn't matter who has which branch open. A save that runs
/// meanwhile, here or in another process, notices it and looks again before it moves a head.
///
///     const RemovedObjects removed = CleanUp(store).value();
///
/// Returns what was removed. Refuses with `Damaged` or `Unavailable`, with nothing removed, if any
/// commit or folder that a branch reaches can't be read or a file is missing, because what is below
/// it can't be told from what is unused; `Verify` lists all that is wrong. Fails with `Cancelled`,
/// with nothing removed. If the removal itself fails, what it removed until then was unused.
///
/// A repository that is open holds its new objects in memory, and has nothing to fear. Handles on
/// commits that no branch has reached since they were saved can no longer be followed where they
/// were not followed before.
///
/// Cost: reads all commits and folders, no file; then a look at every object of the store.
TALVCS_KIT_API Result<RemovedObjects> CleanUp(IObjectStore& store,
                                              const CleanUpOptions& options = {});

}  // namespace TalVcs::Kit
