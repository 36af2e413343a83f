#pragma once

#include "trees.h"

#include <string>

namespace Tal {

/// Who makes commits.
struct Author {
  std::string name;
  std::string email;
};

/// Returns the author that the arguments tell, where they are empty the environment (TAL_AUTHOR,
/// TAL_EMAIL), and failing that the account. Throws `Failure` with `Usage` for a name or an e-mail
/// that a store can't give back.
Author FindAuthor(const std::string& name, const std::string& email);

/// Throws `Failure` with `Usage` if a store can't give this description back: only the first line
/// of one comes back.
void CheckDescription(const std::string& description);

/// Returns why `commit` would come back from a store as another one, or an empty text. A commit
/// without a parent must not have the text "parent " in its texts, since a loader takes it for one.
std::string WhyLost(const TalVcs::Commit& commit);

}  // namespace Tal
