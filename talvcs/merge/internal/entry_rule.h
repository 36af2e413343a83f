#pragma once

#include <talvcs/directory/internal/tree_walk.h>

namespace TalVcs {

/// What becomes of one entry in a merge.
enum class EntryDecision {
  KeepRoot,   ///< neither side changed it
  TakeLeft,   ///< the left side alone changed it
  TakeRight,  ///< the right side alone changed it
  TakeSame,   ///< both sides changed it in the same way
  Conflict,   ///< both sides changed it differently
};

/// Decides about the entries under one name, given those of the three sides.
///
/// A merge looks at blobs first and at subtrees in a second stage; `stage` decides which entries
/// count as changed. The rule compares the visible entries, of any kind, so a name that is a blob
/// on one side and a subtree on another is changed in both stages.
EntryDecision DecideEntry(EntryKind stage, const NamedEntries& root, const NamedEntries& left,
                          const NamedEntries& right);

}  // namespace TalVcs
