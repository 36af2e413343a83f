#include "hex_view.h"

#include "html_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Tal {
namespace {

constexpr std::size_t kRow = 16;
constexpr std::size_t kMostRows = 24;

std::string Digits(std::uint64_t number, int count) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (int i = count - 1; i >= 0; --i)
    text += kDigits[number >> (4U * static_cast<unsigned>(i)) & 15U];
  return text;
}

/// Returns the beginning of the first row that isn't equal in both.
std::size_t FirstRow(std::string_view bytes, std::string_view other) {
  const auto [at, there] = std::ranges::mismatch(bytes, other);
  const auto place = static_cast<std::size_t>(at - bytes.begin());
  if (place == bytes.size() && bytes.size() == other.size()) return 0;
  return std::min(place, bytes.empty() ? 0 : bytes.size() - 1) / kRow * kRow;
}

std::string Row(std::string_view bytes, std::string_view other, std::size_t first) {
  std::string row = "<span class=\"n\">" + Digits(first, 8) + "</span> ";
  std::string characters;
  for (std::size_t at = first; at < first + kRow; ++at) {
    if (at >= bytes.size()) {
      row += "   ";
      continue;
    }
    const auto byte = static_cast<unsigned char>(bytes[at]);
    const bool differs = at >= other.size() || other[at] != bytes[at];
    row += ' ' + (differs ? "<mark>" + Digits(byte, 2) + "</mark>" : Digits(byte, 2));
    characters += byte >= 0x20 && byte < 0x7F ? HtmlText(bytes.substr(at, 1)) : "\xC2\xB7";
  }
  return row + "  <span class=\"c\">" + characters + "</span>\n";
}

std::string LeftOut(std::uint64_t count, const char* where) {
  if (count == 0) return {};
  return "<span class=\"n\">" + std::to_string(count) + " bytes " + where + " left out</span>\n";
}

}  // namespace

std::string HexDump(std::string_view bytes, std::string_view other) {
  const std::size_t first = FirstRow(bytes, other);
  const std::size_t end = std::min(bytes.size(), first + kRow * kMostRows);
  std::string html = "<pre class=\"hex\">" + LeftOut(first, "before");
  for (std::size_t at = first; at < end; at += kRow) html += Row(bytes, other, at);
  return html + LeftOut(bytes.size() - end, "after") + "</pre>\n";
}

}  // namespace Tal
