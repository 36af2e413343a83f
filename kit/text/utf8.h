#pragma once

#include <kit/export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// A character of a text, or a byte that belongs to none.
struct Utf8Character {
  std::uint32_t code;     ///< The code point; the byte itself where the bytes aren't UTF-8.
  std::size_t sizeBytes;  ///< The bytes that it takes, at least 1.
  bool isValid;           ///< False for bytes that aren't UTF-8 and for a lone surrogate.
};

/// Reads the character that begins at the offset `at`, which must be below the size of the text.
///
/// An overlong form, a code beyond U+10FFFF and a character that is cut off aren't UTF-8: the
/// result is their first byte alone. The three-byte form of a lone surrogate, which names on some
/// file systems have, is one character of three bytes that is not valid. Never fails.
[[nodiscard]] TALVCS_KIT_API Utf8Character DecodeUtf8(std::string_view text,
                                                      std::size_t at) noexcept;

/// Returns a text of at most `characters` characters: the whole text if it has no more, or else its
/// beginning with an ellipsis (U+2026) as the last character. `characters` must be at least 1. Each
/// byte that isn't UTF-8 counts as a character.
[[nodiscard]] TALVCS_KIT_API std::string CutText(std::string_view text, std::size_t characters);

}  // namespace TalVcs::Kit
