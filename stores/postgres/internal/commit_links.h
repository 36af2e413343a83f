#pragma once

#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <optional>

namespace TalVcs::Kit::Postgres {

/// The ids that a commit names.
struct CommitLinks {
  std::optional<Id> parent;
  std::optional<Id> root;
};

/// Returns what a packed commit names; nothing for another object.
CommitLinks LinksOf(const Buffer& packed);

}  // namespace TalVcs::Kit::Postgres
