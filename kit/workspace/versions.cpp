#include <kit/open/try.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/merging.h>
#include <kit/workspace/internal/undo_search.h>
#include <kit/workspace/internal/workspace_state.h>
#include <kit/workspace/workspace.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

using MadeVersion = std::optional<Version>;

NewVersion VersionOnTop(WorkspaceState& state, std::string_view message,
                        const CommitOptions& options) {
  NewVersion version;
  version.parent = state.GetHead();
  version.tree = state.draft.GetTree();
  version.message.message = message;
  version.message.annotations.isMachineMade = options.isMachineMade;
  version.signature = state.SignatureOf(options.author, options.email, options.time);
  return version;
}

MadeVersion Made(Version version) { return MadeVersion(std::move(version)); }

/// Makes an optional result of one that has a value.
Result<MadeVersion> Made(Result<Version> version) {
  if (!version) return std::move(version).error();
  return Made(*std::move(version));
}

/// Returns true if a checkpoint may take the place of the head.
bool ReplacesHead(WorkspaceState& state, const Version& head, const NewVersion& next) {
  const std::optional<LastCheckpoint>& last = state.lastCheckpoint;
  return last && last->id == head.id && !last->gesture.empty() &&
         last->gesture == next.message.annotations.gesture &&
         last->author == next.signature.author && last->email == next.signature.email &&
         head.branches.size() == 1 && head.tags.empty();
}

/// Returns true if `now` isn't before `then`, and not more than `window` later. Any times will do.
bool IsWithin(std::chrono::seconds window, std::chrono::sys_seconds then,
              std::chrono::sys_seconds now) {
  if (now < then || window < std::chrono::seconds(0)) return false;
  const auto age = static_cast<std::uint64_t>(now.time_since_epoch().count()) -
                   static_cast<std::uint64_t>(then.time_since_epoch().count());
  return age <= static_cast<std::uint64_t>(window.count());
}

/// Takes the head off the branch, for a gesture that has come back to the files it began with.
Result<MadeVersion> TakeOff(WorkspaceState& state, const cow_ptr<Commit>& before,
                            const Progress& progress) {
  const Status status = state.MoveBranches({{state.GetBranch(), before}}, RootOf(before), progress);
  if (!status) return status.error();
  return MadeVersion();
}

MergeOptions MergeOptionsOf(const CommitOptions& options) {
  MergeOptions merge;
  merge.author = options.author;
  merge.email = options.email;
  merge.time = options.time;
  merge.progress = options.progress;
  return merge;
}

Result<MadeVersion> VersionFound(WorkspaceState& state, const Result<cow_ptr<Commit>>& found) {
  if (!found) return found.error();
  return *found ? Made(state.VersionOf(*found)) : MadeVersion();
}

Result<std::optional<MergePreview>> PreviewOf(WorkspaceState& state, MergeAction action,
                                              const Result<cow_ptr<Commit>>& found,
                                              const CommitOptions& options) {
  if (!found) return found.error();
  if (!*found) return std::optional<MergePreview>();
  Result<MergePreview> preview = Merging(state, action, *found).Preview(options.progress);
  if (!preview) return std::move(preview).error();
  return std::optional(*std::move(preview));
}

/// Makes the version of an undo or a redo.
Result<MadeVersion> TakeBack(WorkspaceState& state, MergeAction action,
                             const Result<cow_ptr<Commit>>& found, const CommitOptions& options) {
  if (!found) return found.error();
  if (!*found) return MadeVersion();
  const Status status = state.NeedNoEdits(action == MergeAction::Undo ? "undo" : "redo");
  if (!status) return status.error();
  return Merging(state, action, *found).Run({}, MergeOptionsOf(options));
}

}  // namespace

Result<MadeVersion> Workspace::Commit(std::string_view message, const CommitOptions& options) {
  return Try([&]() -> Result<MadeVersion> {
    if (!m_state->HasPendingEdits()) return MadeVersion();
    return Made(m_state->PutOnBranch(VersionOnTop(*m_state, message, options), options.progress));
  });
}

Result<MadeVersion> Workspace::Checkpoint(std::string_view label, std::string_view gesture,
                                          std::chrono::sys_seconds now,
                                          const CheckpointOptions& options) {
  return Try([&]() -> Result<MadeVersion> {
    const Result<WideString> checked = CheckedText(gesture, "gesture");
    if (!checked) return checked.error();
    if (!m_state->HasPendingEdits()) return MadeVersion();
    CommitOptions commit;
    commit.author = options.author;
    commit.email = options.email;
    commit.time = now;
    NewVersion version = VersionOnTop(*m_state, label, commit);
    version.message.annotations.isCheckpoint = true;
    version.message.annotations.gesture = gesture;
    if (version.parent && m_state->lastCheckpoint) {
      if (IsWithin(options.window, m_state->lastCheckpoint->time, now) &&
          ReplacesHead(*m_state, m_state->VersionOf(version.parent), version)) {
        const cow_ptr<TalVcs::Commit> before = version.parent->GetParent();
        const bool is_back = version.tree->GetId() == RootOf(before)->GetId();
        if (is_back && before) return TakeOff(*m_state, before, options.progress);
        if (!is_back) version.parent = before;
      }
    }
    const LastCheckpoint checkpoint{
        {}, std::string(gesture), version.signature.author, version.signature.email, now};
    Result<Version> made = m_state->PutOnBranch(version, options.progress);
    if (!made) return std::move(made).error();
    m_state->lastCheckpoint = checkpoint;
    m_state->lastCheckpoint->id = made->id;
    return Made(*std::move(made));
  });
}

Result<MadeVersion> Workspace::FindUndo(const CommitOptions& options) const {
  return Try([&] { return VersionFound(*m_state, FindVersionToUndo(*m_state, options)); });
}

Result<MadeVersion> Workspace::FindRedo(const CommitOptions& options) const {
  return Try([&] { return VersionFound(*m_state, FindVersionToRedo(*m_state, options)); });
}

Result<std::optional<MergePreview>> Workspace::PreviewUndo(const CommitOptions& options) const {
  return Try([&] {
    return PreviewOf(*m_state, MergeAction::Undo, FindVersionToUndo(*m_state, options), options);
  });
}

Result<std::optional<MergePreview>> Workspace::PreviewRedo(const CommitOptions& options) const {
  return Try([&] {
    return PreviewOf(*m_state, MergeAction::Redo, FindVersionToRedo(*m_state, options), options);
  });
}

Result<MadeVersion> Workspace::Undo(const CommitOptions& options) {
  return Try([&] {
    return TakeBack(*m_state, MergeAction::Undo, FindVersionToUndo(*m_state, options), options);
  });
}

Result<MadeVersion> Workspace::Redo(const CommitOptions& options) {
  return Try([&] {
    return TakeBack(*m_state, MergeAction::Redo, FindVersionToRedo(*m_state, options), options);
  });
}

Result<Snapshot> Workspace::At(const Id& version) const {
  return Try([&]() -> Result<Snapshot> {
    const Result<cow_ptr<TalVcs::Commit>> commit = m_state->FindCommit(version);
    if (!commit) return commit.error();
    return Snapshot(RootOf(*commit), m_state->VersionOf(*commit));
  });
}

Result<MadeVersion> Workspace::Restore(const Id& version, const CommitOptions& options) {
  return Try([&]() -> Result<MadeVersion> {
    const Status status = m_state->NeedNoEdits("restore a version");
    if (!status) return status.error();
    const Result<cow_ptr<TalVcs::Commit>> commit = m_state->FindCommit(version);
    if (!commit) return commit.error();
    const cow_ptr<Tree> files = RootOf(*commit);
    if (files->GetId() == m_state->base->GetId()) return MadeVersion();
    const std::string message = "Restore \"" + DescribeCommit(**commit).summary + "\"";
    NewVersion next = VersionOnTop(*m_state, message, options);
    next.tree = files;
    return Made(m_state->PutOnBranch(next, options.progress));
  });
}

}  // namespace TalVcs::Kit
