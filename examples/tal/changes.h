#pragma once

#include "folder.h"
#include "terminal.h"
#include "trees.h"

#include <string>
#include <vector>

namespace Tal {

/// How the folder differs from a tree.
struct Change {
  enum class Kind { Added, Changed, Removed };

  Kind kind;
  std::string path;
};

/// Returns the word for a kind, such as "added", and its letter.
const char* Name(Change::Kind kind);
char Letter(Change::Kind kind);
Colour ColourOf(Change::Kind kind);

/// Compares file by file and byte by byte; `tree` may be null. Sorted by path.
std::vector<Change> CompareFolder(const Folder& folder, const FolderContents& contents,
                                  const TreePtr& tree, const Terminal& terminal);

/// Compares two trees, each of which may be null.
std::vector<Change> CompareTrees(const TreePtr& before, const TreePtr& after);

}  // namespace Tal
