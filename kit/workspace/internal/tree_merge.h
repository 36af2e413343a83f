#pragma once

#include <kit/open/internal/reporter.h>
#include <kit/workspace/internal/slots.h>
#include <kit/workspace/merge_preview.h>

#include <optional>
#include <string>
#include <vector>

namespace TalVcs {
class IRepository;
}  // namespace TalVcs

namespace TalVcs::Kit {

/// What to do with one entry of three trees.
enum class EntryVerdict {
  KeepOurs,    ///< Keep what ours has.
  TakeTheirs,  ///< Put what theirs has in its place.
  Descend,     ///< Both sides have changed what is in the folder.
  Conflict,    ///< The two sides can't be joined.
};

/// Decides about one entry.
EntryVerdict DecideEntry(const Slot& base, const Slot& ours, const Slot& theirs) noexcept;

/// Returns the kind of an entry that is a conflict.
ConflictKind KindOfConflict(const Slot& base, const Slot& ours, const Slot& theirs) noexcept;

/// An entry to put into our tree; none removes what is there.
struct TreeEdit {
  std::string path;
  Slot slot;
};

/// An entry about which the merge can't decide.
struct TreeConflict {
  std::string path;
  ConflictKind kind;
  Slot base;
  Slot ours;
  Slot theirs;
};

/// What a merge of three trees comes to: edits of our tree, sorted by path, and what is undecided.
struct TreeMerge {
  std::vector<TreeEdit> edits;
  std::vector<TreeConflict> conflicts;
};

/// Merges. No tree may be null. Reads the folders that differ between ours and theirs, no file.
/// Fails with `Cancelled`; the items of the reporter are folders.
Result<TreeMerge> MergeTrees(const cow_ptr<Tree>& base, const cow_ptr<Tree>& ours,
                             const cow_ptr<Tree>& theirs, Reporter& reporter);

/// Returns our tree with the edits made, stored in the repository.
cow_ptr<Tree> ApplyEdits(IRepository& repository, const cow_ptr<Tree>& ours,
                         const std::vector<TreeEdit>& edits);

}  // namespace TalVcs::Kit
