#include "text.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <utility>

namespace Tal {

std::string ShortId(std::string_view id) { return std::string(id.substr(0, 10)); }

std::string FormatTime(const TalVcs::Kit::Version& version) {
  const auto minutes = version.offset.count();
  const std::time_t local = version.time.time_since_epoch().count() + minutes * 60;
  std::tm parts{};
  gmtime_r(&local, &parts);
  std::array<char, 64> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &parts);

  const auto distance = static_cast<int>(minutes < 0 ? -minutes : minutes);
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%s %c%02d%02d", date.data(), minutes < 0 ? '-' : '+',
                distance / 60, distance % 60);
  return text.data();
}

std::string FormatAge(const TalVcs::Kit::Version& version) {
  constexpr std::pair<const char*, std::int64_t> kUnits[] = {
      {"year", 31536000}, {"month", 2592000}, {"week", 604800}, {"day", 86400},
      {"hour", 3600},     {"minute", 60},     {"second", 1}};
  const std::int64_t age =
      static_cast<std::int64_t>(std::time(nullptr)) - version.time.time_since_epoch().count();
  if (age < 0) return "in the future";
  for (const auto& [name, seconds] : kUnits) {
    const std::int64_t count = age / seconds;
    if (count > 0) return std::to_string(count) + " " + name + (count == 1 ? "" : "s") + " ago";
  }
  return "now";
}

std::string EscapeLine(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\') {
      escaped += "\\\\";
    } else if (c == '\n') {
      escaped += "\\n";
    } else {
      escaped += c;
    }
  }
  return escaped;
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

}  // namespace Tal
