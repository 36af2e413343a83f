#pragma once

#include "command_line.h"
#include "session.h"

#include <string>
#include <vector>

namespace Tal {

/// How a command decides conflicts. What it doesn't decide is left in the folder.
struct ConflictOptions {
  std::string newest;  ///< path of the file that holds the time
  bool ours = false;
  bool theirs = false;
  bool base = false;
  bool markers = false;
  bool interactive = false;
  std::string tool;  ///< a command that merges one file
};

/// Adds these options to a command.
void DeclareConflicts(Command& command, ConflictOptions& options);

/// What was decided about a conflict.
struct DecidedConflict {
  std::string path;
  std::string kind;    ///< such as "changed on both sides"
  std::string choice;  ///< "ours", "theirs", "base", "edited", or "undecided"
};

/// The conflicts of a merge with their decisions.
struct DecidedConflicts {
  std::vector<DecidedConflict> list;
  Kit::Decisions decisions;  ///< of the paths that are decided

  std::size_t CountUndecided() const { return list.size() - decisions.size(); }
};

/// Decides the conflicts of a preview as the options say, and asks the user if they say so. Throws
/// `Failure` if the user gives up.
DecidedConflicts Decide(Session& session, const Kit::MergePreview& preview,
                        const ConflictOptions& options);

}  // namespace Tal
