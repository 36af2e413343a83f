#pragma once

#include <string>

namespace Tal {

/// Returns a path as a history has it: "./a//b/" as "a/b", and the top as an empty text.
std::string NormalPath(const std::string& path);

}  // namespace Tal
