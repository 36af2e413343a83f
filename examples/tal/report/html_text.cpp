#include "html_text.h"

#include <kit/text/utf8.h>

#include <array>
#include <cstddef>

namespace Tal {
namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

std::string Hex(std::uint32_t number, int digits) {
  std::string text;
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
    text += kDigits[number >> static_cast<unsigned>(shift) & 15U];
  }
  return text;
}

/// Returns the name of what can't be shown.
std::string NameOf(const TalVcs::Kit::Utf8Character& character, std::string_view bytes) {
  if (!character.isValid) {
    std::string name;
    for (const char c : bytes) name += "\\x" + Hex(static_cast<unsigned char>(c), 2);
    return name;
  }
  return "U+" + Hex(character.code, character.code > 0xFFFF ? 6 : 4);
}

const char* EntityOf(char c) noexcept {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return nullptr;
  }
}

/// Escapes `text`, with `begin` and `end` around what can't be shown.
std::string Escaped(std::string_view text, std::string_view begin, std::string_view end) {
  std::string result;
  result.reserve(text.size() + text.size() / 8);
  for (std::size_t at = 0; at < text.size();) {
    const TalVcs::Kit::Utf8Character character = TalVcs::Kit::DecodeUtf8(text, at);
    const std::string_view bytes = text.substr(at, character.sizeBytes);
    if (const char* entity = EntityOf(text[at])) {
      result += entity;
    } else if (!character.isValid || (IsHidden(character.code) && character.code != '\n')) {
      result += begin;
      result += NameOf(character, bytes);
      result += end;
    } else {
      result += bytes;
    }
    at += character.sizeBytes;
  }
  return result;
}

void AppendUnit(std::string& result, std::uint32_t unit) { result += "\\u" + Hex(unit, 4); }

}  // namespace

bool IsHidden(std::uint32_t code) noexcept {
  struct Range {
    std::uint32_t first;
    std::uint32_t last;
  };
  constexpr std::array<Range, 14> kRanges = {{{0x00, 0x08},
                                              {0x0A, 0x1F},
                                              {0x7F, 0x9F},
                                              {0xAD, 0xAD},
                                              {0x61C, 0x61C},
                                              {0x180E, 0x180E},
                                              {0x200B, 0x200F},
                                              {0x2028, 0x202E},
                                              {0x2060, 0x206F},
                                              {0xFDD0, 0xFDEF},
                                              {0xFEFF, 0xFEFF},
                                              {0xFFF9, 0xFFFB},
                                              {0xFFFE, 0xFFFF},
                                              {0xE0000, 0xE0FFF}}};
  for (const Range& range : kRanges) {
    if (code >= range.first && code <= range.last) return true;
  }
  return code >= 0x10000 && (code & 0xFFFEU) == 0xFFFEU;
}

std::string HtmlText(std::string_view text) {
  return Escaped(text, "<span class=\"u\">", "</span>");
}

std::string HtmlAttribute(std::string_view text) {
  std::string result = Escaped(text, "[", "]");
  for (char& c : result) {
    if (c == '\n') c = ' ';
  }
  return result;
}

std::string JsonText(std::string_view text) {
  std::string result = "\"";
  result.reserve(text.size() + text.size() / 8);
  for (std::size_t at = 0; at < text.size();) {
    const TalVcs::Kit::Utf8Character character = TalVcs::Kit::DecodeUtf8(text, at);
    const std::string_view bytes = text.substr(at, character.sizeBytes);
    at += character.sizeBytes;
    if (!character.isValid) {
      for (const char c : bytes) AppendUnit(result, 0xDC00U + static_cast<unsigned char>(c));
    } else if (character.code == '"' || character.code == '\\') {
      result += {'\\', bytes.front()};
    } else if (character.code == '\n') {
      result += "\\n";
    } else if (character.code < 0x20 || character.code == '<' || character.code == '>' ||
               character.code == '&' || (character.code <= 0xFFFF && IsHidden(character.code))) {
      AppendUnit(result, character.code);
    } else {
      result += bytes;
    }
  }
  return result + '"';
}

}  // namespace Tal
