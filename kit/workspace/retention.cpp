#include <kit/open/clean_up.h>
#include <kit/open/try.h>
#include <kit/workspace/internal/reachable_objects.h>
#include <kit/workspace/internal/thinning.h>
#include <kit/workspace/workspace.h>

#include <algorithm>
#include <span>
#include <utility>

namespace TalVcs::Kit {

Retention Retention::KeepNewest(std::uint64_t count) {
  Retention rule(Kind::Newest);
  rule.m_count = count;
  return rule;
}

Retention Retention::KeepSince(std::chrono::sys_seconds time) {
  Retention rule(Kind::Since);
  rule.m_time = time;
  return rule;
}

Retention Retention::KeepUnder(std::uint64_t sizeBytes) {
  Retention rule(Kind::Under);
  rule.m_count = sizeBytes;
  return rule;
}

Retention Retention::ThinAutosaves(std::uint64_t perHour, std::uint64_t perDay,
                                   std::chrono::sys_seconds now) {
  Retention rule(Kind::Thin);
  rule.m_count = perHour;
  rule.m_perDay = perDay;
  rule.m_time = now;
  return rule;
}

Retention Retention::TipsAndForks() { return Retention(Kind::TipsAndForks); }

Retention Retention::ForgetThrough(const Id& version) {
  Retention rule(Kind::Through);
  rule.m_version = version;
  return rule;
}

namespace {

// Objects whose sizes are asked for by one call.
constexpr std::size_t kSizesTogether = 4096;
// How often what a clean-up has removed meanwhile is written again.
constexpr int kMostAttempts = 3;

/// What a rule does, before it is done.
struct Plan {
  HistoryGraph graph;
  std::vector<bool> kept;
  RetentionReport report;  // without what is freed
};

Status ListForgotten(WorkspaceState& state, std::uint64_t most, Plan& plan) {
  plan.report.keptVersions = static_cast<std::uint64_t>(std::ranges::count(plan.kept, true));
  plan.report.forgottenVersions = plan.kept.size() - plan.report.keptVersions;
  std::vector<Version>& forgotten = plan.report.forgotten;
  if (most == 0 || plan.report.forgottenVersions == 0) return {};
  for (const HistoryGraph::Index at : plan.graph.ByTime()) {
    if (plan.kept[at]) continue;
    const Result<cow_ptr<Commit>> commit = state.FindCommit(IdOf(plan.graph[at].id));
    if (!commit) return commit.error();
    forgotten.push_back(DescribeCommit(**commit));
    if (forgotten.size() == most) break;
    state.PassVersion();
  }
  state.GetStorage().Trim();
  return {};
}

Result<Plan> MakePlan(WorkspaceState& state, const Retention& rule, const ForgetOptions& options,
                      Reporter& reporter) {
  Result<HistoryGraph> graph = HistoryGraph::Read(state, reporter);
  if (!graph) return std::move(graph).error();
  Result<std::vector<bool>> kept = ChooseVersions(state, *graph, rule, reporter);
  if (!kept) return std::move(kept).error();
  Plan plan{*std::move(graph), *std::move(kept), {}};
  Status status = ListForgotten(state, options.mostListed, plan);
  if (!status) return std::move(status).error();
  return plan;
}

/// Counts the objects of the store that the new history doesn't need.
Result<ObjectTotals> CountFreed(WorkspaceState& state, const Plan& plan, Reporter& reporter) {
  const ThinnedHistory history(plan.graph, plan.kept);
  ReachableObjects kept(*state.store, reporter);
  Status status = reporter.Begin("contents");
  for (HistoryGraph::Index i = 0; i < plan.graph.Count() && status; ++i) {
    if (!history.IsKept(i)) continue;
    const HistoryGraph::Node& version = plan.graph[i];
    status = history.IsChanged(i) ? kept.AddRoot(version) : kept.Add(version);
  }
  std::vector<ObjectKey> freed;
  const auto take = [&](std::span<const Id> ids) {
    for (const Id& id : ids) {
      const ObjectKey key = *KeyOf(id);
      if (!kept.Contains(key)) freed.push_back(key);
    }
    return true;
  };
  if (status) status = state.store->List(take);
  ObjectTotals totals;
  totals.count = freed.size();
  for (std::size_t first = 0; first < freed.size() && status; first += kSizesTogether) {
    std::vector<Id> ids;
    const std::size_t count = std::min(kSizesTogether, freed.size() - first);
    for (std::size_t i = first; i < first + count; ++i) ids.push_back(IdOf(freed[i]));
    const auto sizes = state.store->Sizes(ids);
    if (!sizes) return sizes.error();
    for (const auto& size : *sizes) totals.sizeBytes += size.value_or(0);
    status = reporter.Add(0);
  }
  if (status) status = reporter.End();
  if (!status) return status.error();
  return totals;
}

/// Writes the new history and moves the branches.
Status MoveToKept(WorkspaceState& state, const Plan& plan, const Progress& progress) {
  const ThinnedHistory history(plan.graph, plan.kept);
  for (int attempt = 1;; ++attempt) {
    Reporter reporter(progress);
    const Result<std::vector<BranchMove>> moves = WriteThinnedHistory(state, history, reporter);
    if (!moves) return moves.error();
    if (moves->empty()) return {};
    std::vector<Id> heads;
    for (const BranchMove& move : *moves) heads.push_back(move.to->GetId());
    Status status = state.MoveBranches(*moves, nullptr, progress);
    if (status || attempt == kMostAttempts) return status;
    // Another process may have removed what no branch reached yet.
    const Result<std::vector<Id>> missing = state.store->Missing(heads);
    if (!missing || missing->empty()) return status;
  }
}

/// Passes reports on and ignores a wish to cancel.
Progress WithoutCancelling(const Progress& progress) {
  if (!progress) return {};
  return [&progress](const ProgressStep& step) {
    progress(step);
    return true;
  };
}

}  // namespace

Result<RetentionReport> Workspace::PreviewForget(const Retention& rule,
                                                 const ForgetOptions& options) const {
  return Try([&]() -> Result<RetentionReport> {
    Reporter reporter(options.progress);
    Result<Plan> plan = MakePlan(*m_state, rule, options, reporter);
    if (!plan) return std::move(plan).error();
    const Result<ObjectTotals> freed = CountFreed(*m_state, *plan, reporter);
    if (!freed) return freed.error();
    plan->report.freed = *freed;
    return std::move(plan->report);
  });
}

Result<RetentionReport> Workspace::Forget(const Retention& rule, const ForgetOptions& options) {
  return Try([&]() -> Result<RetentionReport> {
    RetentionReport report;
    {
      Reporter reporter(options.progress);
      Result<Plan> plan = MakePlan(*m_state, rule, options, reporter);
      if (!plan) return std::move(plan).error();
      const Status status = MoveToKept(*m_state, *plan, options.progress);
      if (!status) return status.error();
      report = std::move(plan->report);
    }
    m_state->opened.Trim();
    const Result<RemovedObjects> removed =
        CleanUp(*m_state->store, {.progress = WithoutCancelling(options.progress)});
    if (!removed) {
      Error error = removed.error();
      error.unchanged = "the versions are forgotten; the next clean-up frees their space";
      return error;
    }
    report.freed = {removed->count, removed->sizeBytes};
    return report;
  });
}

}  // namespace TalVcs::Kit
