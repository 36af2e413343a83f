#pragma once

#include <kit/export.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// Returns a time in the zone that is `offset` east of UTC, such as "2024-05-31 18:05:00 +0200".
/// For a version, these are `Version::time` and `Version::offset`.
[[nodiscard]] TALVCS_KIT_API std::string FormatTime(std::chrono::sys_seconds time,
                                                    std::chrono::minutes offset);

/// Returns how long before `now` a time is, such as "3 days ago", in the largest unit of which it
/// is at least one: years of 365 days, months of 30 days, weeks, days, hours, minutes, seconds.
/// Returns "now" for the same second and "in the future" for a time after it.
[[nodiscard]] TALVCS_KIT_API std::string FormatAge(std::chrono::sys_seconds time,
                                                   std::chrono::sys_seconds now);

/// Reads a time: seconds since 1970, or a date such as "2024-05-31T18:05:00+02:00", of which the
/// zone, the seconds, or the time as a whole may be missing. Without a zone it is UTC. A blank may
/// separate the parts, and a fraction of a second is skipped. Blanks and a line end around the text
/// are skipped. A day that its month lacks is counted on: February 30 is the day after February 29.
///
/// Returns nothing for any other text and for a time before 1970.
[[nodiscard]] TALVCS_KIT_API std::optional<std::chrono::sys_seconds> ParseTime(
    std::string_view text);

/// Reads a time before `now`, such as "2 weeks ago", "1 day ago", "yesterday" or "now": the texts
/// of `FormatAge`, with any count up to a million. Blanks and a line end around the text are
/// skipped. Returns nothing for any other text.
[[nodiscard]] TALVCS_KIT_API std::optional<std::chrono::sys_seconds> ParseAge(
    std::string_view text, std::chrono::sys_seconds now);

}  // namespace TalVcs::Kit
