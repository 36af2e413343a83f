#pragma once

#include "changes.h"
#include "session.h"

#include <vector>

namespace Tal {

/// What the folder holds, and how that differs from a version.
struct FolderChanges {
  FolderContents contents;
  std::vector<Change> changes;  ///< sorted by path
};

/// Compares the folder with the files of a version. What the head holds counts as tracked as well.
FolderChanges CompareFolder(Session& session, const FileTree& tree, Moves moves);

/// Throws `Failure` with `Differs` and the names if the folder has names that aren't UTF-8.
void RefuseNames(const FolderContents& contents);

}  // namespace Tal
