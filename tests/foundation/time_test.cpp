#include <talvcs/foundation/time.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>
#include <string>

namespace TalVcs::Testing {
namespace {

using TalUtils::Time;
using TalUtils::TimeDelta;
using TalUtils::TimeZone;
using TalUtils::DateTime::GetCurrentTimezoneBias;

constexpr std::int64_t kMinute = 600'000'000;
constexpr std::int64_t kHour = 36'000'000'000;

/// Sets the zone of this process for the duration of a test. Names of zones have three letters, as
/// Windows wants them.
class ZoneGuard {
 public:
  explicit ZoneGuard(const char* zone) {
    if (const char* old = std::getenv("TZ")) m_old = old;
    Set(zone);
  }
  ZoneGuard(const ZoneGuard&) = delete;
  ZoneGuard& operator=(const ZoneGuard&) = delete;
  ~ZoneGuard() { Set(m_old ? m_old->c_str() : nullptr); }

 private:
  static void Set(const char* zone) {
#ifdef _WIN32
    _putenv_s("TZ", zone == nullptr ? "" : zone);
    _tzset();
#else
    if (zone == nullptr) {
      unsetenv("TZ");
    } else {
      setenv("TZ", zone, 1);
    }
    tzset();
#endif
  }

  std::optional<std::string> m_old;
};

TEST(Time, DefaultIsTheEpoch) {
  EXPECT_EQ(Time().ticks, 0U);
  EXPECT_EQ(Time().ToTimeT(TimeZone::Utc), 0);
  EXPECT_EQ(Time::FromTimeT(0, TimeZone::Utc), Time());
}

TEST(Time, SecondsAreTenMillionTicks) {
  EXPECT_EQ(Time::FromTimeT(1).ticks, 10'000'000U);
  EXPECT_EQ(Time::FromTimeT(1'700'000'000).ticks, 17'000'000'000'000'000U);
}

TEST(Time, FractionsAreRoundedDown) {
  EXPECT_EQ(Time{19'999'999}.ToTimeT(), 1);
  EXPECT_EQ(Time{20'000'000}.ToTimeT(), 2);
  EXPECT_EQ(Time{static_cast<std::uint64_t>(-1)}.ToTimeT(), -1);
  EXPECT_EQ(Time{static_cast<std::uint64_t>(-10'000'000)}.ToTimeT(), -1);
  EXPECT_EQ(Time{static_cast<std::uint64_t>(-10'000'001)}.ToTimeT(), -2);
}

TEST(Time, SecondsSurviveThereAndBack) {
  for (const std::int64_t seconds :
       {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, std::int64_t{1'700'000'000},
        std::int64_t{-1'700'000'000}, std::int64_t{2'147'483'648}, std::int64_t{-2'147'483'649},
        std::int64_t{922'337'203'685}, std::int64_t{-922'337'203'685}}) {
    EXPECT_EQ(Time::FromTimeT(seconds).ToTimeT(), seconds);
  }
}

TEST(Time, ThereAndBackCutsToWholeSeconds) {
  const Time instant{17'000'000'001'234'567};
  EXPECT_EQ(Time::FromTimeT(instant.ToTimeT()).ticks, 17'000'000'000'000'000U);
}

TEST(Time, ComparesAsUnsigned) {
  EXPECT_LT(Time{1}, Time{2});
  // An instant before the epoch counts as later than all that follow it.
  EXPECT_GT(Time::FromTimeT(-1), Time::FromTimeT(1));
  EXPECT_EQ(Time{5}, Time{5});
}

TEST(Time, NowIsTheSystemsClock) {
  // std::time may lag by the timer's last tick.
  const auto seconds = [] {
    const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::floor<std::chrono::seconds>(since_epoch).count();
  };
  const std::int64_t before = seconds();
  const std::int64_t now = Time::Now().ToTimeT();
  const std::int64_t after = seconds();
  EXPECT_GE(now, before);
  EXPECT_LE(now, after);
}

TEST(TimeDelta, DefaultIsZero) {
  EXPECT_EQ(TimeDelta().ticks, 0);
  EXPECT_EQ(TimeDelta{kHour}, TimeDelta{36'000'000'000});
  EXPECT_LT(TimeDelta{-1}, TimeDelta{});
}

TEST(TimezoneBias, IsPositiveEastOfGreenwich) {
  // In these descriptions of zones the sign says what to add to get UTC.
  const ZoneGuard zone("EST-5:30");
  EXPECT_EQ(GetCurrentTimezoneBias(Time::FromTimeT(1'700'000'000)).ticks, 5 * kHour + 30 * kMinute);
}

TEST(TimezoneBias, IsNegativeWestOfGreenwich) {
  const ZoneGuard zone("WST8");
  EXPECT_EQ(GetCurrentTimezoneBias(Time::FromTimeT(1'700'000'000)).ticks, -8 * kHour);
}

TEST(TimezoneBias, OfUtcIsZero) {
  const ZoneGuard zone("UTC0");
  EXPECT_EQ(GetCurrentTimezoneBias(Time::FromTimeT(1'700'000'000)).ticks, 0);
}

TEST(TimezoneBias, IsTheOneInForceAtTheInstant) {
  // Without rules of its own the zone has summer time in July everywhere.
  const ZoneGuard zone("CET-1CES");
  const Time january = Time::FromTimeT(1'704'067'200);  // 2024-01-01
  const Time july = Time::FromTimeT(1'719'792'000);     // 2024-07-01
  EXPECT_EQ(GetCurrentTimezoneBias(january).ticks, kHour);
  EXPECT_EQ(GetCurrentTimezoneBias(july).ticks, 2 * kHour);
}

TEST(TimezoneBias, CrossesDaysAndYears) {
  const ZoneGuard zone("FAR-14");
  const Time new_years_eve = Time::FromTimeT(1'704'067'199);  // 2023-12-31 23:59:59
  EXPECT_EQ(GetCurrentTimezoneBias(new_years_eve).ticks, 14 * kHour);
  EXPECT_EQ(GetCurrentTimezoneBias(Time()).ticks, 14 * kHour);
}

TEST(TimezoneBias, IsZeroIfTheSystemHasNoLocalTime) {
  const ZoneGuard zone("FAR-14");
#ifdef _WIN32
  EXPECT_EQ(GetCurrentTimezoneBias(Time::FromTimeT(-1)).ticks, 0);
#else
  EXPECT_EQ(GetCurrentTimezoneBias(Time::FromTimeT(-1)).ticks, 14 * kHour);
#endif
}

}  // namespace
}  // namespace TalVcs::Testing
