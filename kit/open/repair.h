#pragma once

#include <kit/export.h>
#include <kit/open/report.h>
#include <kit/store/object_store.h>
#include <kit/store/repairable_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <cstdint>
#include <vector>

namespace TalVcs::Kit {

/// Options of `Repair`.
struct RepairOptions {
  /// The store's own interface for replacing what is damaged. With null, `Repair` finds it by type
  /// information; a build without type information needs it here.
  IRepairableStore* repairable = nullptr;
  /// Phases: "history" and "contents" for each branch. Cancelling keeps what is repaired by then.
  Progress progress = {};
};

/// What `Repair` did.
struct RepairReport {
  /// The objects that came from the source: where each is needed, and what was wrong with it. In
  /// the order of discovery, and not more than `HistoryReport::kMostDamages`. `Damage::commits` is
  /// 0.
  std::vector<Damage> repaired;
  std::uint64_t repairedObjects = 0;  ///< How many, listed or not.
  std::uint64_t repairedBytes = 0;    ///< The bytes of their packed forms.
  /// What still can't be read, branch by branch, after the repair.
  HistoryReport lost;

  /// True if every branch of the store is whole now.
  bool IsWhole() const noexcept { return lost.IsWhole(); }
};

/// Replaces what is damaged or missing in `store` by what `source` has.
///
/// Everything that the branches of `store` reach is read, as by `Verify`. An object that is missing
/// or whose bytes aren't those of its id is read from `source`, and written to `store` if its bytes
/// there are those of the id. So `source` can be any store that shares a part of the history: a
/// copy, an older version of the document, the store of somebody else. Nothing in `source` is
/// trusted or changed, and its branches don't matter.
///
///     const RepairReport report = Repair(store, copy).value();
///     for (const Damage& damage : report.repaired) std::cout << Describe(damage) << '\n';
///     if (!report.IsWhole()) ...  // report.lost.damages says what no store has
///
/// A damaged object is replaced by `IRepairableStore`; in a store that isn't one, missing objects
/// alone are repaired, and damaged ones are reported as lost. Branches and values stay as they are.
/// If the list of branches itself can't be read, fails as `IObjectStore::Heads`.
///
/// Fails as either store fails as a whole, with `Cancelled`, and with `Busy` if clean-ups of other
/// store objects kept removing objects. What was repaired until then stays, so that the next repair
/// goes on from there. When it returns a report, everything repaired is durable.
///
/// Cost: that of `Verify`, each object hashed twice; and a read and a write for each object that is
/// repaired. Memory: that of `Verify`, and a few megabytes of objects.
TALVCS_KIT_API Result<RepairReport> Repair(IObjectStore& store, IObjectStore& source,
                                           const RepairOptions& options = {});

}  // namespace TalVcs::Kit
