#pragma once

#include "changes.h"
#include "folder_index.h"
#include "session.h"

#include <vector>

namespace Tal {

/// What the folder holds, and how that differs from a version.
struct FolderChanges {
  FolderContents contents;
  std::vector<Change> changes;  ///< sorted by path
  FolderIndex index;            ///< of the head's files
  std::int64_t looked = 0;      ///< when the files were looked at, by the file system's clock
};

/// Compares the folder with the files of a version. What the head holds counts as tracked as well.
///
/// Only files that changed since they were last compared are read, and an index that learned
/// something is saved. The id of a changed file is not known if it wasn't read.
FolderChanges CompareFolder(Session& session, const FileTree& tree, Moves moves);

/// A file that a command has read or written, as the head has it now.
struct SettledFile {
  std::string path;
  FileStat stat;
};

/// Brings the index to the head after a command that moved it from `before`.
void UpdateIndex(Session& session, FolderIndex index, const FileTree& before,
                 const std::vector<SettledFile>& settled, std::int64_t looked);

/// Throws `Failure` with `Differs` and the names if the folder has names that aren't UTF-8.
void RefuseNames(const FolderContents& contents);

}  // namespace Tal
