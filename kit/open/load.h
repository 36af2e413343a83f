#pragma once

#include <kit/export.h>
#include <kit/open/open.h>

#include <memory>
#include <string>

namespace TalVcs::Kit {

/// Options of `Load`.
struct LoadOptions {
  /// The current branch, as in `OpenOptions`.
  std::string branch = {};
  /// What to do with branches that aren't whole.
  DamagePolicy policy = DamagePolicy::Stop;
  /// Phases: "history" and "contents" for each branch.
  Progress progress = {};
};

/// Reads everything that the branches of a store reach into memory, and checks it.
///
/// The repository has every branch under its head's own id, or says what is wrong: a branch is
/// never given another head, and nothing is left out of a folder. It needs the store only to be
/// saved. Following a link costs no reading and fails only where the report has a damage.
///
///     Result<OpenedRepository> loaded = Load(store);
///     if (!loaded && loaded.error().code == ErrorCode::Damaged) {
///       loaded = Load(store, {.policy = DamagePolicy::Salvage});
///       for (const Damage& damage : loaded->GetReport().damages) Show(Describe(damage));
///     }
///
/// `LoadOptions::policy` decides about damage: it fails the load, with the first damage as the
/// error; or only the branches that are whole are loaded; or also what is left of partial ones:
/// their heads, and each commit, folder and file that can be read. Reading what is damaged there
/// throws `ObjectUnavailable`. `Save` refuses a repository that did not come in whole unless the
/// caller names its damaged branches.
///
/// Fails as `Open` and `Verify` do. Cost: one pass over all reachable bytes. Memory: these bytes,
/// and some 60 for each object. Objects that are used later take memory of their own, except files,
/// which share these bytes.
TALVCS_KIT_API Result<OpenedRepository> Load(std::shared_ptr<IObjectStore> store,
                                             const LoadOptions& options = {});

}  // namespace TalVcs::Kit
