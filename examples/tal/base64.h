#pragma once

#include <string>
#include <string_view>

namespace Tal {

/// Returns `bytes` in base 64, with padding.
std::string Base64(std::string_view bytes);

}  // namespace Tal
