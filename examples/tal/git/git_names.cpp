#include "git_names.h"

#include <kit/text/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace Tal {
namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

std::string Percent(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
}

/// Returns the character that `Percent` has written at the beginning of the text, or none.
std::optional<char> FromPercent(std::string_view text) {
  if (text.size() < 3 || text[0] != '%') return std::nullopt;
  const std::size_t high = kDigits.find(text[1]);
  const std::size_t low = kDigits.find(text[2]);
  if (high == kDigits.npos || low == kDigits.npos) return std::nullopt;
  return static_cast<char>(high * 16 + low);
}

/// Characters that a file system of macOS passes over when it compares names.
bool IsPassedOver(std::uint32_t code) {
  return (code >= 0x200C && code <= 0x200F) || (code >= 0x202A && code <= 0x202E) ||
         (code >= 0x206A && code <= 0x206F) || code == 0xFEFF;
}

/// Returns the name as a file system that ignores case and some characters compares it.
std::string Folded(std::string_view name) {
  std::string folded;
  for (std::size_t at = 0; at < name.size();) {
    const TalVcs::Kit::Utf8Character character = TalVcs::Kit::DecodeUtf8(name, at);
    if (name[at] >= 'A' && name[at] <= 'Z') {
      folded += static_cast<char>(name[at] - 'A' + 'a');
    } else if (!IsPassedOver(character.code)) {
      folded += name.substr(at, character.sizeBytes);
    }
    at += character.sizeBytes;
  }
  return folded;
}

/// True for what a file system may take for the folder of a repository of git: Windows drops blanks
/// and dots at the end and what follows a colon, and knows a short name. It takes "\" for "/".
bool MayBeGitFolder(std::string_view name) {
  const std::string folded = Folded(name);
  for (const std::string_view folder : {".git", "git~1"}) {
    if (!folded.starts_with(folder)) continue;
    std::string_view rest = std::string_view(folded).substr(folder.size());
    while (rest.starts_with(' ') || rest.starts_with('.')) rest.remove_prefix(1);
    if (rest.empty() || rest.starts_with(':') || rest.starts_with('\\')) return true;
  }
  return false;
}

bool IsRefused(std::string_view name) {
  if (name == "." || name == "..") return true;
  for (;;) {
    if (MayBeGitFolder(name)) return true;
    const std::size_t next = name.find('\\');
    if (next == name.npos) return false;
    name.remove_prefix(next + 1);
  }
}

/// True for what is refused, and for what such a name becomes.
bool NeedsOtherName(std::string name) {
  for (;;) {
    if (IsRefused(name)) return true;
    const std::optional<char> first = FromPercent(name);
    if (!first) return false;
    name.replace(0, 3, 1, *first);
  }
}

/// Calls `change` with each part of `text` between "/", and joins the results.
template <class Change>
std::string WithParts(std::string_view text, const Change& change) {
  std::string result;
  for (;;) {
    const std::size_t end = std::min(text.find('/'), text.size());
    result += change(text.substr(0, end));
    if (end == text.size()) return result;
    result += '/';
    text.remove_prefix(end + 1);
  }
}

/// Git's rules for a part of the name of a branch.
bool IsRefusedInRef(std::string_view part, std::size_t at) {
  const char c = part[at];
  const auto code = static_cast<unsigned char>(c);
  if (code <= 0x20 || code == 0x7F) return true;
  if (std::string_view("~^:?*[\\").find(c) != std::string_view::npos) return true;
  if (c == '.') {
    return at == 0 || at + 1 == part.size() || part[at - 1] == '.' || part.substr(at) == ".lock";
  }
  return c == '@' && at + 1 < part.size() && part[at + 1] == '{';
}

std::string RefPart(std::string_view part) {
  std::string result;
  for (std::size_t at = 0; at < part.size(); ++at) {
    const bool needs_escape = IsRefusedInRef(part, at) || FromPercent(part.substr(at));
    result += needs_escape ? Percent(part[at]) : std::string(1, part[at]);
  }
  return result;
}

/// Replaces the separators that git refuses: at the ends, and after another one.
std::string WithoutEmptyParts(std::string_view name) {
  std::string result;
  for (std::size_t at = 0; at < name.size(); ++at) {
    const bool is_refused = at == 0 || at + 1 == name.size() || name[at - 1] == '/';
    result += name[at] == '/' && is_refused ? Percent('/') : std::string(1, name[at]);
  }
  return result;
}

}  // namespace

std::string GitPath(std::string_view path) {
  return WithParts(path, [](std::string_view name) {
    if (!NeedsOtherName(std::string(name))) return std::string(name);
    return Percent(name.front()) + std::string(name.substr(1));
  });
}

std::string GitRefName(std::string_view name) {
  constexpr std::size_t kLongestPart = 240;
  if (name.empty()) return "%00";
  bool is_too_long = false;
  std::string ref = WithParts(name, [&](std::string_view part) {
    std::string changed = RefPart(part);
    is_too_long |= changed.size() > kLongestPart;
    return changed;
  });
  if (is_too_long) return {};
  ref = WithoutEmptyParts(ref);
  // Git takes "@" and "HEAD" for the current branch, and "-" at the beginning for an option.
  if (ref.starts_with('-') || ref == "HEAD" || ref == "@") ref = Percent(ref[0]) + ref.substr(1);
  return ref;
}

std::string GitPerson(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c == '<') c = '(';
    if (c == '>') c = ')';
    if (c == '\n') c = ' ';
  }
  return result;
}

std::string GitTime(std::chrono::sys_seconds time, std::chrono::minutes offset) {
  constexpr std::chrono::minutes kMost = std::chrono::hours(14);
  if (offset > kMost || offset < -kMost) offset = {};
  const auto seconds = std::max<std::int64_t>(time.time_since_epoch().count(), 0);
  const auto minutes = std::abs(offset.count());
  std::string digits = std::to_string(minutes / 60 * 100 + minutes % 60);
  digits.insert(0, 4 - digits.size(), '0');
  return std::to_string(seconds) + (offset.count() < 0 ? " -" : " +") + digits;
}

}  // namespace Tal
