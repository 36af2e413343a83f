#include <talvcs/merge/internal/entry_rule.h>

namespace TalVcs {

EntryDecision DecideEntry(EntryKind stage, const NamedEntries& root, const NamedEntries& left,
                          const NamedEntries& right) {
  const bool left_changed = EntriesDiffer(stage, root, left);
  const bool right_changed = EntriesDiffer(stage, root, right);
  if (left_changed && right_changed) {
    return SameObject(left.Local(), right.Local()) ? EntryDecision::kTakeSame
                                                               : EntryDecision::kConflict;
  }
  if (left_changed) return EntryDecision::kTakeLeft;
  return right_changed ? EntryDecision::kTakeRight : EntryDecision::kKeepRoot;
}

}  // namespace TalVcs
