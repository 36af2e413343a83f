#pragma once

#include "changes.h"
#include "session.h"

namespace Tal {

/// Returns `before` with the given changes made, their files read from the folder, or null if
/// nothing is left. What is new below the root is stored in the repository.
TreePtr TreeWithChanges(Session& session, const TreePtr& before, const std::vector<Change>& changes,
                        const Terminal& terminal);

}  // namespace Tal
