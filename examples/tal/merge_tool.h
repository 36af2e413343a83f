#pragma once

#include "folder.h"

#include <kit/workspace/merge_preview.h>

#include <optional>
#include <string>

namespace Tal {

/// Runs `command` with the paths of four files that have the sides of a conflict: base, ours,
/// theirs, and the merged text with conflict markers, which the command changes. Returns what that
/// has then, or nothing if the command failed, or if one of the sides is no file.
std::optional<TalVcs::Kit::Bytes> RunMergeTool(const Folder& folder, const std::string& command,
                                               const TalVcs::Kit::Conflict& conflict);

/// Opens the merged text with conflict markers in the user's editor (VISUAL, EDITOR, or vi).
/// Returns what it has then, or nothing if the editor failed or markers are left.
std::optional<TalVcs::Kit::Bytes> EditConflict(const Folder& folder,
                                               const TalVcs::Kit::Conflict& conflict);

}  // namespace Tal
