#include <kit/diff/internal/line_matches.h>
#include <kit/diff/internal/slide_changes.h>
#include <kit/diff/line_diff.h>

namespace TalVcs::Kit {

std::vector<std::string_view> SplitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::size_t size = end == std::string_view::npos ? text.size() : end + 1;
    lines.push_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return lines;
}

LineChanges FindLineChanges(std::span<const std::string_view> before,
                            std::span<const std::string_view> after,
                            const LineDiffOptions& options) {
  LineMatches matches = MatchLines(before, after, options.mostSteps);
  SlideChanges(before, after, matches.kept);
  matches.kept.push_back({before.size(), after.size()});
  LineChanges result;
  result.isShortest = matches.isShortest;
  std::size_t before_line = 0;
  std::size_t after_line = 0;
  for (const LineMatch& kept : matches.kept) {
    if (before_line < kept.before || after_line < kept.after) {
      result.changes.push_back(
          {before_line, kept.before - before_line, after_line, kept.after - after_line});
    }
    before_line = kept.before + 1;
    after_line = kept.after + 1;
  }
  return result;
}

std::vector<DiffLine> DiffLines(std::string_view before, std::string_view after,
                                const LineDiffOptions& options) {
  const std::vector<std::string_view> old_lines = SplitLines(before);
  const std::vector<std::string_view> new_lines = SplitLines(after);
  std::vector<DiffLine> lines;
  std::size_t next = 0;
  const auto append = [&](LineKind kind, const std::vector<std::string_view>& from,
                          std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end; ++i) lines.push_back({kind, from[i]});
  };
  for (const LineChange& change : FindLineChanges(old_lines, new_lines, options).changes) {
    append(LineKind::Kept, old_lines, next, change.beforeFirst);
    next = change.beforeFirst + change.beforeCount;
    append(LineKind::Removed, old_lines, change.beforeFirst, next);
    append(LineKind::Added, new_lines, change.afterFirst, change.afterFirst + change.afterCount);
  }
  append(LineKind::Kept, old_lines, next, old_lines.size());
  return lines;
}

bool IsBinary(std::string_view content) noexcept {
  return content.substr(0, 8000).find('\0') != std::string_view::npos;
}

}  // namespace TalVcs::Kit
