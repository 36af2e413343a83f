#include <talvcs/merge/internal/entry_rule.h>

namespace TalVcs {

EntryDecision DecideEntry(EntryKind stage, const NamedEntries& root, const NamedEntries& left,
                          const NamedEntries& right) {
  const bool left_changed = EntriesDiffer(stage, root, left);
  const bool right_changed = EntriesDiffer(stage, root, right);
  if (left_changed && right_changed) {
    return SameObject(left.Local(), right.Local()) ? EntryDecision::TakeSame
                                                   : EntryDecision::Conflict;
  }
  if (left_changed) return EntryDecision::TakeLeft;
  return right_changed ? EntryDecision::TakeRight : EntryDecision::KeepRoot;
}

}  // namespace TalVcs
