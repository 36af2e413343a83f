#pragma once

#include <kit/text.h>
#include <kit/text/times.h>
#include <kit/workspace/version.h>
#include <talvcs/talvcs.h>

#include <string>
#include <string_view>

namespace Tal {

/// Inside the program all text is UTF-8; these convert where it meets the library.
using TalVcs::Kit::ToUtf8;
using TalVcs::Kit::ToWide;
using TalVcs::Kit::ToWideExactly;
using TalVcs::Kit::WideString;
using TalVcs::Kit::WideView;

inline std::string ToUtf8(const TalVcs::Id& id) { return ToUtf8(id.View()); }

/// Returns the first ten characters of an id, as pictures and reports have it. `ShortIdOf` makes
/// those that commands print.
inline std::string ShortId(std::string_view id) { return std::string(id.substr(0, 10)); }

/// Returns the version's time in its own time zone, such as "2024-05-31 18:05:00 +0200".
inline std::string FormatTime(const TalVcs::Kit::Version& version) {
  return TalVcs::Kit::FormatTime(version.time, version.offset);
}

}  // namespace Tal
