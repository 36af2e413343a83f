#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Numbers as the files of the stores in folders keep them: the lowest byte first.
namespace TalVcs::Kit {

/// Appends the `count` lowest bytes of `number`.
inline void PutNumber(std::string& bytes, std::uint64_t number, int count) {
  for (int index = 0; index < count; ++index) {
    bytes.push_back(static_cast<char>(number >> (8 * index) & 0xFF));
  }
}

/// Returns the number that all of `bytes` hold, 8 at most.
inline std::uint64_t NumberOf(std::string_view bytes) {
  std::uint64_t number = 0;
  for (std::size_t index = bytes.size(); index-- > 0;) {
    number = number << 8 | static_cast<std::uint8_t>(bytes[index]);
  }
  return number;
}

}  // namespace TalVcs::Kit
