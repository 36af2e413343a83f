#pragma once

#include <talvcs/export.h>

#include <compare>
#include <cstdint>

namespace TalUtils {

/// The zone in which seconds are counted. There is one: UTC.
enum class TimeZone { Utc = 0 };

/// A span of time in ticks of 100 ns; 36000000000 ticks are one hour.
struct TimeDelta {
  std::int64_t ticks = 0;  ///< Ticks of 100 ns, negative for back.

  friend constexpr bool operator==(TimeDelta, TimeDelta) noexcept = default;
  friend constexpr auto operator<=>(TimeDelta, TimeDelta) noexcept = default;
};

/// An instant, in ticks of 100 ns since the Unix epoch.
///
/// Instants are compared by their unsigned ticks. An instant before the epoch has the ticks of the
/// negative count, modulo 2 to the power 64.
struct TALVCS_API Time {
  std::uint64_t ticks = 0;  ///< Ticks of 100 ns since the Unix epoch.

  /// Returns the present instant, from the system's clock.
  static Time Now();

  /// Returns the instant `seconds` after the epoch, or before it if negative. Counts beyond the
  /// range of the ticks wrap around.
  static Time FromTimeT(std::int64_t seconds, TimeZone zone = TimeZone::Utc) noexcept;

  /// Returns the whole seconds since the epoch, rounded down, with the ticks read as signed.
  std::int64_t ToTimeT(TimeZone zone = TimeZone::Utc) const noexcept;

  friend constexpr bool operator==(Time, Time) noexcept = default;
  friend constexpr auto operator<=>(Time, Time) noexcept = default;
};

namespace DateTime {

/// Returns the local offset from UTC that is in force at `instant`: positive east of Greenwich. It
/// is zero where the system knows no local time for the instant.
TALVCS_API TimeDelta GetCurrentTimezoneBias(Time instant);

}  // namespace DateTime
}  // namespace TalUtils
