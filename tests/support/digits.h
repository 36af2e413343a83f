#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace TalVcs::Testing {

/// Returns two hexadecimal digits for each byte, worked out apart from the library's own encoder.
inline std::string Digits(std::span<const std::uint8_t> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

}  // namespace TalVcs::Testing
