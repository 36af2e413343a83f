#include <kit/open/clean_up.h>
#include <kit/open/internal/history_walk.h>

namespace TalVcs::Kit {

namespace {

Result<std::vector<Id>> Mark(IObjectStore& store, std::span<const Head> heads,
                             const Progress& progress) {
  Reporter reporter(progress);
  WalkHooks hooks;
  hooks.readsFiles = false;
  HistoryWalk walk(store, reporter, std::move(hooks));
  const Result<HistoryReport> report = walk.Run(heads);
  if (!report) return report.error();
  if (!report->IsWhole()) {
    Error error = ErrorOfDamage(*report);
    error.message = "cannot clean up: " + error.message;
    error.unchanged = "nothing was removed";
    return error;
  }
  std::vector<Id> marked;
  marked.reserve(walk.CountMet());
  const auto add = [&marked](const IdKey& key, std::uint32_t) { marked.push_back(IdOf(key)); };
  walk.Commits().ForEach(add);
  walk.Trees().Trees().ForEach(add);
  walk.Trees().Files().ForEach(add);
  return marked;
}

}  // namespace

Result<RemovedObjects> CleanUp(IObjectStore& store, const CleanUpOptions& options) {
  return store.RemoveUnmarked(
      [&](std::span<const Head> heads) { return Mark(store, heads, options.progress); });
}

}  // namespace TalVcs::Kit
