#pragma once

#include <string>

namespace Tal {

/// Returns a path as a history has it: "./a//b/" as "a/b", and the top as an empty text.
/// Throws `Failure` with `Usage` for a path that begins with "/".
std::string NormalPath(const std::string& path);

}  // namespace Tal
