#include "changes.h"

#include <kit/diff/tree_changes.h>

#include <algorithm>

namespace Tal {
namespace {

using Kind = Change::Kind;

Kind KindOf(TalVcs::Kit::TreeChangeKind kind) {
  return kind == TalVcs::Kit::TreeChangeKind::Added     ? Kind::Added
         : kind == TalVcs::Kit::TreeChangeKind::Removed ? Kind::Removed
                                                        : Kind::Changed;
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
  }
  return "";
}

char Letter(Kind kind) { return kind == Kind::Added ? 'A' : kind == Kind::Changed ? 'C' : 'R'; }

Colour ColourOf(Kind kind) {
  return kind == Kind::Added ? Colour::Green : kind == Kind::Changed ? Colour::Yellow : Colour::Red;
}

std::vector<Change> CompareFolder(const Folder& folder, const FolderContents& contents,
                                  const TreePtr& tree, const Terminal& terminal) {
  std::vector<Change> changes;
  Progress progress(terminal, "comparing files");
  for (const std::string& path : contents.files) {
    const BlobPtr blob = FindBlob(tree, path);
    if (!blob) {
      changes.push_back({Kind::Added, path});
    } else if (!folder.Holds(path, blob->GetData())) {
      changes.push_back({Kind::Changed, path});
    }
    progress.Count(blob ? blob->GetData().GetSize() : 0);
  }
  for (const std::string& path : ListTree(tree)) {
    if (!std::binary_search(contents.files.begin(), contents.files.end(), path))
      changes.push_back({Kind::Removed, path});
  }
  std::sort(changes.begin(), changes.end(),
            [](const Change& a, const Change& b) { return a.path < b.path; });
  return changes;
}

std::vector<Change> CompareTrees(const TreePtr& before, const TreePtr& after) {
  std::vector<Change> changes;
  for (const TalVcs::Kit::TreeChange& change :
       TalVcs::Kit::FindTreeChanges(before, after, {.findMoves = false, .findLikeMoves = false})
           .value()) {
    changes.push_back({KindOf(change.kind), change.path});
  }
  return changes;
}

}  // namespace Tal
