#include <talvcs/foundation/time.h>

#include <chrono>
#include <ctime>

namespace TalUtils {

namespace {

constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kSecondsPerDay = 86'400;

using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, kTicksPerSecond>>;

// Reads the fields of a broken-down time as if they were UTC.
std::int64_t SecondsOfFields(const std::tm& fields) {
  const std::chrono::year_month_day date{
      std::chrono::year{fields.tm_year + 1900},
      std::chrono::month{static_cast<unsigned>(fields.tm_mon + 1)},
      std::chrono::day{static_cast<unsigned>(fields.tm_mday)}};
  const std::int64_t days = std::chrono::sys_days{date}.time_since_epoch().count();
  return days * kSecondsPerDay + fields.tm_hour * 3600 + fields.tm_min * 60 + fields.tm_sec;
}

bool ToLocalFields(std::time_t seconds, std::tm& fields) {
#ifdef _WIN32
  return localtime_s(&fields, &seconds) == 0;
#else
  return localtime_r(&seconds, &fields) != nullptr;
#endif
}

}  // namespace

Time Time::Now() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return {static_cast<std::uint64_t>(std::chrono::floor<Ticks>(now).count())};
}

Time Time::FromTimeT(std::int64_t seconds, TimeZone) noexcept {
  return {static_cast<std::uint64_t>(seconds) * static_cast<std::uint64_t>(kTicksPerSecond)};
}

std::int64_t Time::ToTimeT(TimeZone) const noexcept {
  const auto count = static_cast<std::int64_t>(ticks);
  const std::int64_t seconds = count / kTicksPerSecond;
  return count % kTicksPerSecond < 0 ? seconds - 1 : seconds;
}

namespace DateTime {

TimeDelta GetCurrentTimezoneBias(Time instant) {
  const std::int64_t seconds = instant.ToTimeT();
  std::tm fields{};
  if (!ToLocalFields(static_cast<std::time_t>(seconds), fields)) return {};
  return {(SecondsOfFields(fields) - seconds) * kTicksPerSecond};
}

}  // namespace DateTime
}  // namespace TalUtils
