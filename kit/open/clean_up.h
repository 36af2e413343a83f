#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <chrono>

namespace TalVcs::Kit {

/// Options of `CleanUp`.
struct CleanUpOptions {
  /// Phases: "history" and "contents" for each branch. Nothing has been removed yet when the last
  /// one ends.
  Progress progress = {};
};

/// Removes the objects of a store that no branch reaches.
///
/// Saving never removes an object: objects that branches no longer reach, and those that cancelled
/// or failed saves wrote, stay until a clean-up. The marks come from the store's own records, from
/// the heads down, so no repository takes part, and it doesn't matter who has which branch open. A
/// save that runs meanwhile, here or in another process, notices it and looks again before it moves
/// a head.
///
///     const RemovedObjects removed = CleanUp(store).value();
///
/// Returns what was removed. Refuses with `Damaged` or `Unavailable`, with nothing removed, if any
/// commit or folder that a branch reaches can't be read or a file is missing, because what is below
/// it would look unused; `Verify` lists all that is wrong. Fails with `Cancelled`, with nothing
/// removed. If the removal itself fails, what it removed until then was unused.
///
/// A repository that is open loses no new object: it holds them in memory. A saved commit that no
/// branch reaches any more loses what was not read yet: following such a link then throws
/// `ObjectUnavailable`.
///
/// Cost: reads all commits and folders, no file; then a look at every object of the store.
TALVCS_KIT_API Result<RemovedObjects> CleanUp(IObjectStore& store,
                                              const CleanUpOptions& options = {});

/// Options of `CleanUpGradually`.
struct GradualCleanUpOptions {
  /// How long an unused object can still be read after it was found to be unused, so that readers
  /// of a head that has moved can end what they began.
  std::chrono::milliseconds grace = std::chrono::hours(24);
  /// Phases: "history" and "contents" for each branch, and again for one that has moved.
  Progress progress = {};
};

/// Removes the objects that no branch reaches from a store that many use at once, such as
/// `PostgresStore`, while others save.
///
///     CleanUpGradually(store);  // once a day
///
/// Each call finds what is unused now, and removes what an earlier call found longer ago than the
/// grace. Returns what was removed. Fails with `Unsupported` for a store that doesn't implement
/// `IGradualRemoval`, and refuses as `CleanUp` does. Cost: reads all commits and folders and lists
/// all objects; for a moment, saves wait until the unused ones are noted.
TALVCS_KIT_API Result<RemovedObjects> CleanUpGradually(IObjectStore& store,
                                                       const GradualCleanUpOptions& options = {});

}  // namespace TalVcs::Kit
