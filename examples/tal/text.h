#pragma once

#include <kit/text.h>
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

/// Returns the first ten characters of an id, as pictures and reports have it. `ShortIds` makes
/// those that commands print.
std::string ShortId(std::string_view id);

/// Returns the version's time in its own time zone, such as "2024-05-31 18:05:00 +0200".
std::string FormatTime(const TalVcs::Kit::Version& version);

/// Returns how long ago a version was made, such as "3 days ago".
std::string FormatAge(const TalVcs::Kit::Version& version);

/// Returns the text as one line, with "\\" for "\" and "\n" for a line feed, and the other way
/// round.
std::string EscapeLine(std::string_view text);
std::string UnescapeLine(std::string_view escaped);

}  // namespace Tal
