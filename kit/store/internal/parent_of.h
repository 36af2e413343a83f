#pragma once

#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <optional>

namespace TalVcs::Kit {

/// Returns the parent that a packed commit names, or none if it has no parent or is no commit.
std::optional<Id> ParentOf(const Buffer& packed);

}  // namespace TalVcs::Kit
