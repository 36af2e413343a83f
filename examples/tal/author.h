#pragma once

#include <string>

namespace Tal {

/// Who makes commits.
struct Author {
  std::string name;
  std::string email;
};

/// Returns the author from the arguments, or if they are empty from the environment (TAL_AUTHOR,
/// TAL_EMAIL), or else from the account. Throws `Failure` with `Usage` for a name or an e-mail
/// that no commit can have.
Author FindAuthor(const std::string& name, const std::string& email);

/// Throws `Failure` with `Usage` for a description that is empty or isn't UTF-8.
void CheckDescription(const std::string& description);

}  // namespace Tal
