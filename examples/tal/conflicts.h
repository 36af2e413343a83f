#pragma once

#include "command_line.h"
#include "json.h"
#include "session.h"

#include <string>
#include <string_view>
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

/// Returns the kind of a conflict for people, such as "changed on both sides".
std::string Describe(const Kit::Conflict& conflict);

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

/// Returns the decisions with one for each other conflict of the preview, which keeps both sides
/// for people where it can: the text with markers, else our file, else theirs.
Kit::Decisions WithMarkers(const Kit::MergePreview& preview, Kit::Decisions decisions);

/// Returns true if the text has a place that `WithMarkers` has marked.
bool HasMarkers(std::string_view text);

}  // namespace Tal
