#pragma once

#include <string>
#include <string_view>

namespace Tal {

/// Returns bytes as rows of 16 in hexadecimal digits and as characters. Bytes that differ from
/// those at the same place in `other` are marked. It shows the first row with a difference and
/// those after it, and says how many bytes it leaves out.
std::string HexDump(std::string_view bytes, std::string_view other);

}  // namespace Tal
