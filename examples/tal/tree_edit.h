#pragma once

#include "changes.h"
#include "session.h"

namespace Tal {

/// Returns `before` with the given changes made, their files read from the folder; null if nothing
/// is left. The new objects are in the repository, and perhaps some that nothing uses.
TreePtr TreeWithChanges(Session& session, const TreePtr& before, const std::vector<Change>& changes,
                        const Terminal& terminal);

}  // namespace Tal
