#pragma once

#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>
#include <kit/workspace/merge_preview.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// Options of `Remote::Fetch`.
struct FetchOptions {
  /// The branches of the remote to fetch; none means all. A name that the remote lacks is skipped.
  std::vector<std::string> branches = {};
  /// Removes the local copies of those of these branches that the remote no longer has.
  bool removesGone = false;
  /// Phases: "history" and "contents". No head has moved when the last one ends.
  Progress progress = {};
};

/// What `Remote::Fetch` did.
struct FetchReport {
  /// The heads of the remote's branches, without those that were not asked for.
  std::vector<Head> heads;
  /// The moves of the local branches that keep these heads, such as "remote/master".
  std::vector<HeadMove> moves;
  std::uint64_t newCommits = 0;
  std::uint64_t writtenObjects = 0;
  std::uint64_t writtenBytes = 0;
};

/// Options of `Remote::Push` and `Workspace::Push`.
struct PushOptions {
  /// Phases: "history" and "contents". No head has moved when the last one ends.
  Progress progress = {};
};

/// What a push did.
struct PushReport {
  /// The head of the remote's branch.
  Id head;
  /// The moves of the local branch that keeps it; none if it was there.
  std::vector<HeadMove> moves;
  std::uint64_t newCommits = 0;
  std::uint64_t writtenObjects = 0;
  std::uint64_t writtenBytes = 0;
};

/// Options of `Workspace::Pull` and `Workspace::Sync`.
struct SyncOptions {
  /// Decides about the conflicts of one local version. Without it, and for what it leaves out, the
  /// report has the conflicts.
  std::function<Result<Decisions>(const MergePreview&)> decide = {};
  /// How many races `Sync` loses before it fails with `Conflict`, or with `Busy` if others kept the
  /// remote locked.
  std::uint64_t mostLosses = 100;
  /// Waits between two attempts; empty means that the thread sleeps.
  std::function<void(std::chrono::milliseconds)> sleep = {};
  /// Phases, once for each attempt: "history" and "contents" of the fetch, "rebase", those of
  /// `Save`, "history" and "contents" of the push, and "wait" after a lost race.
  Progress progress = {};
};

/// What `Workspace::Pull` or `Workspace::Sync` did.
struct SyncReport {
  /// The head of the remote's branch that the current branch is on top of; empty if the remote has
  /// no such branch.
  Id remoteHead;
  /// The version whose conflicts need decisions, with all of them. The current branch and the
  /// remote were not moved since it was found. None: all is done.
  std::optional<MergePreview> undecided;
  std::uint64_t replayedVersions = 0;  ///< Local versions that were made again, with new ids.
  std::uint64_t fetchedObjects = 0;    ///< Objects that came from the remote.
  std::uint64_t pushedObjects = 0;     ///< Objects that went to the remote.
  std::uint64_t lostRaces = 0;         ///< How often somebody else moved the remote's branch first.
};

}  // namespace TalVcs::Kit
