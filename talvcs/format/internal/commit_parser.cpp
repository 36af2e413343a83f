#include <talvcs/format/internal/commit_parser.h>

#include <talvcs/foundation/helpers.h>
#include <talvcs/foundation/string_conversion.h>
#include <talvcs/objects/internal/commit_access.h>

namespace TalVcs {

namespace {

constexpr std::int64_t kTicksPerMinute = 600'000'000;

Id IdOfText(const TalStringT<char>& text) { return Id(TalStringT<WideChar>(text)); }

// Indices of a search that failed are -1; the cutting of texts takes any index.
void ParseAuthor(const TalStringT<char>& author, CommitText& parsed) {
  using TalUtils::String::Int64FromString;
  using TalUtils::String::IntFromString;
  const int open = author.Find("<", 0);
  const int close = author.Find(">", open);
  parsed.authorName = TalUtils::String::ToStringW(author.Left(open - 1));
  parsed.authorEmail = TalUtils::String::ToStringW(author.Mid(open + 1, close - open - 1));
  const TalStringT<char> stamp = author.Mid(close + 2);
  const int blank = stamp.Find(" ");
  const TalStringT<WideChar> seconds(stamp.Left(blank));
  const TalStringT<WideChar> zone(stamp.Mid(blank + 1));
  const std::int64_t sign = zone.GetAt(0) == TAL_WIDE('+') ? 1 : -1;
  const std::int64_t hours = sign * IntFromString(zone.Mid(1, 2));
  const std::int64_t minutes = sign * IntFromString(zone.Mid(3, 4));
  parsed.time = Time::FromTimeT(Int64FromString(seconds));
  parsed.bias = TimeDelta{(hours * 60 + minutes) * kTicksPerMinute};
}

}  // namespace

CommitText ParseCommit(StreamIO stream) {
  CommitText parsed;
  if (!Helpers::ShiftObjectIdentifier(stream, "commit ")) return parsed;
  const TalStringT<char> text = Helpers::StreamToStringA(stream);
  if (text.IsEmpty()) return parsed;
  int position = 0;
  const auto tree = CommitAccess::ParseCommitInfo(text, "tree ", position);
  if (!tree) return parsed;
  parsed.readable = true;
  parsed.treeId = IdOfText(*tree);
  if (const auto parent = CommitAccess::ParseCommitInfo(text, "parent ", position)) {
    parsed.parentId = IdOfText(*parent);
  }
  const auto author = CommitAccess::ParseCommitInfo(text, "author ", position);
  ParseAuthor(author.value_or(TalStringT<char>()), parsed);
  const auto description = CommitAccess::ParseCommitInfo(text, "\n\n", position);
  if (description) parsed.description = TalUtils::String::ToStringW(*description);
  return parsed;
}

}  // namespace TalVcs
