#pragma once

#include <kit/export.h>
#include <kit/open/open.h>
#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TalVcs {
class IRepository;
}  // namespace TalVcs

namespace TalVcs::Kit {

/// Options of both forms of `Save`.
struct SaveOptions {
  /// For an opened repository that did not come in whole: the names of all its branches that
  /// weren't whole, as a sign that the host knows. A branch of these that was left out stays in the
  /// store as it is, unless the repository has a branch of that name now, which then replaces it.
  std::vector<std::string> acceptDamaged = {};
  /// For other repositories: where the caller last saw the branches, such as `SaveReport::heads` of
  /// the save before. Branches that are somewhere else are a conflict, and those that the
  /// repository lacks are removed.
  std::optional<std::vector<Head>> expected = {};
  /// For other repositories, without `expected`: moves branches from wherever they are, and removes
  /// those that the repository lacks.
  bool replaceHeads = false;
  /// Phases: "check" and "write". No head has moved when the last one ends.
  Progress progress = {};
};

/// What a save did.
struct SaveReport {
  /// The branches of the repository with their heads.
  std::vector<Head> heads;
  std::uint64_t writtenObjects = 0;
  std::uint64_t writtenBytes = 0;
};

/// Saves what is new in a repository to the store that it was opened from.
///
/// Walks from the heads that have moved down to commits and folders that the store has, writes what
/// it lacks, each object before what names it, and then moves all heads in one step from where they
/// were when the repository was opened or last saved. Branches that were removed are removed.
/// Nothing else is removed; see `CleanUp`. The name of the current branch is kept too, as the
/// store's value "branch".
///
/// Before it writes, it refuses with `Unsupported` and the path what no store could bring back: an
/// object of a host's own class whose packed form is not the library's, a name with U+0000 in it,
/// an object that is gone. It refuses with `Damaged` a repository that did not come in whole,
/// unless `options.acceptDamaged` names the branches.
///
/// Fails with `Conflict` and the actual heads if another save moved one of the branches: nothing is
/// lost, the new commits are in the repository, and the host opens the store anew and merges. Fails
/// with `Cancelled`, with `Damaged` or `Unavailable` if an object of the repository can't be read,
/// and as the store does. Repository and branches of the store are then as before; objects that
/// were written are unused until a next save needs them or a `CleanUp` removes them. If a clean-up
/// ran meanwhile, the save looks again and begins anew, a few times at the most.
///
/// Cost: what changed since the last save. Without a change it reads the heads and writes nothing.
TALVCS_KIT_API Result<SaveReport> Save(OpenedRepository& opened, const SaveOptions& options = {});

/// Does the same for any repository and any store.
///
/// Without `expected` and `replaceHeads`, a branch moves only forward: one whose head in the store
/// is not in the repository's history of that branch is a conflict, so that a repository that knows
/// nothing of what is in the store can't replace it. Branches that the repository lacks then stay.
TALVCS_KIT_API Result<SaveReport> Save(IRepository& repository, IObjectStore& store,
                                       const SaveOptions& options = {});

}  // namespace TalVcs::Kit
