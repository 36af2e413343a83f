#pragma once

#include "conflicts.h"
#include "file_tree.h"
#include "session.h"

#include <string>

namespace Tal {

/// How a command completes a merge of any kind.
struct MergeRun {
  ConflictOptions conflicts;
  bool isDryRun = false;
  std::string author;
  std::string email;

  /// Adds the options for all of that to a command.
  void Declare(Command& command);
};

/// Decides the conflicts of a preview, makes its version with that message, and brings the folder
/// there from `before`. If a conflict isn't decided, the folder gets the files with markers, and
/// the merge is in progress: see `PendingMerge`. Prints what it does. Without a message, the
/// version has the one that names what was merged. `clean` is called before the session saves.
ExitCode CompleteMerge(Session& session, const FileTree& before, const Kit::MergePreview& preview,
                       const MergeRun& run, const std::string& message = {},
                       const std::function<void()>& clean = {});

/// Says that a merge is done, and where the branch is now.
void SayDone(Session& session, const std::string& verb);

}  // namespace Tal
