#pragma once

#include <chrono>
#include <string>
#include <string_view>

/// What git can't hold, and what takes its place. A function returns its argument if git can hold
/// it. Different paths and different names of branches stay different.
namespace Tal {

/// Returns the path for git. Git refuses the names "." and "..", and what some file system takes
/// for ".git": the first character of such a name becomes "%" and two hexadecimal digits. So does
/// the "%" of a name that looks like the result.
std::string GitPath(std::string_view path);

/// Returns the name of a branch or tag for git. Bytes that git refuses at their place become "%"
/// and two hexadecimal digits, and so does "%" before two such digits. The empty name becomes
/// "%00". Returns an empty text for a name with a part of more than 240 bytes, which file systems
/// can't hold.
std::string GitRefName(std::string_view name);

/// Returns the name or address of a person for git: "<" and ">" become "(" and ")", line ends
/// become blanks.
std::string GitPerson(std::string_view text);

/// Returns a time for git, as seconds and offset. Git knows no time before 1970 and no offset of
/// more than 14 hours: such a time or offset becomes 0.
std::string GitTime(std::chrono::sys_seconds time, std::chrono::minutes offset);

}  // namespace Tal
