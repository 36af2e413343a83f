#include <kit/open/clean_up.h>
#include <kit/open/try.h>
#include <kit/workspace/internal/reachable_objects.h>
#include <kit/workspace/internal/thinning.h>
#include <kit/workspace/workspace.h>

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

namespace {

/// What a rule does, before it is done.
struct Forgetting {
  RetentionReport report;
  std::vector<BranchMove> moves;
};

/// Counts the objects of the store that the new history doesn't need.
Result<ObjectTotals> CountFreed(WorkspaceState& state, const HistoryGraph& graph,
                                const ThinnedHistory& history, Reporter& reporter) {
  ReachableObjects kept(*state.store, reporter);
  Status status = reporter.Begin("contents");
  for (std::size_t i = 0; i < graph.Nodes().size() && status; ++i) {
    if (!history[i]) continue;
    const cow_ptr<CommitTree> tree = history[i]->GetTree();
    status = kept.Add(history[i]->GetId(), tree ? tree->GetRootId() : Id());
  }
  std::vector<Id> freed;
  const auto take = [&](std::span<const Id> ids) {
    for (const Id& id : ids) {
      if (!kept.Contains(id)) freed.push_back(id);
    }
    return true;
  };
  if (status) status = state.store->List(take);
  if (!status) return status.error();
  const auto sizes = state.store->Sizes(freed);
  if (!sizes) return sizes.error();
  ObjectTotals totals;
  totals.count = freed.size();
  for (const auto& size : *sizes) totals.sizeBytes += size.value_or(0);
  status = reporter.End();
  if (!status) return status.error();
  return totals;
}

Result<Forgetting> Plan(WorkspaceState& state, const Retention& rule, const Progress& progress) {
  Reporter reporter(progress);
  const Result<HistoryGraph> graph = HistoryGraph::Read(state, reporter);
  if (!graph) return graph.error();
  const Result<std::vector<bool>> kept = ChooseVersions(state, *graph, rule, reporter);
  if (!kept) return kept.error();
  const Result<ThinnedHistory> history = ThinnedHistory::Make(state, *graph, *kept);
  if (!history) return history.error();
  const Result<ObjectTotals> freed = CountFreed(state, *graph, *history, reporter);
  if (!freed) return freed.error();
  Forgetting forgetting;
  forgetting.moves = history->Moves(*graph);
  forgetting.report.freed = *freed;
  for (const std::size_t at : graph->ByTime()) {
    if ((*kept)[at]) {
      ++forgetting.report.keptVersions;
    } else {
      forgetting.report.forgotten.push_back(DescribeCommit(*(*graph)[at].commit));
    }
  }
  return forgetting;
}

/// Reports on, and takes no for yes.
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
  Result<RetentionReport> report = Try([&]() -> Result<RetentionReport> {
    Result<Forgetting> plan = Plan(*m_state, rule, options.progress);
    if (!plan) return std::move(plan).error();
    return std::move(plan->report);
  });
  m_state->GetRepository().UpdateStorage();
  return report;
}

Result<RetentionReport> Workspace::Forget(const Retention& rule, const ForgetOptions& options) {
  return Try([&]() -> Result<RetentionReport> {
    Result<Forgetting> plan = Plan(*m_state, rule, options.progress);
    Status status = plan ? Status() : Status(plan.error());
    if (status && !plan->moves.empty()) {
      status = m_state->MoveBranches(plan->moves, nullptr, options.progress);
    }
    if (!status) {
      m_state->GetRepository().UpdateStorage();
      return status.error();
    }
    plan->moves.clear();
    m_state->GetRepository().UpdateStorage();
    m_state->opened.Trim();
    const Result<RemovedObjects> removed =
        CleanUp(*m_state->store, {.progress = WithoutCancelling(options.progress)});
    if (!removed) {
      Error error = removed.error();
      error.unchanged = "the versions are forgotten; the next clean-up brings back their bytes";
      return error;
    }
    plan->report.freed = {removed->count, removed->sizeBytes};
    return std::move(plan->report);
  });
}

}  // namespace TalVcs::Kit
