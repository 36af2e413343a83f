#pragma once

#include <talvcs/talvcs.h>

#include <optional>
#include <string>
#include <string_view>

namespace Tal {

using WideString = TalVcs::TalStringT<TalVcs::WideChar>;
using WideView = TalVcs::TalStringViewT<TalVcs::WideChar>;

/// Inside the program all text is UTF-8; these convert where it meets the library.
WideString ToWide(std::string_view utf8);
std::string ToUtf8(WideView text);
std::string ToUtf8(const TalVcs::Id& id);

/// Returns the wide form of `bytes` if those come back from it unchanged, and nothing otherwise: a
/// name or text that isn't UTF-8 has no wide form.
std::optional<WideString> ToWideExactly(std::string_view bytes);

/// Returns a copy of the bytes.
std::string ToBytes(const TalVcs::Buffer& buffer);

/// Returns the first characters of an id, as people read it.
std::string ShortId(std::string_view id);

/// Returns the commit's time in its own time zone, such as "2024-05-31 18:05:00 +0200".
std::string FormatTime(const TalVcs::Commit& commit);

}  // namespace Tal
