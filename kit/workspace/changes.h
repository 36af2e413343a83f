#pragma once

#include <kit/export.h>
#include <talvcs/objects/id.h>

#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// What happened to a file between two states.
enum class ChangeKind {
  Added,    ///< Only the later state has it.
  Removed,  ///< Only the earlier state has it.
  Changed,  ///< Its bytes differ.
  Moved,    ///< A file with the same bytes was at `oldPath`, and is no longer there.
};

/// Returns the kind's name, such as "Added".
TALVCS_KIT_API const char* ToString(ChangeKind kind) noexcept;

/// A file that differs between two states.
struct Change {
  std::string path;                       ///< The path in the later state; of a removed file, in
                                          ///< the earlier one.
  ChangeKind kind = ChangeKind::Changed;  ///< What happened to it.
  std::string oldPath;                    ///< The earlier path of a moved file; else empty.
  Id before;                              ///< The earlier bytes' id; empty if it was added.
  Id after;                               ///< The later bytes' id; empty if it was removed.

  friend bool operator==(const Change&, const Change&) = default;
};

/// An entry of a folder.
struct FolderEntry {
  std::string name;       ///< The name in its folder.
  bool isFolder = false;  ///< True for a folder, false for a file.

  friend bool operator==(const FolderEntry&, const FolderEntry&) = default;
};

}  // namespace TalVcs::Kit
