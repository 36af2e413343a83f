#pragma once

#include "session.h"

#include <kit/history/short_ids.h>

#include <string>
#include <vector>

namespace Tal {

/// Returns the version's id as a text.
std::string IdOf(const Kit::Version& version);

/// Returns the short id of one version.
std::string ShortIdOf(Session& session, const TalVcs::Id& id);

/// Returns all branches, the current one first and the others by name.
std::vector<Kit::Head> ListBranches(Session& session);

}  // namespace Tal
