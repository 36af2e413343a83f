#pragma once

#include <cstddef>
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

/// Returns the bytes that pairs of lower-case hexadecimal digits say.
inline std::string BytesFromDigits(const std::string& digits) {
  std::string bytes;
  for (std::size_t index = 0; index + 1 < digits.size(); index += 2) {
    bytes.push_back(static_cast<char>(std::stoi(digits.substr(index, 2), nullptr, 16)));
  }
  return bytes;
}

}  // namespace TalVcs::Testing
