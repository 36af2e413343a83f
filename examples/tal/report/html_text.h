#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Tal {

/// Returns true for a character that a page must not show as it is: control characters, those that
/// change the direction of text, and those that nobody sees.
bool IsHidden(std::uint32_t code) noexcept;

/// Returns `text` for the content of an element. Markup is escaped. A hidden character becomes its
/// number, such as "U+202E", and a byte that is no UTF-8 "\xE9", each in a `span` of class "u".
/// Tabs and line ends stay.
std::string HtmlText(std::string_view text);

/// Returns `text` for an attribute or a title: the same in square brackets, without elements, and
/// line ends become blanks.
std::string HtmlAttribute(std::string_view text);

/// Returns `text` as a JSON string that may be in a `script` element. A byte that is no UTF-8
/// becomes the lone surrogate U+DC80 to U+DCFF.
std::string JsonText(std::string_view text);

}  // namespace Tal
