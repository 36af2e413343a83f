#pragma once

#include "session.h"

#include <string>

namespace Tal {

/// The store's value that has how many bytes the last clean-up freed.
inline constexpr const char* kFreedValue = "tal-freed";

/// Forgets the versions that a rule doesn't keep. Nothing of that is final before the session
/// saves.
Kit::RetentionReport ForgetVersions(Session& session, const Kit::Retention& rule);

/// Saves, removes what no branch reaches from the store, and prints what was done and how much that
/// freed. A rehearsal only prints.
void SaveAndCleanUp(Session& session, const std::string& what);

}  // namespace Tal
