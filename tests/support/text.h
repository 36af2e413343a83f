#pragma once

#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// What tests need to write down texts and bytes, and to look at those of the library, without the
/// library's own conversions.
namespace TalVcs::Testing {

/// Shows wide text in ASCII: every other code unit, and the backslash, as \uXXXX.
inline std::string Ascii(TalStringViewT<WideChar> text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string shown;
  for (int index = 0; index < text.length; ++index) {
    const auto unit = static_cast<std::uint16_t>(text.text[index]);
    if (unit >= 0x20 && unit < 0x7F && unit != '\\') {
      shown += static_cast<char>(unit);
      continue;
    }
    shown += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) shown += kDigits[unit >> shift & 0xF];
  }
  return shown;
}

inline std::string Ascii(const Id& id) { return Ascii(id.View()); }

inline std::vector<std::string> Ascii(const std::vector<TalStringT<WideChar>>& texts) {
  std::vector<std::string> shown;
  for (const TalStringT<WideChar>& text : texts) shown.push_back(Ascii(text));
  return shown;
}

inline std::vector<std::string> Ascii(const std::vector<TalStringViewT<WideChar>>& texts) {
  std::vector<std::string> shown;
  for (const TalStringViewT<WideChar> text : texts) shown.push_back(Ascii(text));
  return shown;
}

/// Widens ASCII text, byte by byte.
inline TalStringT<WideChar> Wide(std::string_view ascii) {
  const std::basic_string<WideChar> units(ascii.begin(), ascii.end());
  return TalStringT<WideChar>(TalStringViewT<WideChar>(units));
}

/// Returns the bytes of narrow text, zeros included.
inline std::string Bytes(TalStringViewT<char> text) {
  return std::string(text.text, static_cast<std::size_t>(text.length));
}

/// Shows bytes as pairs of hexadecimal digits with blanks between them.
inline std::string Hex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string shown;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (!shown.empty()) shown += ' ';
    shown += kDigits[value >> 4];
    shown += kDigits[value & 0xF];
  }
  return shown;
}

}  // namespace TalVcs::Testing
