#pragma once

#include <talvcs/talvcs.h>

#include <chrono>
#include <optional>
#include <string>

namespace Tal {

/// Reads an instant: seconds since 1970, or a date such as "2024-05-31T18:05:00+02:00", of which
/// the zone, the seconds, or the time as a whole may be missing; without a zone it is UTC. Blanks
/// and a line end around it don't matter. Returns nothing for other text and for instants before
/// 1970.
std::optional<TalVcs::Time> ParseTime(const std::string& text);

/// Reads the time of an option: an instant, or a time before now such as "2 weeks ago", "yesterday"
/// or "now". Throws `Failure` with `Usage` for other text.
std::chrono::sys_seconds TimeOfOption(const std::string& text);

}  // namespace Tal
