#pragma once

#include <talvcs/repository/repository.h>

#include <string>

namespace TalVcs::Testing {

/// Returns the branches with the ids of their heads, and the ids of all objects, in order.
std::string Inventory(const Repository& repository);

/// Returns what is wrong with a repository's storage, or "".
///
/// Each object of a table is read anew, to the bytes: its id is that of its bytes and its key, the
/// bytes of a tree name just what the tree's entries are. All that a branch reaches can be read.
std::string FindViolation(const Repository& repository);

}  // namespace TalVcs::Testing
