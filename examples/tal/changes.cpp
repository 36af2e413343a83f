#include "changes.h"

#include <kit/diff/tree_changes.h>

#include <algorithm>
#include <set>

namespace Tal {
namespace {

using Kind = Change::Kind;
using TalVcs::Kit::TreeChangeKind;

Kind KindOf(TreeChangeKind kind) {
  switch (kind) {
    case TreeChangeKind::Added:
      return Kind::Added;
    case TreeChangeKind::Removed:
      return Kind::Removed;
    case TreeChangeKind::Moved:
    case TreeChangeKind::MovedAndChanged:
      return Kind::Moved;
    case TreeChangeKind::Changed:
      break;
  }
  return Kind::Changed;
}

/// Adds the files whose bytes are the same and whose kinds differ.
void AddKindChanges(const FileTree& before, const FileTree& after, std::vector<Change>& changes) {
  if (before.GetKinds() == after.GetKinds()) return;
  std::set<std::string> known;
  for (const Change& change : changes) known.insert({change.path, change.oldPath});
  std::set<std::string> paths;
  for (const FileTree* side : {&before, &after}) {
    for (const auto& [path, kind] : side->GetKinds().GetAll()) paths.insert(path);
  }
  for (const std::string& path : paths) {
    if (known.contains(path) || before.KindOf(path) == after.KindOf(path)) continue;
    const BlobPtr blob = after.Find(path);
    if (!blob || !before.Find(path)) continue;
    changes.push_back({Kind::Changed, path, "", blob->GetId(), blob->GetId(), before.KindOf(path),
                       after.KindOf(path)});
  }
}

}  // namespace

const char* Name(Kind kind) {
  switch (kind) {
    case Kind::Added:
      return "added";
    case Kind::Changed:
      return "changed";
    case Kind::Removed:
      return "removed";
    case Kind::Moved:
      return "moved";
  }
  return "";
}

char Letter(Kind kind) {
  switch (kind) {
    case Kind::Added:
      return 'A';
    case Kind::Removed:
      return 'R';
    case Kind::Moved:
      return 'M';
    case Kind::Changed:
      break;
  }
  return 'C';
}

Colour ColourOf(Kind kind) {
  switch (kind) {
    case Kind::Added:
      return Colour::Green;
    case Kind::Removed:
      return Colour::Red;
    case Kind::Moved:
      return Colour::Cyan;
    case Kind::Changed:
      break;
  }
  return Colour::Yellow;
}

std::string DescribePath(const Change& change) {
  std::string text = Printable(change.path);
  if (change.kind == Kind::Moved) text = Printable(change.oldPath) + " -> " + text;
  const bool is_on_both = change.kind == Kind::Changed || change.kind == Kind::Moved;
  if (is_on_both && change.kindBefore != change.kindAfter)
    text += std::string(" (") + Name(change.kindBefore) + " -> " + Name(change.kindAfter) + ")";
  return text;
}

std::vector<Change> CompareTrees(const FileTree& before, const FileTree& after, Moves moves) {
  const bool finds = moves == Moves::Find;
  std::vector<Change> changes;
  for (TalVcs::Kit::TreeChange& change :
       TalVcs::Kit::FindTreeChanges(before.GetTree(), after.GetTree(),
                                    {.findMoves = finds, .findLikeMoves = finds})
           .value()) {
    if (change.path == FileKinds::kKindsName) continue;
    const std::string& old_path = change.oldPath.empty() ? change.path : change.oldPath;
    const FileKind kind_before = before.KindOf(old_path);
    const FileKind kind_after = after.KindOf(change.path);
    changes.push_back({KindOf(change.kind), change.path, change.oldPath, change.before,
                       change.after, kind_before, kind_after});
  }
  AddKindChanges(before, after, changes);
  std::sort(changes.begin(), changes.end(),
            [](const Change& a, const Change& b) { return a.path < b.path; });
  return changes;
}

}  // namespace Tal
