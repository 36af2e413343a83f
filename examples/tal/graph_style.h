#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Tal {

/// How many characters of a description stand in a picture.
inline constexpr std::size_t kDescriptionCharacters = 64;

/// Returns the colour of a line of commits, such as "#2563eb". Colours repeat after eight lines.
std::string LineColour(int line);

/// Returns `text` without what a picture can't hold: control characters become blanks, and bytes
/// that are no UTF-8 become U+FFFD. Nothing is escaped yet.
std::string XmlText(std::string_view text);

/// Returns `XmlText(text)` with the characters of mark-up escaped.
std::string XmlEscaped(std::string_view text);

}  // namespace Tal
