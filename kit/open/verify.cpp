#include <kit/open/internal/history_walk.h>
#include <kit/open/verify.h>

#include <algorithm>

namespace TalVcs::Kit {

namespace {

// A store that has lost a part, such as one of its files, may not be able to list the rest. What
// the branches lack says more than that, so the count then has what was listed.
Result<std::uint64_t> CountUnreferenced(IObjectStore& store, const HistoryWalk& walk, bool isWhole,
                                        Reporter& reporter) {
  std::uint64_t count = 0;
  Status status = reporter.Begin("unreferenced");
  if (!status) return status.error();
  const Status listed = store.List([&](std::span<const Id> ids) {
    for (const Id& id : ids) {
      const std::optional<ObjectKey> key = KeyOf(id);
      if (!key || !walk.HasMet(*key)) ++count;
    }
    status = reporter.Add(ids.size());
    return status.ok();
  });
  if (status && !listed && isWhole) return listed.error();
  if (status) status = reporter.End();
  if (!status) return status.error();
  return count;
}

}  // namespace

Result<VerifyReport> Verify(IObjectStore& store, const VerifyOptions& options) {
  const Result<std::vector<Head>> heads = store.Heads();
  if (!heads) return heads.error();
  Reporter reporter(options.progress);
  HistoryWalk walk(store, reporter, {}, std::max(options.mostDamages, 1u));
  Result<HistoryReport> result = walk.Run(*heads);
  if (!result) return result.error();
  const Result<std::uint64_t> unreferenced =
      CountUnreferenced(store, walk, result->IsWhole(), reporter);
  if (!unreferenced) return unreferenced.error();
  VerifyReport report;
  static_cast<HistoryReport&>(report) = *std::move(result);
  report.objects = walk.CountMet() - (report.damageCount - walk.CountBadHeads());
  report.unreferencedObjects = *unreferenced;
  return report;
}

}  // namespace TalVcs::Kit
