#include "parse_time.h"

#include "failure.h"
#include "terminal.h"

#include <charconv>
#include <cstdint>
#include <ctime>
#include <string_view>
#include <utility>

namespace Tal {
namespace {

std::string_view WithoutBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Takes numbers and separators off the front of a text.
class Reader {
 public:
  explicit Reader(std::string_view text) : m_rest(text) {}

  bool AtEnd() const { return m_rest.empty(); }

  bool Take(std::string_view anyOf) {
    if (m_rest.empty() || anyOf.find(m_rest.front()) == std::string_view::npos) return false;
    m_rest.remove_prefix(1);
    return true;
  }

  /// Reads exactly `digits` digits, up to a limit.
  std::optional<int> Number(std::size_t digits, int least, int most) {
    int value = 0;
    if (m_rest.size() < digits) return std::nullopt;
    const char* const end = m_rest.data() + digits;
    const auto [stop, error] = std::from_chars(m_rest.data(), end, value);
    if (error != std::errc() || stop != end || value < least || value > most) return std::nullopt;
    m_rest.remove_prefix(digits);
    return value;
  }

  void SkipDigits() {
    while (Take("0123456789")) continue;
  }

 private:
  std::string_view m_rest;
};

std::optional<std::int64_t> ParseZone(Reader& reader) {
  if (reader.AtEnd() || (reader.Take("Z") && reader.AtEnd())) return 0;
  const bool isPositive = reader.Take("+");
  if (!isPositive && !reader.Take("-")) return std::nullopt;
  const auto hours = reader.Number(2, 0, 23);
  reader.Take(":");
  const auto minutes = reader.AtEnd() ? 0 : reader.Number(2, 0, 59);
  if (!hours || !minutes || !reader.AtEnd()) return std::nullopt;
  const std::int64_t seconds = *hours * 3600 + *minutes * 60;
  return isPositive ? seconds : -seconds;
}

std::optional<std::int64_t> ParseDate(std::string_view text) {
  Reader reader(text);
  const auto year = reader.Number(4, 1970, 9999);
  const bool dashes = year && reader.Take("-");
  const auto month = dashes ? reader.Number(2, 1, 12) : std::nullopt;
  const auto day = month && reader.Take("-") ? reader.Number(2, 1, 31) : std::nullopt;
  if (!day) return std::nullopt;
  std::tm parts{};
  parts.tm_year = *year - 1900;
  parts.tm_mon = *month - 1;
  parts.tm_mday = *day;

  if (reader.Take("T ")) {
    const auto hour = reader.Number(2, 0, 23);
    const auto minute = hour && reader.Take(":") ? reader.Number(2, 0, 59) : std::nullopt;
    if (!minute) return std::nullopt;
    const auto second = reader.Take(":") ? reader.Number(2, 0, 60) : 0;
    if (!second) return std::nullopt;
    if (reader.Take(".,")) reader.SkipDigits();
    reader.Take(" ");
    parts.tm_hour = *hour;
    parts.tm_min = *minute;
    parts.tm_sec = *second;
  }
  const std::optional<std::int64_t> zone = ParseZone(reader);
  if (!zone) return std::nullopt;
  return static_cast<std::int64_t>(timegm(&parts)) - *zone;
}

/// Reads a time before now, such as "3 days ago".
std::optional<std::int64_t> ParseAge(std::string_view text) {
  constexpr std::int64_t kDay = 86400;
  constexpr std::pair<std::string_view, std::int64_t> kUnits[] = {
      {"second", 1},      {"minute", 60},       {"hour", 3600},      {"day", kDay},
      {"week", 7 * kDay}, {"month", 30 * kDay}, {"year", 365 * kDay}};
  const auto now = static_cast<std::int64_t>(std::time(nullptr));
  if (text == "now") return now;
  if (text == "yesterday") return now - kDay;
  std::int64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || count < 0 || count > 1000000) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  for (const auto& [name, seconds] : kUnits) {
    for (const std::string_view plural : {"", "s"}) {
      if (text == " " + std::string(name) + std::string(plural) + " ago")
        return now - count * seconds;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<TalVcs::Time> ParseTime(const std::string& text) {
  const std::string_view trimmed = WithoutBlanks(text);
  std::int64_t seconds = 0;
  const char* const end = trimmed.data() + trimmed.size();
  const auto [stop, error] = std::from_chars(trimmed.data(), end, seconds);
  if (error != std::errc() || stop != end) {
    const std::optional<std::int64_t> date = ParseDate(trimmed);
    if (!date) return std::nullopt;
    seconds = *date;
  }
  if (seconds < 0) return std::nullopt;
  return TalVcs::Time::FromTimeT(seconds);
}

std::chrono::sys_seconds TimeOfOption(const std::string& text) {
  std::optional<std::int64_t> seconds = ParseAge(WithoutBlanks(text));
  if (const std::optional<TalVcs::Time> time = ParseTime(text)) seconds = time->ToTimeT();
  if (!seconds)
    throw Failure(
        "\"" + Printable(text) + "\" is no time; write one such as 2024-05-31 or \"2 weeks ago\"",
        ExitCode::Usage);
  return std::chrono::sys_seconds(std::chrono::seconds(*seconds));
}

}  // namespace Tal
