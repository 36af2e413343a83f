#pragma once

#include <string>

namespace TalVcs::Kit {

/// An entry of a folder.
struct FolderEntry {
  std::string name;       ///< The name in its folder.
  bool isFolder = false;  ///< True for a folder, false for a file.

  friend bool operator==(const FolderEntry&, const FolderEntry&) = default;
};

}  // namespace TalVcs::Kit
