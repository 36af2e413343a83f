#pragma once

#include <kit/export.h>

#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// Returns bytes in base 64 by RFC 4648: four characters for each three bytes, with "=" at the end
/// for those that the last three lack.
[[nodiscard]] TALVCS_KIT_API std::string EncodeBase64(std::string_view bytes);

}  // namespace TalVcs::Kit
