#include "graph_style.h"

#include <kit/text/escape.h>
#include <kit/text/utf8.h>

#include <array>

namespace Tal {

std::string LineColour(int line) {
  constexpr std::array<const char*, 8> kColours = {"#2563eb", "#ea580c", "#059669", "#c026d3",
                                                   "#0891b2", "#dc2626", "#7c3aed", "#65a30d"};
  return kColours[static_cast<std::size_t>(line) % kColours.size()];
}

std::string XmlText(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const TalVcs::Kit::Utf8Character character = TalVcs::Kit::DecodeUtf8(text, at);
    const bool isControl =
        character.code < 0x20 || (character.code >= 0x7F && character.code < 0xA0);
    if (!character.isValid || character.code == 0xFFFE || character.code == 0xFFFF) {
      result += "\xEF\xBF\xBD";
    } else if (isControl) {
      result += ' ';
    } else {
      result += text.substr(at, character.sizeBytes);
    }
    at += character.sizeBytes;
  }
  return result;
}

std::string XmlEscaped(std::string_view text) {
  return TalVcs::Kit::ReplaceCharacters(
      XmlText(text), {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}});
}

}  // namespace Tal
