#include <kit/open/try.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/merge_plan.h>
#include <kit/workspace/internal/workspace_state.h>
#include <kit/workspace/workspace.h>

#include <map>
#include <utility>

namespace TalVcs::Kit {

namespace {

HeadMap KnownHeads(WorkspaceState& state) {
  HeadMap heads;
  for (const auto& [name, id] : state.GetStorage().GetHeadIds()) {
    if (!IsEmpty(id)) heads.emplace(ToUtf8(name), id);
  }
  return heads;
}

Result<HeadMap> ActualHeads(IObjectStore& store) {
  const Result<std::vector<Head>> actual = store.Heads();
  if (!actual) return actual.error();
  HeadMap heads;
  for (const Head& head : *actual) {
    if (!IsEmpty(head.id)) heads.emplace(head.name, head.id);
  }
  return heads;
}

Id HeadIn(const HeadMap& heads, const std::string& name) {
  const auto found = heads.find(name);
  return found == heads.end() ? Id() : found->second;
}

/// The pending edits and what somebody else saved, brought together.
struct Reloading {
  Snapshot theirs;
  MergePlan plan;
};

/// Finds the new head of the current branch, which the repository can read although it doesn't know
/// that it is one.
Result<Reloading> Prepare(WorkspaceState& state, const HeadMap& actual, const Progress& progress) {
  MergeSides sides{EmptyTree(), state.draft.GetTree(), EmptyTree()};
  const Id id = HeadIn(actual, state.GetBranch());
  if (!IsEmpty(id)) {
    const Result<cow_ptr<Commit>> head = state.FindCommit(id);
    if (!head) return head.error();
    sides.base = state.base;
    sides.theirs = RootOf(*head);
  }
  Snapshot theirs(sides.theirs);
  Reporter reporter(progress);
  Status status = reporter.Begin("merge");
  if (!status) return std::move(status).error();
  Result<MergePlan> plan =
      MergePlan::Make(state.GetRepository(), std::move(sides), state.options.mergers, reporter);
  if (!plan) return std::move(plan).error();
  status = reporter.End();
  if (!status) return std::move(status).error();
  return Reloading{std::move(theirs), *std::move(plan)};
}

/// Opens the store anew, on the same branch, whether or not it is there.
Result<OpenedRepository> OpenAgain(WorkspaceState& state, const HeadMap& actual) {
  const std::string branch = state.GetBranch();
  if (actual.contains(branch)) return Kit::Open(state.store, {.branch = branch});
  Result<OpenedRepository> opened = Kit::Open(state.store);
  if (!opened) return opened;
  opened->GetRepository().GetStorage()->CreateBranch(ToWide(branch), nullptr);
  opened->GetRepository().Checkout(ToWide(branch));
  return opened;
}

/// Makes the edits that lead from the files of the head to `files`.
Status MakePending(WorkspaceState& state, const Snapshot& theirs, const Snapshot& files) {
  const Result<std::vector<TreeChange>> changes = FindTreeChanges(
      theirs.GetTree(), files.GetTree(), {.findMoves = false, .findLikeMoves = false});
  if (!changes) return changes.error();
  // What is removed makes room for what is added.
  for (const TreeChange& change : *changes) {
    if (change.kind != TreeChangeKind::Removed) continue;
    const Status status = state.draft.Remove(change.path);
    if (!status) return status;
  }
  for (const TreeChange& change : *changes) {
    if (change.kind == TreeChangeKind::Removed) continue;
    const Result<Bytes> bytes = files.Read(change.path);
    if (!bytes) return bytes.error();
    const Status status = state.draft.Write(change.path, bytes->GetBuffer());
    if (!status) return status;
  }
  return {};
}

/// Refuses decisions that were made about another head: they would take back what has come since.
Status CheckSeen(const WorkspaceState& state, const HeadMap& actual, const Decisions& decisions) {
  const std::string branch = ToUtf8(state.opened.GetRepository().GetCurentBranch());
  const Id head = HeadIn(actual, branch);
  if (decisions.empty() || !state.previewed || *state.previewed == head) return {};
  Error error = WorkspaceError(
      ErrorCode::HeadMoved,
      "cannot reload: branch \"" + branch + "\" has moved again since the preview", branch);
  error.heads = {{branch, head}};
  return error;
}

/// Reports what somebody else has moved since the observer was last called.
void Report(WorkspaceState& state, const HeadMap& before, const HeadMap& after) {
  HeadMap all = before;
  all.insert(after.begin(), after.end());
  state.observed = after;
  if (!state.observer) return;
  for (const auto& [name, id] : all) {
    const Workspace::Move move{name, HeadIn(before, name), HeadIn(after, name), true};
    if (!(move.before == move.after)) state.observer(move);
  }
}

}  // namespace

Result<bool> Workspace::IsBehind() const {
  const Result<HeadMap> actual = ActualHeads(*m_state->store);
  if (!actual) return actual.error();
  const HeadMap known = KnownHeads(*m_state);
  Report(*m_state, m_state->observed.value_or(known), *actual);
  return *actual != known;
}

Result<MergePreview> Workspace::PreviewReload(const PreviewOptions& options) const {
  return Try([&]() -> Result<MergePreview> {
    const Result<HeadMap> actual = ActualHeads(*m_state->store);
    if (!actual) return actual.error();
    const Result<Reloading> reloading = Prepare(*m_state, *actual, options.progress);
    if (!reloading) return reloading.error();
    MergePreview preview;
    preview.action = MergeAction::Reload;
    preview.branch = m_state->GetBranch();
    preview.head = HeadIn(*actual, preview.branch);
    m_state->previewed = preview.head;
    const MergePlan& plan = reloading->plan;
    preview.changes = FilesChanged(m_state->draft.GetTree(), plan.WithoutConflicts());
    preview.conflicts = plan.GetConflicts();
    preview.isUpToDate = *actual == KnownHeads(*m_state);
    return preview;
  });
}

Status Workspace::Reload(const Decisions& decisions, const PreviewOptions& options) {
  return Try([&]() -> Status {
    const HeadMap before = KnownHeads(*m_state);
    const Result<HeadMap> actual = ActualHeads(*m_state->store);
    if (!actual) return actual.error();
    if (*actual == before && decisions.empty()) return {};
    const Status seen = CheckSeen(*m_state, *actual, decisions);
    if (!seen) return seen;
    const HeadMap observed = m_state->observed.value_or(before);
    const Result<Reloading> reloading = Prepare(*m_state, *actual, options.progress);
    if (!reloading) return reloading.error();
    const Result<cow_ptr<Tree>> files = reloading->plan.Decide(decisions);
    if (!files) return files.error();
    Result<OpenedRepository> opened = OpenAgain(*m_state, *actual);
    if (!opened) return opened.error();
    auto next =
        std::make_unique<WorkspaceState>(m_state->store, *std::move(opened), m_state->options);
    if (!(RootOf(next->GetHead())->GetId() == reloading->theirs.GetTree()->GetId())) {
      return WorkspaceError(ErrorCode::Busy,
                            "cannot reload: somebody is moving the branch; try again", GetBranch());
    }
    Status status = MakePending(*next, reloading->theirs, Snapshot(*files));
    if (!status) return status;
    next->observer = std::move(m_state->observer);
    m_state = std::move(next);
    Report(*m_state, observed, KnownHeads(*m_state));
    return {};
  });
}

}  // namespace TalVcs::Kit
