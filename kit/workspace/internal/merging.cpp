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
      m_branch(std::move(branch)) {
  if (m_action == MergeAction::Branch) {
    m_bases = FindMergeBases(m_state.GetRepository(), m_head, m_other);
  }
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

MergeSides Merging::Sides() const {
  const cow_ptr<Tree> after = RootOf(m_other);
  if (m_action == MergeAction::Branch) {
    return SidesOf(m_state.GetRepository(), m_bases, m_state.base, after);
  }
  const cow_ptr<Tree> before = RootOf(m_other->GetParent());
  if (m_action == MergeAction::CherryPick) return {before, m_state.base, after};
  return {after, m_state.base, before};
}

MergePreview Merging::Preview() {
  MergePreview preview;
  preview.action = m_action;
  preview.branch = m_branch;
  preview.version = m_state.VersionOf(m_other);
  if (m_head) preview.head = m_head->GetId();
  preview.isUpToDate = IsUpToDate();
  preview.isFastForward = !preview.isUpToDate && IsFastForward();
  if (preview.isUpToDate) return preview;
  const MergePlan plan(m_state.GetRepository(), Sides(), m_state.options.mergers);
  preview.changes = FilesChanged(m_state.base, plan.WithoutConflicts());
  preview.conflicts = plan.GetConflicts();
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
  if (IsUpToDate()) return std::optional<Version>();
  if (IsFastForward() && (options.allowsFastForward || !m_head)) {
    const cow_ptr<Tree> files = RootOf(m_other);
    const Status status =
        m_state.MoveBranches({{m_state.GetBranch(), m_other}}, files, options.progress);
    if (!status) return status.error();
    return std::optional(m_state.VersionOf(m_other));
  }
  const MergePlan plan(m_state.GetRepository(), Sides(), m_state.options.mergers);
  const Result<cow_ptr<Tree>> merged = plan.Decide(decisions);
  if (!merged) return merged.error();
  NewVersion version{m_head, *merged, Message(options.message),
                     m_state.SignatureOf(options.author, options.email, options.time)};
  Result<Version> made = m_state.PutOnBranch(version, options.progress);
  if (!made) return std::move(made).error();
  return std::optional(*std::move(made));
}

}  // namespace TalVcs::Kit
