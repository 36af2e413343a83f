#pragma once

#include <kit/export.h>
#include <kit/text/bytes.h>
#include <kit/text/result.h>
#include <kit/workspace/folder_entry.h>
#include <kit/workspace/version.h>
#include <talvcs/objects/tree.h>

#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// The files of one version, to be read. Edits and moves of the workspace don't change it.
///
/// Paths are as `Workspace` describes them. Each function fails with `BadName` or `BadText` for a
/// text that isn't a path, and with `Damaged` or `Unavailable` if an object can't be read.
///
/// Threads: it belongs to the thread of its workspace.
class TALVCS_KIT_API Snapshot {
 public:
  /// The files of an empty document.
  Snapshot();
  /// The files of a tree. A null tree has none.
  explicit Snapshot(cow_ptr<Tree> tree, Version version = {});

  /// Returns the version. It is empty if the snapshot is of no version.
  const Version& GetVersion() const noexcept { return m_version; }

  /// Returns the bytes of the file. Fails with `NotFound` if no file has that path.
  Result<Bytes> Read(std::string_view path) const;
  /// Returns true if there is a file or a folder.
  Result<bool> Contains(std::string_view path) const;
  /// Returns the entries of a folder, sorted by the bytes of their names; the empty path is the
  /// topmost folder. Fails with `NotFound` if no folder has that path.
  Result<std::vector<FolderEntry>> List(std::string_view folder = {}) const;
  /// Returns the paths of all files below a folder, sorted by their bytes.
  Result<std::vector<std::string>> ListFiles(std::string_view folder = {}) const;

  /// Returns the root of the files, never null.
  const cow_ptr<Tree>& GetTree() const noexcept { return m_tree; }

 private:
  cow_ptr<Tree> m_tree;
  Version m_version;
};

}  // namespace TalVcs::Kit
