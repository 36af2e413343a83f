#include <kit/text/escape.h>

#include <algorithm>
#include <cstddef>

namespace TalVcs::Kit {

std::string ReplaceCharacters(std::string_view text,
                              std::initializer_list<CharacterText> replacements) {
  std::string replaced;
  replaced.reserve(text.size());
  for (const char character : text) {
    const auto* const found = std::find_if(
        replacements.begin(), replacements.end(),
        [&](const CharacterText& replacement) { return replacement.character == character; });
    if (found == replacements.end()) {
      replaced += character;
    } else {
      replaced += found->text;
    }
  }
  return replaced;
}

std::string EscapeLine(std::string_view text) {
  return ReplaceCharacters(text, {{'\\', "\\\\"}, {'\n', "\\n"}});
}

std::string UnescapeLine(std::string_view escaped) {
  std::string text;
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    const bool is_escape = escaped[i] == '\\' && i + 1 < escaped.size();
    if (is_escape) ++i;
    text += is_escape && escaped[i] == 'n' ? '\n' : escaped[i];
  }
  return text;
}

}  // namespace TalVcs::Kit
