// Every action is a merge of three trees, with the current files as ours:
//
//     action        base                        theirs
//     branch        the merge base              the other head
//     cherry-pick   before the version          after it
//     revert, undo  after the version           before it
//     redo          after the undoing version   before it

#include <kit/text.h>
#include <kit/workspace/internal/ancestry.h>
#include <kit/workspace/internal/merging.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

std::string Named(std::string_view verb, const std::string& summary) {
  return std::string(verb) + " \"" + summary + "\"";
}

}  // namespace

Merging::Merging(WorkspaceState& state, MergeAction action, cow_ptr<Commit> other,
                 std::string branch)
    : m_state(state),
      m_action(action),
      m_head(state.GetHead()),
      m_other(std::move(other)),
      m_branch(std::move(branch)) {}

Status Merging::FindBases(Reporter& reporter) {
  if (m_action != MergeAction::Branch) return {};
  auto bases = FindMergeBases(m_state.GetRepository(), m_head, m_other, reporter);
  if (!bases) return std::move(bases).error();
  m_bases = *std::move(bases);
  return {};
}

bool Merging::IsUpToDate() const {
  return m_bases.size() == 1 && m_bases.front()->GetId() == m_other->GetId();
}

bool Merging::IsFastForward() const {
  if (m_action != MergeAction::Branch) return false;
  if (!m_head) return true;
  return m_bases.size() == 1 && m_bases.front()->GetId() == m_head->GetId() &&
         IsInLine(m_other, m_head->GetId());
}

// A version that is brought in or taken back must change something. An undo is counted, and a merge
// is remembered, in any case.
bool Merging::ChangesNothing(const cow_ptr<Tree>& merged) const {
  const bool is_pick = m_action == MergeAction::CherryPick || m_action == MergeAction::Revert;
  return is_pick && merged->GetId() == m_state.base->GetId();
}

Result<MergePlan> Merging::Plan(Reporter& reporter) const {
  std::vector<cow_ptr<Commit>> commits = m_bases;
  commits.push_back(m_other);
  if (m_action != MergeAction::Branch) commits.push_back(m_other->GetParent());
  OnDemandStorage::ExpectRoots(commits);
  const cow_ptr<Tree> after = RootOf(m_other);
  Result<MergeSides> sides = MergeSides{after, m_state.base, after};
  if (m_action == MergeAction::Branch) {
    sides = SidesOf(m_state.GetRepository(), m_bases, m_state.base, after, reporter);
    if (!sides) return std::move(sides).error();
  } else if (m_action == MergeAction::CherryPick) {
    sides->base = RootOf(m_other->GetParent());
  } else {
    sides->theirs = RootOf(m_other->GetParent());
  }
  return MergePlan::Make(m_state.GetRepository(), *std::move(sides), m_state.options.mergers,
                         reporter);
}

Result<MergePreview> Merging::Preview(const Progress& progress) {
  Reporter reporter(progress);
  Status status = reporter.Begin("merge");
  if (status) status = FindBases(reporter);
  if (!status) return std::move(status).error();
  MergePreview preview;
  preview.action = m_action;
  preview.branch = m_branch;
  preview.version = m_state.VersionOf(m_other);
  if (m_head) preview.head = m_head->GetId();
  preview.isUpToDate = IsUpToDate();
  preview.isFastForward = !preview.isUpToDate && IsFastForward();
  if (!preview.isUpToDate) {
    const Result<MergePlan> plan = Plan(reporter);
    if (!plan) return plan.error();
    const cow_ptr<Tree> merged = plan->WithoutConflicts();
    preview.changes = FilesChanged(m_state.base, merged);
    preview.conflicts = plan->GetConflicts();
    preview.isUpToDate = preview.conflicts.empty() && ChangesNothing(merged);
  }
  status = reporter.End();
  if (!status) return std::move(status).error();
  return preview;
}

AnnotatedMessage Merging::Message(const std::string& wanted) const {
  const Version other = DescribeCommit(*m_other);
  AnnotatedMessage text;
  switch (m_action) {
    case MergeAction::Branch:
    case MergeAction::Reload:
      text.message = Named("Merge", m_branch);
      text.annotations.merges = {other.id};
      break;
    case MergeAction::CherryPick:
      text.message = other.message;
      break;
    case MergeAction::Revert:
      text.message = Named("Revert", other.summary);
      break;
    case MergeAction::Undo:
      text.message = Named("Undo", other.summary);
      text.annotations.undoes = other.id;
      break;
    case MergeAction::Redo: {
      const cow_ptr<Commit> undone = m_state.GetRepository().GetCommitFromStorage(other.undoes);
      text.message = Named("Redo", (undone ? DescribeCommit(*undone) : other).summary);
      text.annotations.redoes = other.id;
      break;
    }
  }
  if (!wanted.empty()) text.message = wanted;
  return text;
}

Result<std::optional<Version>> Merging::Run(const Decisions& decisions,
                                            const MergeOptions& options) {
  Reporter reporter(options.progress);
  Status status = reporter.Begin("merge");
  if (status) status = FindBases(reporter);
  if (!status) return std::move(status).error();
  if (IsUpToDate()) return std::optional<Version>();
  if (IsFastForward() && (options.allowsFastForward || !m_head)) {
    const cow_ptr<Tree> files = RootOf(m_other);
    status = m_state.MoveBranches({{m_state.GetBranch(), m_other}}, files, options.progress);
    if (!status) return std::move(status).error();
    return std::optional(m_state.VersionOf(m_other));
  }
  const Result<MergePlan> plan = Plan(reporter);
  if (!plan) return plan.error();
  const Result<cow_ptr<Tree>> merged = plan->Decide(decisions);
  if (!merged) return merged.error();
  status = reporter.End();
  if (!status) return std::move(status).error();
  if (ChangesNothing(*merged)) return std::optional<Version>();
  NewVersion version{m_head, *merged, Message(options.message),
                     m_state.SignatureOf(options.author, options.email, options.time)};
  Result<Version> made = m_state.PutOnBranch(version, options.progress);
  if (!made) return std::move(made).error();
  return std::optional(*std::move(made));
}

}  // namespace TalVcs::Kit
