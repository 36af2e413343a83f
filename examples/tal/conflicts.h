#pragma once

#include "commands.h"
#include "json.h"
#include "text.h"

#include <memory>
#include <string>
#include <vector>

namespace Tal {

/// A conflict that came up in a merge.
struct Conflict {
  std::string path;
  std::string kind;  ///< such as "changed on both sides"
  TalVcs::ConflictChoice choice;
};
using Conflicts = std::vector<Conflict>;

/// Makes the resolver that the options ask for: a constant one, one that asks on the terminal, or
/// one that never decides; behind one that compares times if they name a file that holds one.
TalVcs::ConflictResolver MakeResolver(const Terminal& terminal, const MergeOptions& options);

/// Returns a resolver that asks `resolver` and appends each conflict to `conflicts`. An undecided
/// one goes on with the left side, so that the list tells all of them; the result is then no merge.
TalVcs::ConflictResolver Recorded(TalVcs::ConflictResolver resolver,
                                  std::shared_ptr<Conflicts> conflicts);

std::size_t CountUndecided(const Conflicts& conflicts);

/// Returns the word for a choice, such as "ours".
const char* Name(TalVcs::ConflictChoice choice);

}  // namespace Tal
