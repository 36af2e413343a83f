#pragma once

#include <kit/export.h>
#include <kit/open/report.h>
#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <cstdint>

namespace TalVcs::Kit {

/// Options of `Verify`.
struct VerifyOptions {
  /// The most damages that the report lists, at least one; all are counted. Each takes some 200
  /// bytes, and 4 bytes for each folder that lacks it.
  std::uint32_t mostDamages = HistoryReport::kMostDamages;
  /// Phases: "history" and "contents" for each branch, "unreferenced".
  Progress progress = {};
};

/// What `Verify` found.
struct VerifyReport : HistoryReport {
  /// Objects that branches reach and that can be read.
  std::uint64_t objects = 0;
  /// Objects of the store that no branch was found to reach. `CleanUp` removes them. If something
  /// can't be read, these may include objects that it names, and lack those that the store can't
  /// list.
  std::uint64_t unreferencedObjects = 0;
};

/// Checks everything that the branches of a store reach.
///
/// Every commit, folder and file is read once, hashed, and compared with the form that the library
/// writes. Unreferenced objects are counted and not read. Damage is no failure of the function: the
/// report has each object that can't be read with the reason, one branch, commit and path where it
/// is needed, and the number of commits that need it, and for each branch how much of it is whole.
///
///     const VerifyReport report = Verify(store).value();
///     for (const Damage& damage : report.damages) std::cout << Describe(damage) << '\n';
///
/// Fails if the store can't list its branches, or its objects although no branch has damage, if the
/// store as a whole becomes unreadable, and with `Cancelled`. Nothing is written in any case.
///
/// Cost: one pass over all reachable bytes; one read for up to 64 folders or 256 files of one
/// folder. Memory: some 100 bytes a commit, 40 to 80 for each other object, and the folders of one
/// path.
TALVCS_KIT_API Result<VerifyReport> Verify(IObjectStore& store, const VerifyOptions& options = {});

}  // namespace TalVcs::Kit
