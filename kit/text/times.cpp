// time := blank* (seconds | date) blank*
// date := year "-" month "-" day [("T" | " ") hour ":" minute [":" second [("." | ",") digit*]]]
//         [" "] [zone]                          the last blank only after a time of day
// zone := "Z" | ("+" | "-") hour [":"] [minute]
// age  := blank* ("now" | "yesterday" | count " " unit ["s"] " ago") blank*

#include <kit/text/times.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace TalVcs::Kit {

namespace {

using std::chrono::sys_days;
using std::chrono::sys_seconds;
using Seconds = std::chrono::seconds;

constexpr std::int64_t kDay = 86400;

/// The units of an age with their seconds, the largest first.
constexpr std::array<std::pair<std::string_view, std::int64_t>, 7> kUnits = {{{"year", 365 * kDay},
                                                                              {"month", 30 * kDay},
                                                                              {"week", 7 * kDay},
                                                                              {"day", kDay},
                                                                              {"hour", 3600},
                                                                              {"minute", 60},
                                                                              {"second", 1}}};

std::string_view WithoutBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Takes numbers and separators off the beginning of a text.
class Reader {
 public:
  explicit Reader(std::string_view text) : m_rest(text) {}

  bool AtEnd() const { return m_rest.empty(); }

  bool Take(std::string_view anyOf) {
    if (m_rest.empty() || anyOf.find(m_rest.front()) == anyOf.npos) return false;
    m_rest.remove_prefix(1);
    return true;
  }

  /// Reads exactly `digits` digits, as a number between two limits.
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

/// Reads the offset from UTC, and the end of the text.
std::optional<Seconds> ParseZone(Reader& reader) {
  if (reader.AtEnd() || (reader.Take("Z") && reader.AtEnd())) return Seconds(0);
  const bool is_east = reader.Take("+");
  if (!is_east && !reader.Take("-")) return std::nullopt;
  const auto hours = reader.Number(2, 0, 23);
  reader.Take(":");
  const auto minutes = reader.AtEnd() ? 0 : reader.Number(2, 0, 59);
  if (!hours || !minutes || !reader.AtEnd()) return std::nullopt;
  const Seconds offset(*hours * 3600 + *minutes * 60);
  return is_east ? offset : -offset;
}

/// Reads the time of a day.
std::optional<Seconds> ParseClock(Reader& reader) {
  const auto hour = reader.Number(2, 0, 23);
  const auto minute = hour && reader.Take(":") ? reader.Number(2, 0, 59) : std::nullopt;
  if (!minute) return std::nullopt;
  const auto second = reader.Take(":") ? reader.Number(2, 0, 60) : 0;
  if (!second) return std::nullopt;
  if (reader.Take(".,")) reader.SkipDigits();
  reader.Take(" ");
  return Seconds(*hour * 3600 + *minute * 60 + *second);
}

std::optional<sys_seconds> ParseDate(std::string_view text) {
  Reader reader(text);
  const auto year = reader.Number(4, 1970, 9999);
  const auto month = year && reader.Take("-") ? reader.Number(2, 1, 12) : std::nullopt;
  const auto day = month && reader.Take("-") ? reader.Number(2, 1, 31) : std::nullopt;
  if (!day) return std::nullopt;
  std::optional<Seconds> clock = Seconds(0);
  if (reader.Take("T ")) clock = ParseClock(reader);
  const std::optional<Seconds> zone = clock ? ParseZone(reader) : std::nullopt;
  if (!zone) return std::nullopt;
  const sys_days first(std::chrono::year(*year) / *month / 1);
  return first + std::chrono::days(*day - 1) + *clock - *zone;
}

}  // namespace

std::string FormatTime(sys_seconds time, std::chrono::minutes offset) {
  const sys_seconds local = time + offset;
  const sys_days midnight = std::chrono::floor<std::chrono::days>(local);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss clock(local - midnight);
  const auto distance = static_cast<int>(std::abs(offset.count()));
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%d-%02u-%02u %02d:%02d:%02d %c%02d%02d",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), offset.count() < 0 ? '-' : '+',
                distance / 60, distance % 60);
  return text.data();
}

std::string FormatAge(sys_seconds time, sys_seconds now) {
  const std::int64_t age = (now - time).count();
  if (age < 0) return "in the future";
  for (const auto& [unit, seconds] : kUnits) {
    const std::int64_t count = age / seconds;
    if (count == 0) continue;
    return std::to_string(count) + " " + std::string(unit) + (count == 1 ? "" : "s") + " ago";
  }
  return "now";
}

std::optional<sys_seconds> ParseTime(std::string_view text) {
  text = WithoutBlanks(text);
  std::int64_t seconds = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  const bool is_number = error == std::errc() && stop == end;
  const std::optional<sys_seconds> time =
      is_number ? std::optional(sys_seconds(Seconds(seconds))) : ParseDate(text);
  if (!time || time->time_since_epoch().count() < 0) return std::nullopt;
  return time;
}

std::optional<sys_seconds> ParseAge(std::string_view text, sys_seconds now) {
  text = WithoutBlanks(text);
  if (text == "now") return now;
  if (text == "yesterday") return now - Seconds(kDay);
  std::int64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || count < 0 || count > 1000000) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  for (const auto& [unit, seconds] : kUnits) {
    const std::string one = " " + std::string(unit);
    if (text == one + " ago" || text == one + "s ago") return now - Seconds(count * seconds);
  }
  return std::nullopt;
}

}  // namespace TalVcs::Kit
