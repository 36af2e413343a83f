#pragma once

#include <kit/export.h>
#include <kit/open/report.h>
#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// Options of `Copy`.
struct CopyOptions {
  /// The branches to copy; none means all. A name that the source lacks is an error.
  std::vector<std::string> branches = {};
  /// What to do with branches that aren't whole in the source. `Stop` moves no head;
  /// `OpenWhole` copies the branches that are whole. `Salvage` does the same as `OpenWhole`: a head
  /// is never moved to a history with holes.
  DamagePolicy policy = DamagePolicy::Stop;
  /// Moves branches of the target also where this drops commits from them. Otherwise a branch that
  /// has commits that the source's branch lacks is a conflict.
  bool replaceHeads = false;
  /// Reads every object that was written back from the target, before any head moves, and compares
  /// it with its id. What the target had before isn't read.
  bool readBack = false;
  /// Phases: "history" and "contents" for each branch, and "read back" if that is asked for. No
  /// head has moved when the last one ends.
  Progress progress = {};
};

/// What `Copy` did.
struct CopyReport {
  /// What was found in the parts of the source that the target lacked.
  HistoryReport source;
  /// The branches that the target has at the source's heads now.
  std::vector<Head> heads;
  std::uint64_t writtenObjects = 0;
  std::uint64_t writtenBytes = 0;
};

/// Copies branches with everything that they reach from one store to another.
///
/// Only what the target lacks is read, checked and written: each object before what names it,
/// histories from their oldest commit on, and the heads last, all in one step. Where the target has
/// a commit or a folder, it has everything below, and this isn't looked at. A copy between stores
/// that share most of a history costs the difference.
///
/// Each object that is read from the source is compared with its id before it is written. Objects
/// that the target has already are taken as they are; `Verify` finds damage there, `Repair` mends
/// it.
///
/// A second copy after a cancelled or failed one goes on where that stopped: files and folders that
/// were written aren't read again. After a cancellation everything that was read is in the target.
/// If the process ends, the next copy finds what the target keeps of writes that no head names: all
/// but the last megabytes in a folder or a SQLite file, nothing in a zip archive.
///
///     Copy(memory, directory).value();
///
/// Branches of the target that the source lacks stay. `from` and `to` must be two objects, and may
/// be of any two kinds of stores.
///
/// Fails with `Conflict` and the target's actual heads if a branch of the target was moved
/// meanwhile or would lose commits; with `Damaged` or `Unavailable` if the source can't be read, if
/// what was written doesn't come back, and as either store fails. No head has moved then; objects
/// that were written stay until a `CleanUp`, and the next copy doesn't read them again.
///
/// Cost: what is missing, and a look-up in the target for each entry of a missing folder.
TALVCS_KIT_API Result<CopyReport> Copy(IObjectStore& from, IObjectStore& to,
                                       const CopyOptions& options = {});

}  // namespace TalVcs::Kit
