#pragma once

#include <chrono>
#include <string>

namespace Tal {

/// Reads the time of an option: an instant, or a time before now such as "2 weeks ago", "yesterday"
/// or "now". Throws `Failure` with `Usage` for other text.
std::chrono::sys_seconds TimeOfOption(const std::string& text);

}  // namespace Tal
