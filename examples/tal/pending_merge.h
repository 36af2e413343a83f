#pragma once

#include "author.h"
#include "session.h"

#include <optional>
#include <string>
#include <vector>

namespace Tal {

/// A merge of any kind that has left conflicts in the folder, where the user decides them.
///
/// The store's value "tal-merge" keeps it; docs/formats.md describes it. It is in progress as long
/// as its branch is the current one, with the head that it had when the merge began.
struct PendingMerge {
  Kit::MergeAction action = Kit::MergeAction::Branch;
  TalVcs::Id version;  ///< what is merged, or taken back
  TalVcs::Id head;     ///< of the current branch
  std::string branch;  ///< the current one
  Author author;
  std::string message;                 ///< empty: the one that names what was merged
  std::vector<std::string> conflicts;  ///< the paths to decide
};

/// Returns the command of an action, such as "cherry-pick".
const char* VerbOf(Kit::MergeAction action);

/// Returns the merge that is in progress, or none.
std::optional<PendingMerge> FindPendingMerge(Session& session);

/// Throws `Failure` while a merge is in progress: for commands that move a branch or the folder.
void RefuseDuringMerge(Session& session);

/// Returns the conflicts of the merge whose files still have markers.
std::vector<std::string> FindMarkedFiles(Session& session, const PendingMerge& merge);

/// Brings the folder from `before` to the head of the session, which is the merge with markers in
/// the place of conflicts, and remembers the merge. Nothing else of the session is saved. Throws
/// `Failure`, with folder and store as before.
void BeginPendingMerge(Session& session, const FileTree& before, const PendingMerge& merge);

/// Makes the version of the merge, with the files that the folder has, and saves it. An empty
/// message leaves the one of the merge. Throws `Failure`, with folder and store as before, if files
/// still have markers.
void FinishPendingMerge(Session& session, const PendingMerge& merge, const Author& author,
                        const std::string& message);

/// Puts the files that the merge has changed back to what the head has, and forgets the merge.
/// Returns their number. Throws `Failure`, with folder and store as before.
std::size_t AbortPendingMerge(Session& session, const PendingMerge& merge);

}  // namespace Tal
