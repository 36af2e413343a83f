#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tal {

struct Utf8Character {
  std::uint32_t code;  ///< the byte itself where the bytes are no UTF-8
  std::size_t size;    ///< in bytes, at least 1
  bool valid;
};

/// Reads the character that begins at `at`, which has to be below the size. The three-byte form of
/// a lone surrogate, as names on some file systems have it, counts as not valid but is one
/// character.
Utf8Character DecodeUtf8(std::string_view text, std::size_t at);

/// Returns the first `characters` characters, with an ellipsis in the last place if text is cut.
std::string CutText(std::string_view text, std::size_t characters);

}  // namespace Tal
