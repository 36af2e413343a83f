// path    := byte* | '"' (byte | escape)* '"'
// escape  := "\" ("a" | "b" | "f" | "n" | "r" | "t" | "v" | '"' | "\" | three octal digits)

#include "path_quoting.h"

#include <algorithm>
#include <cstddef>

namespace Tal {
namespace {

constexpr std::string_view kLetters = "abfnrtv\"\\";
constexpr std::string_view kMeanings = "\a\b\f\n\r\t\v\"\\";

bool NeedsEscape(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F || c == '"' || c == '\\';
}

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

/// Reads what follows a backslash.
bool TakeEscape(std::string_view& text, std::string& path) {
  if (text.empty()) return false;
  const std::size_t letter = kLetters.find(text.front());
  if (letter != kLetters.npos) {
    path += kMeanings[letter];
    text.remove_prefix(1);
    return true;
  }
  if (text.size() < 3 || !std::ranges::all_of(text.substr(0, 3), IsOctal)) return false;
  const int code = (text[0] - '0') * 64 + (text[1] - '0') * 8 + (text[2] - '0');
  if (code > 0xFF) return false;
  path += static_cast<char>(code);
  text.remove_prefix(3);
  return true;
}

}  // namespace

std::string QuoteGitPath(std::string_view path) {
  if (std::ranges::none_of(path, NeedsEscape)) return std::string(path);
  std::string quoted = "\"";
  for (const char c : path) {
    if (!NeedsEscape(c)) {
      quoted += c;
      continue;
    }
    const auto code = static_cast<unsigned char>(c);
    quoted += {'\\', static_cast<char>('0' + code / 64), static_cast<char>('0' + code / 8 % 8),
               static_cast<char>('0' + code % 8)};
  }
  return quoted + '"';
}

bool TakeGitPath(std::string_view& text, bool endsAtBlank, std::string& path) {
  path.clear();
  if (!text.starts_with('"')) {
    const std::size_t end = endsAtBlank ? std::min(text.find(' '), text.size()) : text.size();
    path = text.substr(0, end);
    text.remove_prefix(end);
    return true;
  }
  text.remove_prefix(1);
  while (!text.empty()) {
    const char c = text.front();
    text.remove_prefix(1);
    if (c == '"') return true;
    if (c != '\\') {
      path += c;
    } else if (!TakeEscape(text, path)) {
      return false;
    }
  }
  return false;
}

}  // namespace Tal
