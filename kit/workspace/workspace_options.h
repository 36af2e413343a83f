#pragma once

#include <kit/merge/content_merger.h>
#include <kit/text/progress.h>
#include <kit/workspace/version.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace TalVcs::Kit {

/// Options of `Workspace::Open`.
struct WorkspaceOptions {
  /// The current branch. Empty: the one of the last session, else "master", else the first.
  std::string branch = {};
  /// Who makes versions where the operation doesn't say it. Undo then looks for versions of this
  /// author; without one, for anybody's.
  std::string author = {};
  std::string email = {};
  /// The clock. Empty: the system's.
  std::function<std::chrono::sys_seconds()> clock = {};
  /// The author's offset from UTC.
  std::chrono::minutes offset = {};
  /// Merge files that both sides of a merge, an undo or a reload have changed. None: every such
  /// file is a conflict.
  ContentMergers mergers = {};
};

/// Options of the operations that make a version, and of the search for one to undo or redo.
struct CommitOptions {
  /// The author. Empty: the workspace's.
  std::string author = {};
  std::string email = {};
  /// When it was made. None: now.
  std::optional<std::chrono::sys_seconds> time = {};
  /// Marks a version that a program makes on its own account. Undo passes over it.
  bool isMachineMade = false;
  /// The phases of `Save`. Before these, undo and redo have "search" and "merge".
  Progress progress = {};
};

/// Options of `Workspace::Checkpoint`.
struct CheckpointOptions {
  /// As in `CommitOptions`.
  std::string author = {};
  std::string email = {};
  /// A checkpoint of the same gesture replaces the one before it that is not older than this.
  std::chrono::seconds window = std::chrono::seconds(60);
  /// The phases of `Save`.
  Progress progress = {};
};

/// Options of the operations that look at a merge and make no version, and of
/// `Workspace::Reload`.
struct PreviewOptions {
  /// The phase "merge".
  Progress progress = {};
};

/// Options of `Workspace::Merge`.
struct MergeOptions {
  /// The message. Empty: one that names what was merged.
  std::string message = {};
  /// As in `CommitOptions`.
  std::string author = {};
  std::string email = {};
  std::optional<std::chrono::sys_seconds> time = {};
  /// Moves the branch without a new version where the current head is a part of the other history.
  bool allowsFastForward = true;
  /// The phase "merge" and those of `Save`. `Rebase` has "rebase", with "merge" for each version.
  Progress progress = {};
};

/// Options of `Workspace::Log`: which versions to return.
struct LogOptions {
  /// The branch or tag. Empty: the current branch. See `allBranches`.
  std::string branch = {};
  /// Begin with this version and go on with those before it, instead of a branch. Empty: see
  /// `branch`.
  Id from = {};
  /// Versions of all branches and tags. `branch` and `from` don't count then. Each version comes
  /// before its parent unless clocks were wrong by more than `clockError`; of those that may come
  /// next, the latest comes first. Each page reads the versions of the pages before it.
  bool allBranches = false;
  /// The most by which clocks may have been wrong. With `allBranches`, a version comes after all
  /// that follow it unless it is later than one of them by more than this. Cost: of histories that
  /// have not met yet, the versions of this time before the last one of the page are read too.
  /// `std::chrono::seconds::max()` makes the order exact: everything is read back to where the
  /// histories meet.
  std::chrono::seconds clockError = std::chrono::hours(1);
  /// A file or folder that they changed. Empty: everything. If few versions fit, the log walks
  /// through the others too, in the worst case through the whole history. It reads their commits
  /// for the author and the times, and for a path the folders on the way to it where they have
  /// changed. It holds a few thousand versions in memory at a time; with `allBranches`, some 70
  /// bytes more for each version.
  std::string path = {};
  /// The author's name. Empty: anybody.
  std::string author = {};
  /// The earliest and the latest time.
  std::optional<std::chrono::sys_seconds> since = {};
  std::optional<std::chrono::sys_seconds> until = {};
  /// Go on after this version, the last one of the page before.
  Id after = {};
  /// The most versions to return.
  std::uint64_t limit = 100;
  /// The phase "log".
  Progress progress = {};
};

}  // namespace TalVcs::Kit
