#include <kit/open/clean_up.h>
#include <kit/open/internal/history_walk.h>
#include <kit/store/gradual_removal.h>

namespace TalVcs::Kit {

namespace {

/// Marks what heads reach, from one call to the next.
class Marking {
 public:
  Marking(IObjectStore& store, const Progress& progress)
      : m_reporter(progress), m_walk(store, m_reporter, Hooks()) {}

  /// Returns the ids that were met until now.
  Result<std::vector<Id>> Mark(std::span<const Head> heads) {
    const Result<HistoryReport> report = m_walk.Run(heads);
    if (!report) return report.error();
    if (!report->IsWhole()) {
      Error error = ErrorOfDamage(*report);
      error.message = "cannot clean up: " + error.message;
      error.unchanged = "nothing was removed";
      return error;
    }
    std::vector<Id> marked;
    marked.reserve(m_walk.CountMet());
    const auto add = [&marked](const ObjectKey& key, std::uint32_t) {
      marked.push_back(IdOf(key));
    };
    m_walk.Commits().ForEach(add);
    m_walk.Trees().Trees().ForEach(add);
    m_walk.Trees().Files().ForEach(add);
    return marked;
  }

 private:
  static WalkHooks Hooks() {
    WalkHooks hooks;
    hooks.readsFiles = false;
    return hooks;
  }

  Reporter m_reporter;
  HistoryWalk m_walk;
};

}  // namespace

Result<RemovedObjects> CleanUp(IObjectStore& store, const CleanUpOptions& options) {
  return store.RemoveUnmarked(
      [&](std::span<const Head> heads) { return Marking(store, options.progress).Mark(heads); });
}

Result<RemovedObjects> CleanUpGradually(IObjectStore& store, const GradualCleanUpOptions& options) {
  Marking marking(store, options.progress);
  return RemoveGradually(
      store, [&](std::span<const Head> heads) { return marking.Mark(heads); }, options.grace);
}

}  // namespace TalVcs::Kit
