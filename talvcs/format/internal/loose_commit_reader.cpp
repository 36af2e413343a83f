#include <talvcs/format/internal/commit_format.h>
#include <talvcs/foundation/string_conversion.h>

#include <cstdint>

// A load takes what it can from a text that may be damaged. Indices of a search that failed are -1,
// and the cutting of texts takes any index.

namespace TalVcs {

namespace {

constexpr std::int64_t kTicksPerMinute = 600'000'000;

std::string_view Bytes(TalStringViewT<char> text) noexcept {
  return {text.text, static_cast<std::size_t>(text.length)};
}

TalStringViewT<char> After(TalStringViewT<char> text, int start) noexcept {
  return text.Mid(start, text.length);
}

TalStringT<WideChar> Wide(TalStringViewT<char> text) {
  return TalStringT<WideChar>(TalStringT<char>(text));
}

void ReadInfo(TalStringViewT<char> info, CommitFields& fields) {
  using TalUtils::String::Int64FromString;
  using TalUtils::String::IntFromString;
  const int open = info.Find("<", 0);
  const int close = info.Find(">", open);
  fields.authorName = Bytes(info.Mid(0, open - 1));
  fields.authorEmail = Bytes(info.Mid(open + 1, close - open - 1));
  const TalStringViewT<char> stamp = After(info, close + 2);
  const int blank = stamp.Find(" ");
  const TalStringT<WideChar> zone = Wide(After(stamp, blank + 1));
  const std::int64_t sign = zone.GetAt(0) == TAL_WIDE('+') ? 1 : -1;
  const std::int64_t hours = sign * IntFromString(zone.Mid(1, 2));
  const std::int64_t minutes = sign * IntFromString(zone.Mid(3, 4));
  fields.time = Time::FromTimeT(Int64FromString(Wide(stamp.Mid(0, blank))));
  fields.bias = TimeDelta{(hours * 60 + minutes) * kTicksPerMinute};
}

}  // namespace

std::optional<CommitFields> ReadLooseCommitText(TalStringViewT<char> text) {
  if (text.IsEmpty()) return std::nullopt;
  int position = 0;
  const auto tree = FindCommitValue(text, "tree ", position);
  if (!tree) return std::nullopt;
  CommitFields fields;
  fields.treeId = Bytes(*tree);
  if (const auto parent = FindCommitValue(text, "parent ", position)) {
    fields.parentId = Bytes(*parent);
  }
  const auto author = FindCommitValue(text, "author ", position);
  ReadInfo(author.value_or(TalStringViewT<char>()), fields);
  if (const auto description = FindCommitValue(text, "\n\n", position)) {
    fields.description = Bytes(*description);
  }
  return fields;
}

std::optional<TalStringViewT<char>> FindCommitValue(TalStringViewT<char> text,
                                                    TalStringViewT<char> key, int& position) {
  const int found = text.Find(key, position);
  if (found < 0) return std::nullopt;
  const int start = found + key.length;
  const int end = text.Find("\n", start);
  position = end;
  // Without a line end the count is negative and the value empty.
  return text.Mid(start, end - start);
}

}  // namespace TalVcs
