#pragma once

#include "folder_changes.h"

#include <vector>

namespace Tal {

/// Puts the changes of the folder into the document, as pending edits, and returns the files that
/// were read. Removals come first, so that a file can take the place of a folder and the other way
/// round.
std::vector<SettledFile> WriteChanges(Session& session, const FolderChanges& state);

}  // namespace Tal
