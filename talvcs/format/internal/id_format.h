#pragma once

#include <cstddef>
#include <string_view>

namespace TalVcs {

/// The number of characters of an id: the hexadecimal digits of a SHA-256 digest.
inline constexpr std::size_t kIdLength = 64;

/// True if `text` is an id: 64 hexadecimal digits, letters in lower case.
inline bool IsIdText(std::string_view text) noexcept {
  if (text.size() != kIdLength) return false;
  const char* const characters = text.data();
  unsigned char others = 0;
  // Without a branch, compilers check many characters at once.
  for (std::size_t index = 0; index < kIdLength; ++index) {
    const auto character = static_cast<unsigned char>(characters[index]);
    const bool digit = static_cast<unsigned char>(character - '0') < 10;
    const bool letter = static_cast<unsigned char>(character - 'a') < 6;
    others = static_cast<unsigned char>(others | !(digit | letter));
  }
  return others == 0;
}

}  // namespace TalVcs
