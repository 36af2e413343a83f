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
/// there from `before`. Prints what it does; `verb` names it, such as "merge". Without a message,
/// the version has the one that names what was merged. `clean` is called before the session saves.
ExitCode CompleteMerge(Session& session, const FileTree& before, const Kit::MergePreview& preview,
                       const MergeRun& run, const std::string& verb,
                       const std::string& message = {}, const std::function<void()>& clean = {});

}  // namespace Tal
