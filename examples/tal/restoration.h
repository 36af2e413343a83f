#pragma once

#include "file_tree.h"
#include "folder.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tal {

/// Writes and removes files over what the folder has at their paths, and can put that back.
class Restoration {
 public:
  /// The folder must outlive it.
  explicit Restoration(const Folder& folder) : m_folder(folder) {}

  /// Brings the paths to what `files` has there: writes the files, and removes those that `files`
  /// lacks. Throws `Failure`, with the folder as it was, if that fails and after an interrupt.
  void Apply(const FileTree& files, const std::vector<std::string>& paths);
  /// Puts back what `Apply` changed.
  void Undo();

 private:
  void Put(const FileTree& files, const std::string& path);

  const Folder& m_folder;
  std::vector<std::pair<std::string, std::optional<FileContent>>> m_former;
};

/// Returns those of the paths where the folder has something else than `files`, those to remove
/// first. Throws `Failure` for a path that leads out of the folder.
std::vector<std::string> PathsThatDiffer(const Folder& folder, const FileTree& files,
                                         const std::vector<std::string>& paths);

}  // namespace Tal
