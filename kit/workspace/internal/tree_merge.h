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

/// Returns true if an entry that both sides changed is a folder that is merged entry by entry,
/// false if it is a conflict.
bool IsMergedBelow(const Slot& base, const Slot& ours, const Slot& theirs) noexcept;

/// Returns the kind of an entry that is a conflict.
ConflictKind KindOfConflict(const Slot& base, const Slot& ours, const Slot& theirs) noexcept;

/// An object to put into our tree at a path; the empty id removes what is there.
struct TreeEdit {
  std::string path;
  Id id;
  cow_ptr<Tree> from = {};  // has the object at that path; null for one that is new
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

/// Merges. No tree may be null. Reads the folders that both sides changed, those of a level by one
/// call of the store, and no file. Fails with `Cancelled`; the items of the reporter are folders.
Result<TreeMerge> MergeTrees(const cow_ptr<Tree>& base, const cow_ptr<Tree>& ours,
                             const cow_ptr<Tree>& theirs, Reporter& reporter);

/// Returns our tree with the edits made, stored in the repository. What comes from another tree
/// isn't read.
cow_ptr<Tree> ApplyEdits(IRepository& repository, const cow_ptr<Tree>& ours,
                         const std::vector<TreeEdit>& edits);

}  // namespace TalVcs::Kit
