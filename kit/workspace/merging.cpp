#include <kit/open/internal/reporter.h>
#include <kit/open/try.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/merging.h>
#include <kit/workspace/internal/replay.h>
#include <kit/workspace/workspace.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

using MadeVersion = std::optional<Version>;

Error HasMoved(WorkspaceState& state, const std::string& branch) {
  Error error =
      WorkspaceError(ErrorCode::Conflict,
                     "cannot merge: branch \"" + branch + "\" has moved since the preview", branch);
  const cow_ptr<Commit> head = state.GetRepository().GetHead(ToWide(branch));
  error.heads.push_back({branch, head ? head->GetId() : Id()});
  return error;
}

/// Returns the commit that a preview is about. Fails with `Conflict` if a branch isn't where it
/// was.
Result<cow_ptr<Commit>> FindOther(WorkspaceState& state, const MergePreview& preview) {
  const cow_ptr<Commit> head = state.GetHead();
  if (!((head ? head->GetId() : Id()) == preview.head)) return HasMoved(state, state.GetBranch());
  if (preview.action != MergeAction::Branch) return state.FindCommit(preview.version.id);
  cow_ptr<Commit> other = state.GetRepository().GetHead(ToWide(preview.branch));
  if (!other || !(other->GetId() == preview.version.id)) return HasMoved(state, preview.branch);
  return other;
}

Result<MadeVersion> Finish(Workspace& workspace, const Result<MergePreview>& preview,
                           const MergeOptions& options) {
  if (!preview) return preview.error();
  return workspace.Merge(*preview, {}, options);
}

Result<MergePreview> PreviewOfVersion(WorkspaceState& state, MergeAction action,
                                      const Id& version) {
  return Try([&]() -> Result<MergePreview> {
    const Result<cow_ptr<Commit>> commit = state.FindCommit(version);
    if (!commit) return commit.error();
    return Merging(state, action, *commit).Preview();
  });
}

}  // namespace

Result<MergePreview> Workspace::PreviewMerge(std::string_view branch) const {
  return Try([&]() -> Result<MergePreview> {
    const Result<cow_ptr<TalVcs::Commit>> head = m_state->FindBranch(branch);
    if (!head) return head.error();
    return Merging(*m_state, MergeAction::Branch, *head, std::string(branch)).Preview();
  });
}

Result<MergePreview> Workspace::PreviewCherryPick(const Id& version) const {
  return PreviewOfVersion(*m_state, MergeAction::CherryPick, version);
}

Result<MergePreview> Workspace::PreviewRevert(const Id& version) const {
  return PreviewOfVersion(*m_state, MergeAction::Revert, version);
}

Result<MadeVersion> Workspace::Merge(const MergePreview& preview, const Decisions& decisions,
                                     const MergeOptions& options) {
  return Try([&]() -> Result<MadeVersion> {
    if (preview.action == MergeAction::Reload) {
      return WorkspaceError(ErrorCode::Unsupported, "a preview of Reload is for Reload",
                            preview.branch);
    }
    const Status status = m_state->NeedNoEdits("merge");
    if (!status) return status.error();
    Result<cow_ptr<TalVcs::Commit>> other = FindOther(*m_state, preview);
    if (!other) return other.error();
    return Merging(*m_state, preview.action, *std::move(other), preview.branch)
        .Run(decisions, options);
  });
}

Result<MadeVersion> Workspace::Merge(std::string_view branch, const MergeOptions& options) {
  return Finish(*this, PreviewMerge(branch), options);
}

Result<MadeVersion> Workspace::CherryPick(const Id& version, const MergeOptions& options) {
  return Finish(*this, PreviewCherryPick(version), options);
}

Result<MadeVersion> Workspace::Revert(const Id& version, const MergeOptions& options) {
  return Finish(*this, PreviewRevert(version), options);
}

Result<std::uint64_t> Workspace::Rebase(
    std::string_view onto, const std::function<Result<Decisions>(const MergePreview&)>& decide,
    const MergeOptions& options) {
  return Try([&]() -> Result<std::uint64_t> {
    const Status status = m_state->NeedNoEdits("rebase");
    if (!status) return status.error();
    const Result<cow_ptr<TalVcs::Commit>> target = m_state->FindBranch(onto);
    if (!target) return target.error();
    return Replay(*m_state, decide).Run(*target, options.progress);
  });
}

}  // namespace TalVcs::Kit
