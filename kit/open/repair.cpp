#include <kit/open/internal/head_moves.h>
#include <kit/open/internal/history_walk.h>
#include <kit/open/internal/repairing_store.h>
#include <kit/open/repair.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

/// Returns the interface for replacing objects; null if the store has none.
IRepairableStore* RepairableFrom(IObjectStore& store, const RepairOptions& options) {
  if (options.repairable != nullptr) return options.repairable;
#ifdef __cpp_rtti
  return dynamic_cast<IRepairableStore*>(&store);
#else
  static_cast<void>(store);
  return nullptr;
#endif
}

/// Repairs what it can and adds that to the report.
Status RepairOnce(IObjectStore& store, IObjectStore& source, const RepairOptions& options,
                  RepairReport& report) {
  const Result<std::vector<Head>> heads = store.Heads();
  if (!heads) return heads.error();
  RepairingStore repaired(store, RepairableFrom(store, options), source);
  WalkHooks hooks;
  hooks.replaced = [&repaired](const Id& id) { return repaired.ProblemOf(id); };
  hooks.replacedAt = [&report](Damage damage) {
    if (report.repaired.size() >= HistoryReport::kMostDamages) return;
    report.repaired.push_back(std::move(damage));
  };
  Reporter reporter(options.progress);
  HistoryWalk walk(repaired, reporter, std::move(hooks));
  Result<HistoryReport> lost = walk.Run(*heads);
  // What was found is kept whether or not the walk came to its end.
  const Status status = repaired.Finish();
  report.repairedObjects += repaired.RepairedObjects();
  report.repairedBytes += repaired.RepairedBytes();
  if (!lost) return std::move(lost).error();
  report.lost = *std::move(lost);
  return status;
}

}  // namespace

Result<RepairReport> Repair(IObjectStore& store, IObjectStore& source,
                            const RepairOptions& options) {
  RepairReport report;
  for (int attempt = 1;; ++attempt) {
    const Status status = RepairOnce(store, source, options, report);
    if (status) return report;
    // A removal meanwhile may have taken away what was written.
    if (status.error().code != ErrorCode::Busy || attempt == kMostAttempts) return status.error();
  }
}

}  // namespace TalVcs::Kit
