#pragma once

#include <talvcs/foundation/string_view.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>

namespace TalVcs {

/// The number of bytes of a SHA-256 digest.
inline constexpr std::size_t kDigestBytes = 32;
/// The number of characters of an object's id: two hexadecimal digits for each byte of a digest.
inline constexpr std::size_t kIdLength = 2 * kDigestBytes;

/// The digest whose digits are the text of an id.
using IdBytes = std::array<std::uint8_t, kDigestBytes>;

/// Returns true if `text` is the text of an object's id: `kIdLength` hexadecimal digits, letters in
/// lower case.
template <class C>
bool IsIdText(std::basic_string_view<C> text) noexcept {
  using Unit = std::conditional_t<sizeof(C) == 1, unsigned char, std::uint32_t>;
  if (text.size() != kIdLength) return false;
  const C* const characters = text.data();
  unsigned char others = 0;
  // Without a branch, compilers check many characters at once.
  for (std::size_t index = 0; index < kIdLength; ++index) {
    const auto character = static_cast<Unit>(characters[index]);
    const bool digit = static_cast<Unit>(character - Unit{'0'}) < 10;
    const bool letter = static_cast<Unit>(character - Unit{'a'}) < 6;
    others = static_cast<unsigned char>(others | !(digit | letter));
  }
  return others == 0;
}
template <class C>
bool IsIdText(TalPlatform::TalStringViewT<C> text) noexcept {
  return IsIdText(std::basic_string_view<C>(text.text, static_cast<std::size_t>(text.length)));
}

/// Returns the digest whose digits `text` is, or nothing for a text that isn't an id.
/// `TalUtils::DataEncoding::HexEncode` returns the text of a digest.
template <class C>
std::optional<IdBytes> BytesOfIdText(std::basic_string_view<C> text) noexcept {
  if (!IsIdText(text)) return std::nullopt;
  const auto value = [](C digit) { return digit <= '9' ? digit - '0' : digit - 'a' + 10; };
  IdBytes bytes;
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    bytes[index] =
        static_cast<std::uint8_t>(value(text[2 * index]) << 4 | value(text[2 * index + 1]));
  }
  return bytes;
}
template <class C>
std::optional<IdBytes> BytesOfIdText(TalPlatform::TalStringViewT<C> text) noexcept {
  return BytesOfIdText(std::basic_string_view<C>(text.text, static_cast<std::size_t>(text.length)));
}

}  // namespace TalVcs
