#include <talvcs/format/internal/commit_format.h>

#include <talvcs/format/id_text.h>
#include <talvcs/foundation/internal/utf.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <system_error>
#include <vector>

namespace TalVcs {

namespace {

constexpr std::int64_t kTicksPerMinute = 600'000'000;
constexpr std::int64_t kMostMinutes =
    std::numeric_limits<decltype(TimeDelta::ticks)>::max() / kTicksPerMinute;

constexpr std::string_view kTreeKey = "tree ";
constexpr std::string_view kParentKey = "parent ";
constexpr std::string_view kAuthorKey = "author ";
constexpr std::string_view kCommitterKey = "\ncommitter ";
constexpr std::string_view kEmailStart = " <";
constexpr std::string_view kEmailEnd = "> ";

bool TakeKey(std::string_view& rest, std::string_view key) noexcept {
  if (!rest.starts_with(key)) return false;
  rest.remove_prefix(key.size());
  return true;
}

/// Takes an id with its line end. An empty line has an empty id.
std::optional<std::string_view> TakeIdLine(std::string_view& rest) noexcept {
  const std::size_t end = std::min(rest.find('\n'), kIdLength);
  const std::string_view id = rest.substr(0, end);
  if (!id.empty() && !IsIdText(id)) return std::nullopt;
  rest.remove_prefix(id.size());
  return TakeKey(rest, "\n") ? std::optional(id) : std::nullopt;
}

/// Returns the number that all of `digits` make, if they are written as a number is.
template <class Number>
std::optional<Number> ReadNumber(std::string_view digits, std::size_t fewestDigits) noexcept {
  Number number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  const std::string_view unsigned_digits = digits.substr(digits.front() == '-' ? 1 : 0);
  if (unsigned_digits.size() < fewestDigits) return std::nullopt;
  if (unsigned_digits.size() > fewestDigits && unsigned_digits.front() == '0') return std::nullopt;
  if (number == 0 && digits.front() == '-') return std::nullopt;
  return number;
}

std::optional<TimeDelta> ReadZone(std::string_view zone) noexcept {
  constexpr std::size_t kDigits = 2;
  if (zone.size() < 1 + 2 * kDigits || (zone.front() != '+' && zone.front() != '-')) {
    return std::nullopt;
  }
  const auto hours = ReadNumber<std::uint32_t>(zone.substr(1, zone.size() - 1 - kDigits), kDigits);
  const auto minutes = ReadNumber<std::uint32_t>(zone.substr(zone.size() - kDigits), kDigits);
  if (!hours || !minutes || *minutes >= 60) return std::nullopt;
  const bool west = zone.front() == '-';
  const std::int64_t total = std::int64_t{*hours} * 60 + *minutes;
  if (total > kMostMinutes || (west && *hours == 0)) return std::nullopt;
  return TimeDelta{(west ? -total : total) * kTicksPerMinute};
}

/// Reads the end of an info, from the e-mail's end on. Returns where it begins, or nothing if the
/// info ends in another way.
std::optional<std::size_t> ReadStamp(std::string_view info, CommitFields& fields) noexcept {
  constexpr std::size_t kLongestStamp = 26;  // 11 characters of seconds, 12 of a zone, separators
  const std::size_t skipped = info.size() - std::min(info.size(), kLongestStamp);
  const std::size_t close = info.substr(skipped).rfind(kEmailEnd);
  if (close == std::string_view::npos) return std::nullopt;
  const std::string_view stamp = info.substr(skipped + close + kEmailEnd.size());
  const std::size_t blank = stamp.find(' ');
  if (blank == std::string_view::npos) return std::nullopt;
  const auto seconds = ReadNumber<std::int32_t>(stamp.substr(0, blank), 1);
  const auto bias = ReadZone(stamp.substr(blank + 1));
  if (!seconds || !bias) return std::nullopt;
  fields.time = Time::FromTimeT(*seconds);
  fields.bias = *bias;
  return skipped + close;
}

/// Returns, for each index, how many bytes from there on are equal to the beginning of `text`. The
/// window [left, right) is the match that reaches furthest, so no byte is compared twice.
std::vector<std::size_t> MatchesOfBeginning(std::string_view text) {
  std::vector<std::size_t> matches(text.size());
  std::size_t left = 0;
  std::size_t right = 0;
  for (std::size_t at = 1; at < text.size(); ++at) {
    std::size_t match = at < right ? std::min(right - at, matches[at - left]) : 0;
    while (at + match < text.size() && text[match] == text[at + match]) ++match;
    matches[at] = match;
    if (at + match > right) {
      left = at;
      right = at + match;
    }
  }
  return matches;
}

/// Finds the shortest info with which a text begins and that comes again after "committer ".
///
/// A name or e-mail can hold "committer " itself, many times. Each place costs a few steps: the
/// start of the e-mail is found once, the stamp has a greatest length, and a table of matches, made
/// when the first comparison fails, answers all others.
class InfoSearch {
 public:
  explicit InfoSearch(std::string_view text) noexcept
      : m_text(text), m_emailStart(text.find(kEmailStart)) {}

  /// Reads both infos and returns what follows them. Returns nothing if there is no such info.
  std::optional<std::string_view> TakeInfos(CommitFields& fields) {
    for (std::size_t size = m_text.find(kCommitterKey); size != std::string_view::npos;
         size = m_text.find(kCommitterKey, size + 1)) {
      const std::size_t again = size + kCommitterKey.size();
      if (m_text.size() - again < size) return std::nullopt;
      const std::string_view rest = m_text.substr(again + size);
      if (rest.starts_with("\n\n") && Split(size, fields) && ComesAgain(size, again)) return rest;
    }
    return std::nullopt;
  }

 private:
  bool Split(std::size_t size, CommitFields& fields) noexcept {
    const auto close = ReadStamp(m_text.substr(0, size), fields);
    if (!close || m_emailStart > *close) return false;
    const std::size_t email = m_emailStart + kEmailStart.size();
    if (email > *close) return false;
    fields.authorName = m_text.substr(0, m_emailStart);
    fields.authorEmail = m_text.substr(email, *close - email);
    return true;
  }
  bool ComesAgain(std::size_t size, std::size_t again) {
    if (m_matches.empty()) {
      if (m_text.substr(again, size) == m_text.substr(0, size)) return true;
      m_matches = MatchesOfBeginning(m_text);
    }
    return m_matches[again] >= size;
  }

  std::string_view m_text;
  std::size_t m_emailStart;
  std::vector<std::size_t> m_matches;
};

}  // namespace

std::optional<CommitFields> ReadCommitText(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  if (!TalPlatform::IsExactUtf8(text.data(), text.size())) return std::nullopt;
  CommitFields fields;
  std::string_view rest = text;
  if (!TakeKey(rest, kTreeKey)) return std::nullopt;
  const auto tree = TakeIdLine(rest);
  if (!tree) return std::nullopt;
  fields.treeId = *tree;
  if (TakeKey(rest, kParentKey)) {
    const auto parent = TakeIdLine(rest);
    if (!parent || parent->empty()) return std::nullopt;
    fields.parentId = *parent;
  }
  if (!TakeKey(rest, kAuthorKey)) return std::nullopt;
  const auto after = InfoSearch(rest).TakeInfos(fields);
  // Two line ends come before the description and one after it.
  if (!after || after->size() < 3 || after->back() != '\n') return std::nullopt;
  fields.description = after->substr(2, after->size() - 3);
  return fields;
}

}  // namespace TalVcs
