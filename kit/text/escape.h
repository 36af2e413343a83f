#pragma once

#include <kit/export.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// A character and the text that takes its place.
struct CharacterText {
  char character;         ///< An ASCII character.
  std::string_view text;  ///< What is written for it; may be empty.
};

/// Returns the text with each of these characters replaced; other bytes stay as they are. If a
/// character is listed twice, its first text is taken.
[[nodiscard]] TALVCS_KIT_API std::string ReplaceCharacters(
    std::string_view text, std::initializer_list<CharacterText> replacements);

/// Returns the text as one line, with "\\" for "\" and "\n" for a line feed. Other bytes stay as
/// they are.
[[nodiscard]] TALVCS_KIT_API std::string EscapeLine(std::string_view text);

/// Returns the text that `EscapeLine` was given. Before any other character a "\" is left out; one
/// at the end stays.
[[nodiscard]] TALVCS_KIT_API std::string UnescapeLine(std::string_view escaped);

}  // namespace TalVcs::Kit
