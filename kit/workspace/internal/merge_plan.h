#pragma once

#include <kit/merge/content_merger.h>
#include <kit/text/result.h>
#include <kit/workspace/internal/tree_merge.h>
#include <kit/workspace/merge_preview.h>
#include <talvcs/objects/tree.h>

#include <unordered_set>
#include <vector>

namespace TalVcs {
class IRepository;
}  // namespace TalVcs

namespace TalVcs::Kit {

/// The three trees of a merge.
struct MergeSides {
  cow_ptr<Tree> base;
  cow_ptr<Tree> ours;
  cow_ptr<Tree> theirs;
  /// Files of the base about which it knows nothing. They differ from every other file.
  std::unordered_set<Id> unknown = {};
};

/// A merge of three trees: what needs no decision, and the conflicts with their contents.
class MergePlan {
 public:
  /// Merges, and puts files that both sides changed to the mergers. The repository, which must
  /// outlive the plan, stores what is made. Fails with `Cancelled`; the items of the reporter are
  /// folders and files that both sides changed.
  static Result<MergePlan> Make(IRepository& repository, MergeSides sides,
                                const ContentMergers& mergers, Reporter& reporter);

  const std::vector<Conflict>& GetConflicts() const noexcept { return m_conflicts; }
  /// Returns our tree with everything that needs no decision.
  cow_ptr<Tree> WithoutConflicts() const;
  /// Returns the merged tree. Fails with `Undecided` if a conflict has no decision, and with
  /// `NotFound` for a decision about a path that is no conflict.
  Result<cow_ptr<Tree>> Decide(const Decisions& decisions) const;

 private:
  MergePlan(IRepository& repository, MergeSides sides, TreeMerge merge);
  Status FindConflicts(const ContentMergers& mergers, Reporter& reporter);
  bool MergeContents(Conflict& conflict, const ContentMergers& mergers);
  ConflictSide SideOf(const cow_ptr<Tree>& tree, const Slot& slot, const std::string& path) const;
  TreeEdit Chosen(const TreeConflict& conflict, const Decision& decision) const;

  IRepository* m_repository;
  MergeSides m_sides;
  TreeMerge m_merge;
  std::vector<Conflict> m_conflicts;  // in the order of those of m_merge
};

/// Returns the files that a merge changes, without a look at their contents.
std::vector<TreeChange> FilesChanged(const cow_ptr<Tree>& before, const cow_ptr<Tree>& after);

/// Returns what two histories began with, given their merge bases: the only one, or, where several
/// are equally new, what their own merge comes to. Where these disagree, it has an unknown file.
/// Fails with `Cancelled`.
Result<MergeSides> SidesOf(IRepository& repository, const std::vector<cow_ptr<Commit>>& bases,
                           const cow_ptr<Tree>& ours, const cow_ptr<Tree>& theirs,
                           Reporter& reporter);

}  // namespace TalVcs::Kit
