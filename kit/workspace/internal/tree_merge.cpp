// What one side alone has changed is decided by the ids, one level of folders after the other; the
// walk goes down where both sides have changed a folder. The outcome is a list of edits of our
// tree, so that what only we changed is never touched.

#include <kit/batch_edit.h>
#include <kit/text.h>
#include <kit/workspace/internal/tree_merge.h>
#include <talvcs/repository/irepository.h>
#include <talvcs/storage/on_demand_storage.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

bool IsNone(const Slot& slot) noexcept { return slot.kind == Slot::Kind::None; }
bool IsFolder(const Slot& slot) noexcept { return slot.kind == Slot::Kind::Folder; }

struct Folder {
  std::string path;
  cow_ptr<Tree> base;
  cow_ptr<Tree> ours;
  cow_ptr<Tree> theirs;
};

/// An entry that both sides changed. The folder outlives it.
struct Entry {
  const Folder& folder;
  WideString name;
};

Id IdAt(const cow_ptr<Tree>& tree, const WideString& name) {
  return tree->GetIdByPath(name).value_or(Id());
}

/// Decides about what one side alone has changed, by the ids, so that no object is read. `root` is
/// the other side.
void TakeUndisputed(const Folder& folder, const cow_ptr<Tree>& root, std::vector<TreeEdit>& edits,
                    std::vector<Entry>& disputed) {
  for (const WideString& name : DifferingNames(folder.ours, folder.theirs)) {
    const Id base = IdAt(folder.base, name);
    const Id ours = IdAt(folder.ours, name);
    const Id theirs = IdAt(folder.theirs, name);
    if (ours == theirs || theirs == base) continue;
    if (ours == base) {
      edits.push_back({JoinedPath(folder.path, name), theirs,
                       theirs.View().IsEmpty() ? cow_ptr<Tree>() : root});
    } else {
      disputed.push_back({folder, name});
    }
  }
}

void ExpectFolders(const std::vector<Entry>& entries) {
  std::vector<OnDemandStorage::Subtree> folders;
  for (const auto& [folder, name] : entries) {
    for (const cow_ptr<Tree>& side : {folder.base, folder.ours, folder.theirs}) {
      folders.push_back({side, name});
    }
  }
  OnDemandStorage::ExpectSubtrees(folders);
}

/// Decides about an entry that both sides changed, or goes on below it.
void Decide(const Entry& entry, TreeMerge& merge, std::vector<Folder>& below) {
  const auto& [folder, name] = entry;
  const Slot base = SlotAt(*folder.base, name);
  const Slot ours = SlotAt(*folder.ours, name);
  const Slot theirs = SlotAt(*folder.theirs, name);
  std::string path = JoinedPath(folder.path, name);
  if (IsMergedBelow(base, ours, theirs)) {
    below.push_back({std::move(path), SubtreeOf(folder.base, name), SubtreeOf(folder.ours, name),
                     SubtreeOf(folder.theirs, name)});
  } else {
    merge.conflicts.push_back(
        {std::move(path), KindOfConflict(base, ours, theirs), base, ours, theirs});
  }
}

}  // namespace

bool IsMergedBelow(const Slot& base, const Slot& ours, const Slot& theirs) noexcept {
  if (IsFolder(ours) && IsFolder(theirs)) return true;
  return IsFolder(base) &&
         ((IsNone(ours) && IsFolder(theirs)) || (IsFolder(ours) && IsNone(theirs)));
}

ConflictKind KindOfConflict(const Slot& base, const Slot& ours, const Slot& theirs) noexcept {
  if (IsNone(ours) || IsNone(theirs)) return ConflictKind::ChangedAndRemoved;
  if (IsFolder(ours) || IsFolder(theirs)) return ConflictKind::FileAgainstFolder;
  return base.kind == Slot::Kind::File ? ConflictKind::BothChanged : ConflictKind::BothAdded;
}

Result<TreeMerge> MergeTrees(const cow_ptr<Tree>& base, const cow_ptr<Tree>& ours,
                             const cow_ptr<Tree>& theirs, Reporter& reporter) {
  TreeMerge merge;
  std::vector<Folder> level{{"", base, ours, theirs}};
  while (!level.empty()) {
    std::vector<Entry> disputed;
    for (const Folder& folder : level) {
      const Status status = reporter.Add(1);
      if (!status) return status.error();
      TakeUndisputed(folder, theirs, merge.edits, disputed);
    }
    ExpectFolders(disputed);
    std::vector<Folder> below;
    for (const Entry& entry : disputed) Decide(entry, merge, below);
    level = std::move(below);
  }
  const auto by_path = [](const auto& a, const auto& b) { return a.path < b.path; };
  std::sort(merge.edits.begin(), merge.edits.end(), by_path);
  std::sort(merge.conflicts.begin(), merge.conflicts.end(), by_path);
  return merge;
}

cow_ptr<Tree> ApplyEdits(IRepository& repository, const cow_ptr<Tree>& ours,
                         const std::vector<TreeEdit>& edits) {
  if (edits.empty()) return ours;
  BatchEdit batch;
  for (const TreeEdit& edit : edits) {
    const WideString path = ToWide(edit.path);
    if (ours->GetIdByPath(path)) batch.RemoveObject(path);
    if (edit.from) {
      batch.CopyObject(path, *edit.from);
    } else if (!edit.id.View().IsEmpty()) {
      batch.AddObject(path, edit.id);
    }
  }
  Tree tree(*ours);
  batch.ApplyTo(&repository, tree);
  return repository.SyncWithStorage(HandleOn(tree));
}

}  // namespace TalVcs::Kit
