#include <talvcs/format/internal/commit_format.h>
#include <talvcs/foundation/helpers.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace TalVcs {

namespace {

constexpr std::int64_t kTicksPerMinute = 600'000'000;
constexpr std::int64_t kTicksPerHour = 60 * kTicksPerMinute;

// U+0000 ends a text where it is written.
TalStringViewT<WideChar> UpToZero(TalStringViewT<WideChar> text) {
  const int zero = text.Find(WideChar());
  return zero < 0 ? text : text.Mid(0, zero);
}

void AppendAscii(TalStringT<WideChar>& text, const std::string& ascii) {
  for (const char character : ascii) text += static_cast<WideChar>(character);
}

std::string TwoDigits(std::int64_t value) {
  const std::string digits = std::to_string(value);
  return digits.size() < 2 ? "0" + digits : digits;
}

}  // namespace

Buffer WriteCommitText(const CommitContent& content) {
  TalStringT<WideChar> head(TAL_WIDE("tree "));
  head.Append(content.treeId);
  head += TAL_WIDE('\n');
  if (content.hasParent) {
    head += TAL_WIDE("parent ");
    head.Append(content.parentId);
    head += TAL_WIDE('\n');
  }
  for (const auto* role : {TAL_WIDE("author"), TAL_WIDE("committer")}) {
    head.Append(
        WriteInfoLine(role, content.authorName, content.authorEmail, content.time, content.bias));
    head += TAL_WIDE('\n');
  }
  head += TAL_WIDE('\n');
  head.Append(UpToZero(content.description));
  head += TAL_WIDE('\n');
  Buffer text;
  Helpers::AppendToBuffer(text, head);
  return text;
}

// The sign is that of the hours alone, so a negative bias of less than an hour is written with "+".
// The ids of all commits depend on it.
TalStringT<WideChar> WriteInfoLine(TalStringViewT<WideChar> role, TalStringViewT<WideChar> name,
                                   TalStringViewT<WideChar> email, Time time, TimeDelta bias) {
  const std::int64_t hours = bias.ticks / kTicksPerHour;
  const std::int64_t minutes = bias.ticks / kTicksPerMinute;
  TalStringT<WideChar> info(UpToZero(role));
  info += TAL_WIDE(' ');
  info.Append(UpToZero(name));
  info += TAL_WIDE(" <");
  info.Append(UpToZero(email));
  AppendAscii(info, "> " + std::to_string(static_cast<std::int32_t>(time.ToTimeT())) +
                        (hours < 0 ? " -" : " +") + TwoDigits(std::abs(hours)) +
                        TwoDigits(std::abs(minutes) % 60));
  return info;
}

}  // namespace TalVcs
