// One rule decides about one entry; the walk goes down where both sides have changed a folder. The
// outcome is a list of edits of our tree, so that what only we changed is never touched.

#include <kit/batch_edit.h>
#include <kit/text.h>
#include <kit/workspace/internal/tree_merge.h>
#include <talvcs/repository/irepository.h>

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

}  // namespace

EntryVerdict DecideEntry(const Slot& base, const Slot& ours, const Slot& theirs) noexcept {
  if (ours == theirs || theirs == base) return EntryVerdict::KeepOurs;
  if (ours == base) return EntryVerdict::TakeTheirs;
  if (IsFolder(ours) && IsFolder(theirs)) return EntryVerdict::Descend;
  const bool is_removed_folder =
      IsFolder(base) && ((IsNone(ours) && IsFolder(theirs)) || (IsFolder(ours) && IsNone(theirs)));
  return is_removed_folder ? EntryVerdict::Descend : EntryVerdict::Conflict;
}

ConflictKind KindOfConflict(const Slot& base, const Slot& ours, const Slot& theirs) noexcept {
  if (IsNone(ours) || IsNone(theirs)) return ConflictKind::ChangedAndRemoved;
  if (IsFolder(ours) || IsFolder(theirs)) return ConflictKind::FileAgainstFolder;
  return base.kind == Slot::Kind::File ? ConflictKind::BothChanged : ConflictKind::BothAdded;
}

Result<TreeMerge> MergeTrees(const cow_ptr<Tree>& base, const cow_ptr<Tree>& ours,
                             const cow_ptr<Tree>& theirs, Reporter& reporter) {
  TreeMerge merge;
  std::vector<Folder> pending{{"", base, ours, theirs}};
  while (!pending.empty()) {
    const Status status = reporter.Add(1);
    if (!status) return status.error();
    const Folder folder = std::move(pending.back());
    pending.pop_back();
    for (const WideString& name : DifferingNames(folder.ours, folder.theirs)) {
      const Slot base_slot = SlotAt(*folder.base, name);
      const Slot our_slot = SlotAt(*folder.ours, name);
      const Slot their_slot = SlotAt(*folder.theirs, name);
      std::string path = JoinedPath(folder.path, name);
      switch (DecideEntry(base_slot, our_slot, their_slot)) {
        case EntryVerdict::KeepOurs:
          break;
        case EntryVerdict::TakeTheirs:
          merge.edits.push_back({std::move(path), their_slot});
          break;
        case EntryVerdict::Descend:
          pending.push_back({std::move(path), SubtreeOf(folder.base, name),
                             SubtreeOf(folder.ours, name), SubtreeOf(folder.theirs, name)});
          break;
        case EntryVerdict::Conflict:
          merge.conflicts.push_back({std::move(path),
                                     KindOfConflict(base_slot, our_slot, their_slot), base_slot,
                                     our_slot, their_slot});
          break;
      }
    }
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
    if (!IsNone(edit.slot)) batch.AddObject(path, edit.slot.id);
  }
  Tree tree(*ours);
  batch.ApplyTo(&repository, tree);
  return repository.SyncWithStorage(HandleOn(tree));
}

}  // namespace TalVcs::Kit
