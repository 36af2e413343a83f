#pragma once

#include <talvcs/objects/id.h>

#include <string>

namespace Tal {

/// Returns the name of the tag that keeps a version which only a merge reaches: git keeps such
/// versions without a name. An import makes these tags, and an export leaves them out where the
/// merge itself is written.
std::string MergedTagOf(const TalVcs::Id& version);

}  // namespace Tal
