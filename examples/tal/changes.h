#pragma once

#include "file_tree.h"
#include "terminal.h"

#include <string>
#include <vector>

namespace Tal {

/// How a file differs between two states.
struct Change {
  enum class Kind { Added, Changed, Removed, Moved };

  Kind kind = Kind::Changed;
  std::string path;     ///< of a removed file, where it was
  std::string oldPath;  ///< of a moved file
  TalVcs::Id before;    ///< of the blob; empty if there is no file, or it isn't known
  TalVcs::Id after;
  FileKind kindBefore = FileKind::File;
  FileKind kindAfter = FileKind::File;
};

/// Returns the word for a kind, such as "added", and its letter.
const char* Name(Change::Kind kind);
char Letter(Change::Kind kind);
Colour ColourOf(Change::Kind kind);

/// Returns the path for people: of a moved file both, and the kinds if they differ.
std::string DescribePath(const Change& change);

/// Whether a removed and an added file of like content are one moved file.
enum class Moves { Find, Ignore };

/// Returns the files that differ between two versions, sorted by path.
std::vector<Change> CompareTrees(const FileTree& before, const FileTree& after, Moves moves);

}  // namespace Tal
