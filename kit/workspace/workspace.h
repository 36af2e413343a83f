#pragma once

#include <kit/diff/blame.h>
#include <kit/diff/tree_changes.h>
#include <kit/export.h>
#include <kit/sharing/sharing_options.h>
#include <kit/store/head_watcher.h>
#include <kit/store/object_store.h>
#include <kit/text/bytes.h>
#include <kit/text/result.h>
#include <kit/workspace/merge_preview.h>
#include <kit/workspace/retention.h>
#include <kit/workspace/snapshot.h>
#include <kit/workspace/usage.h>
#include <kit/workspace/version.h>
#include <kit/workspace/workspace_options.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

class Remote;
struct WorkspaceState;

/// A document with its history, for one host: files that are edited, versions that are saved.
///
///     auto workspace = Workspace::Open(DirectoryObjectStore::Open("drawing")).value();
///     workspace.Write("pages/1/shape-7", bytes).value();
///     workspace.Commit("Move the house", {.author = "Ada"}).value();
///
/// Edits are pending until `Commit` makes a version of them. Reading shows pending edits. Every
/// operation that makes a version or moves a branch saves it durably before it returns.
///
/// *Paths* are UTF-8: one or more names with "/" between them. A name is any text that isn't empty
/// and has neither "/" nor U+0000 in it; everything else is refused with `BadName`, or `BadText` if
/// it isn't UTF-8. Folders exist as long as there are files in them. The names of branches and tags
/// and all other texts are UTF-8 without U+0000. Four more things are refused, because no version
/// can hold them: an author's name with " <" in it, a name or address with a line that begins with
/// "committer ", a time of more than 32 bits of seconds, and an offset between 0 and -1 hour.
///
/// *Failures.* A failed or cancelled operation leaves the workspace and the store as they were. If
/// somebody else has moved a branch, operations that move it fail with `HeadMoved`: edits stay
/// pending, and `Reload` brings both together. `Undecided` means that there are conflicts, or
/// pending edits where the operation needs none: commit or discard them first. `Damaged` and
/// `Unavailable` come from objects that can't be read.
///
/// Threads: a workspace and its store belong to one thread at a time.
class TALVCS_KIT_API Workspace {
 public:
  /// Opens the document in a store, which must not be null. An empty store is an empty document.
  /// Fails with `NotFound` if the document lacks the branch of the options, with `BadName` if that
  /// is a tag, and as the store does. Reads the list of branches and the head, whatever the size.
  static Result<Workspace> Open(std::shared_ptr<IObjectStore> store,
                                const WorkspaceOptions& options = {});
  /// Opens the document in a store that was just opened; its error is passed on.
  template <class Store>
  static Result<Workspace> Open(Result<Store> store, const WorkspaceOptions& options = {}) {
    if (!store) return std::move(store).error();
    return Open(std::make_shared<Store>(*std::move(store)), options);
  }

  /// A workspace that was moved from can only be assigned to and destroyed.
  Workspace(Workspace&& other) noexcept;
  Workspace& operator=(Workspace&& other) noexcept;
  ~Workspace();

  /// Return what `Snapshot` returns, with the pending edits.
  Result<Bytes> Read(std::string_view path) const;
  Result<bool> Contains(std::string_view path) const;
  Result<std::vector<FolderEntry>> List(std::string_view folder = {}) const;
  Result<std::vector<std::string>> ListFiles(std::string_view folder = {}) const;

  /// Puts a file at the path, in place of the one that is there. Makes missing folders. Fails with
  /// `BadName` if the path is a folder or leads through a file.
  Status Write(std::string_view path, std::span<const std::byte> bytes);
  Status Write(std::string_view path, std::string_view text);
  Status Write(std::string_view path, const Bytes& bytes);
  /// Removes a file or a folder. Fails with `NotFound` if there is neither.
  Status Remove(std::string_view path);
  /// Moves a file or a folder to a path where there is nothing. Fails with `NotFound`, or with
  /// `BadName` if there is something or the new path leads through a file or into the folder.
  Status Rename(std::string_view from, std::string_view to);
  /// Puts a file or folder of a version at a path, in place of what is there. Fails likewise.
  Status CopyFrom(const Snapshot& version, std::string_view from, std::string_view to);

  /// Returns the pending edits, as changes since the head.
  Result<std::vector<TreeChange>> GetChanges(const TreeChangesOptions& options = {}) const;
  /// Discards all pending edits.
  void Discard();
  /// Makes a file or folder what it is in the head. Fails as `CopyFrom` does.
  Status Discard(std::string_view path);

  /// Makes a version of the pending edits and saves it. Returns it, or none if nothing differs from
  /// the head. Fails with `HeadMoved` if somebody else has moved the branch; the edits stay
  /// pending.
  Result<std::optional<Version>> Commit(std::string_view message,
                                        const CommitOptions& options = {});
  /// Makes a version like `Commit`, as an automatic save. Checkpoints of this workspace with the
  /// same author and gesture (not empty, such as the id of a drag), each within a window of time
  /// after the one before, are one version. If the files are again as they were before the gesture,
  /// that version is removed, and none is returned; unless it is the branch's first version, which
  /// stays, so that the empty document is a version after it.
  Result<std::optional<Version>> Checkpoint(std::string_view label, std::string_view gesture,
                                            std::chrono::sys_seconds now,
                                            const CheckpointOptions& options = {});

  /// Take back the author's latest version that isn't undone, and the latest undo with no version
  /// of the author since. Each makes a new version on top, so that both survive closing. What
  /// others have changed since stays: if it touches the same files, they fail with `Undecided`, and
  /// `PreviewUndo` and `PreviewRedo` show the conflicts. Versions that a program made are passed
  /// over. Return none if there is nothing to undo or redo.
  Result<std::optional<Version>> Undo(const CommitOptions& options = {});
  Result<std::optional<Version>> Redo(const CommitOptions& options = {});
  /// Return the version that `Undo` would take back, or the undo that `Redo` would.
  Result<std::optional<Version>> FindUndo(const CommitOptions& options = {}) const;
  Result<std::optional<Version>> FindRedo(const CommitOptions& options = {}) const;

  /// Returns the current branch.
  std::string GetBranch() const;
  /// Returns the head of the current branch, or none.
  Result<std::optional<Version>> GetHead() const;
  /// Return all branches, and all tags, with the versions that they name, sorted by name. A tag is
  /// a branch of the store whose name begins with "tags/"; here it has its name without that.
  std::vector<Head> GetBranches() const;
  std::vector<Head> GetTags() const;
  /// Creates a branch or tag at a version, or at the head. Fails with `Conflict` if there is one of
  /// that name, with `NotFound` without the version, with `BadName` for an empty name and a branch
  /// whose name begins with "tags/". A tag keeps its version through clean-ups and retention.
  Status CreateBranch(std::string_view name, const Id& version = {});
  Status CreateTag(std::string_view name, const Id& version = {});
  /// Makes a branch the current one, and that of the next session. Needs no pending edits. Fails
  /// with `NotFound` if there is no such branch. Where the store doesn't take the name of the
  /// branch, as one that is only read, this session alone has it, until a later save keeps it.
  Status Switch(std::string_view branch);
  /// Remove a branch, or a tag. Fail with `NotFound` if there is none, and with `Denied` for the
  /// current branch. A clean-up then removes versions that nothing else reaches.
  Status RemoveBranch(std::string_view name);
  Status RemoveTag(std::string_view name);

  /// Finds a version by branch, tag or id. Fails with `NotFound` if there is none.
  Result<Version> Find(std::string_view name) const;
  /// Returns the files of a version, to be read without moving there. Fails with `NotFound` if
  /// there is no such version.
  Result<Snapshot> At(const Id& version) const;
  /// Makes a version on top whose files are those of an older one. Needs no pending edits. Returns
  /// none if they are the same already.
  Result<std::optional<Version>> Restore(const Id& version, const CommitOptions& options = {});
  /// Returns versions, newest first. Reads no more of the history than the page needs. A version
  /// belongs to the history of a path if the path differs from the version before it.
  Result<std::vector<Version>> Log(const LogOptions& options = {}) const;

  /// Finds the version that added each line of a file of the head. Reads the versions that changed
  /// the file until each line has its origin. Fails with `NotFound` if the head lacks the file.
  Result<Kit::Blame> BlameFile(std::string_view path, const BlameOptions& options = {}) const;

  /// Return what a merge would do, with all conflicts. Nothing changes. A branch is merged since
  /// the newest common version, or the newest head that was merged before: conflicts that were
  /// decided don't come up again, and what was taken back since then stays taken back. Undo and
  /// redo return none if there is nothing to do. A pick of what is there already, and a revert of
  /// what isn't there, is up to date.
  Result<MergePreview> PreviewMerge(std::string_view branch,
                                    const PreviewOptions& options = {}) const;
  Result<MergePreview> PreviewCherryPick(const Id& version,
                                         const PreviewOptions& options = {}) const;
  Result<MergePreview> PreviewRevert(const Id& version, const PreviewOptions& options = {}) const;
  Result<std::optional<MergePreview>> PreviewUndo(const CommitOptions& options = {}) const;
  Result<std::optional<MergePreview>> PreviewRedo(const CommitOptions& options = {}) const;
  /// Makes the version of a preview, with a decision for each of its conflicts. Needs no pending
  /// edits. Returns none if it is up to date. Fails with `HeadMoved` if somebody moved the current
  /// branch, or this workspace has seen the other one move, and `Undecided` without a decision.
  Result<std::optional<Version>> Merge(const MergePreview& preview, const Decisions& decisions = {},
                                       const MergeOptions& options = {});
  /// Merge at once. Fail with `Undecided` if there are conflicts.
  Result<std::optional<Version>> Merge(std::string_view branch, const MergeOptions& options = {});
  Result<std::optional<Version>> CherryPick(const Id& version, const MergeOptions& options = {});
  Result<std::optional<Version>> Revert(const Id& version, const MergeOptions& options = {});
  /// Replays the versions of the current branch since it left another one on top of that one, each
  /// with its message, author and time. `decide` is called for a version that has conflicts;
  /// without it, they fail with `Undecided`. The branch moves once, at the end. Needs no pending
  /// edits. Returns the number of versions.
  Result<std::uint64_t> Rebase(
      std::string_view onto,
      const std::function<Result<Decisions>(const MergePreview&)>& decide = {},
      const MergeOptions& options = {});

  /// Return what a rule would forget, and forget it: versions of all branches that it doesn't keep
  /// leave the history, and their objects leave the store. A version after one that was forgotten
  /// follows the next older one that is kept, with a new id; all else stays. The oldest version
  /// that is left of a history can't be undone. Pending edits stay. Fails with `HeadMoved` if
  /// somebody else has moved a branch. If another session still reads the store, the last step
  /// fails with `Busy`: the versions are forgotten, and the next `CleanUp` frees their space.
  Result<RetentionReport> PreviewForget(const Retention& rule,
                                        const ForgetOptions& options = {}) const;
  Result<RetentionReport> Forget(const Retention& rule, const ForgetOptions& options = {});

  /// Return what branches, versions, and the entries of a folder take in the store: the bytes of
  /// packed forms, each object once, alone and shared with others. Tags are branches here, with
  /// their names in the store. All versions that a branch or a tag reaches count. Versions are
  /// sorted by time, the newest first. Paths are those that any version has. Reads every folder of
  /// the history, at least once, and no file. Fail with `Damaged` or `Unavailable` if one can't be
  /// read, except that `MeasureBranches` leaves it out.
  Result<std::vector<BranchStatistics>> MeasureBranches(const MeasureOptions& options = {}) const;
  Result<std::vector<VersionUsage>> MeasureVersions(const MeasureOptions& options = {}) const;
  Result<std::vector<PathUsage>> MeasurePaths(std::string_view folder = {},
                                              const MeasureOptions& options = {}) const;
  /// Returns how many files all versions have and how many bytes, as if nothing were shared, and as
  /// they are stored. Reads every folder of the history once, and no file. Fails likewise.
  Result<ContentUsage> MeasureContents(const MeasureOptions& options = {}) const;

  /// Returns true if somebody else has moved a branch since this workspace was opened or reloaded.
  /// Calls the observer for each branch that has moved since the last call. A host may call it
  /// every second: it reads the list of branches and nothing else.
  Result<bool> IsBehind() const;
  /// Return what `Reload` would do with the pending edits, and take over what others saved. Pending
  /// edits are *ours*, the branch's new head is *theirs*. If the branch is gone, all files are
  /// pending. Decisions belong to the last preview: if the branch has moved again since, `Reload`
  /// fails with `HeadMoved`, because they would take back what they don't know of. Preview again.
  Result<MergePreview> PreviewReload(const PreviewOptions& options = {}) const;
  Status Reload(const Decisions& decisions = {}, const PreviewOptions& options = {});

  /// Fetches the remote's branch of the same name and puts the current branch on top of it: moves
  /// the current branch there, or replays on top the versions that the remote lacks, each with its
  /// message, author and time. One whose changes are there already is left out. The branch moves
  /// once, at the end. Needs no pending edits. Does nothing else if the remote has no such branch.
  ///
  /// Conflicts without a decision don't fail: the report has them, and the branch stays. A second
  /// call whose `decide` has the decisions goes on.
  Result<SyncReport> Pull(Remote& remote, const SyncOptions& options = {});
  /// Does what `Remote::Push` does with the current branch. Pending edits stay as they are.
  Result<PushReport> Push(Remote& remote, const PushOptions& options = {});
  /// Pulls and pushes until the remote's branch is where the current one is.
  ///
  /// If somebody else moves the remote's branch first, it pulls again after a short random time,
  /// and from the fifth time on takes turns with others who lost. The current branch may be on top
  /// of a former head of the remote after a failure; nothing is lost or duplicated, and the next
  /// call goes on.
  Result<SyncReport> Sync(Remote& remote, const SyncOptions& options = {});
  /// Waits until somebody else moves a branch of the workspace's own store, as `IsBehind` sees it.
  /// Returns false after the timeout. `Remote::Watch` waits for a remote.
  Result<bool> Watch(const HeadWaitOptions& options = {}) const;

  /// A branch or tag that has moved. Ids are empty where there was none and where it was removed.
  struct Move {
    std::string name;       ///< The name of the branch in the store.
    Id before;              ///< Where it was.
    Id after;               ///< Where it is.
    bool isBySomebodyElse;  ///< True if `IsBehind` or `Reload` found it, and for what a remote has.
  };
  /// Sets the function that is called after each move of a branch: one of this workspace after the
  /// operation has succeeded, one of somebody else when `IsBehind` or `Reload` finds it. It is
  /// called on the caller's thread, and must not call the workspace. Empty: none.
  void Observe(std::function<void(const Move&)> observer);

  /// Frees objects that were read or saved and aren't in use. A workspace does it by itself after
  /// each hundred saves.
  void Trim();

 private:
  TALVCS_KIT_NO_EXPORT explicit Workspace(std::unique_ptr<WorkspaceState> state) noexcept;

  std::unique_ptr<WorkspaceState> m_state;
};

}  // namespace TalVcs::Kit
