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
      WorkspaceError(ErrorCode::HeadMoved,
                     "cannot merge: branch \"" + branch + "\" has moved since the preview", branch);
  const cow_ptr<Commit> head = state.GetRepository().GetHead(ToWide(branch));
  error.heads.push_back({branch, head ? head->GetId() : Id()});
  return error;
}

/// Returns the commit that a preview is about. Fails with `HeadMoved` if a branch isn't where it
/// was.
Result<cow_ptr<Commit>> FindOther(WorkspaceState& state, const MergePreview& preview) {
  const cow_ptr<Commit> head = state.GetHead();
  if (!((head ? head->GetId() : Id()) == preview.head)) return HasMoved(state, state.GetBranch());
  if (preview.action != MergeAction::Branch) return state.FindCommit(preview.version.id);
  Result<cow_ptr<Commit>> other = state.FindBranch(preview.branch);
  if (!other && other.error().code != ErrorCode::NotFound) return other;
  if (!other || !((*other)->GetId() == preview.version.id)) return HasMoved(state, preview.branch);
  return other;
}

Result<MergePreview> PreviewOf(WorkspaceState& state, MergeAction action,
                               Result<cow_ptr<Commit>> other, std::string branch,
                               const PreviewOptions& options) {
  if (!other) return std::move(other).error();
  return Merging(state, action, *std::move(other), std::move(branch)).Preview(options.progress);
}

Result<MadeVersion> Run(WorkspaceState& state, MergeAction action, Result<cow_ptr<Commit>> other,
                        std::string branch, const Decisions& decisions,
                        const MergeOptions& options) {
  const Status status = state.NeedNoEdits("merge");
  if (!status) return status.error();
  if (!other) return std::move(other).error();
  return Merging(state, action, *std::move(other), std::move(branch)).Run(decisions, options);
}

}  // namespace

Result<MergePreview> Workspace::PreviewMerge(std::string_view branch,
                                             const PreviewOptions& options) const {
  return Try([&] {
    return PreviewOf(*m_state, MergeAction::Branch, m_state->FindBranch(branch),
                     std::string(branch), options);
  });
}

Result<MergePreview> Workspace::PreviewCherryPick(const Id& version,
                                                  const PreviewOptions& options) const {
  return Try([&] {
    return PreviewOf(*m_state, MergeAction::CherryPick, m_state->FindCommit(version), {}, options);
  });
}

Result<MergePreview> Workspace::PreviewRevert(const Id& version,
                                              const PreviewOptions& options) const {
  return Try([&] {
    return PreviewOf(*m_state, MergeAction::Revert, m_state->FindCommit(version), {}, options);
  });
}

Result<MadeVersion> Workspace::Merge(const MergePreview& preview, const Decisions& decisions,
                                     const MergeOptions& options) {
  return Try([&]() -> Result<MadeVersion> {
    if (preview.action == MergeAction::Reload) {
      return WorkspaceError(ErrorCode::Unsupported, "a preview of Reload is for Reload",
                            preview.branch);
    }
    return Run(*m_state, preview.action, FindOther(*m_state, preview), preview.branch, decisions,
               options);
  });
}

Result<MadeVersion> Workspace::Merge(std::string_view branch, const MergeOptions& options) {
  return Try([&] {
    return Run(*m_state, MergeAction::Branch, m_state->FindBranch(branch), std::string(branch), {},
               options);
  });
}

Result<MadeVersion> Workspace::CherryPick(const Id& version, const MergeOptions& options) {
  return Try([&] {
    return Run(*m_state, MergeAction::CherryPick, m_state->FindCommit(version), {}, {}, options);
  });
}

Result<MadeVersion> Workspace::Revert(const Id& version, const MergeOptions& options) {
  return Try([&] {
    return Run(*m_state, MergeAction::Revert, m_state->FindCommit(version), {}, {}, options);
  });
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
