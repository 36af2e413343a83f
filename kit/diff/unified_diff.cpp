#include <kit/diff/unified_diff.h>

#include <algorithm>

namespace TalVcs::Kit {
namespace {

std::string RangeText(std::size_t line, std::size_t count) {
  return std::to_string(count == 0 ? line - 1 : line) + "," + std::to_string(count);
}

char MarkOf(LineKind kind) {
  return kind == LineKind::Kept ? ' ' : kind == LineKind::Removed ? '-' : '+';
}

}  // namespace

std::vector<Hunk> FindHunks(std::span<const DiffLine> lines, std::size_t contextLines) {
  std::vector<Hunk> hunks;
  std::size_t end = 0;  // after the last hunk
  std::size_t before_line = 1;
  std::size_t after_line = 1;
  for (std::size_t at = 0; at < lines.size(); ++at) {
    if (lines[at].kind != LineKind::Kept) {
      const std::size_t from = at < contextLines ? 0 : at - contextLines;
      if (hunks.empty() || from > end) {
        const std::size_t lead = at - std::max(from, end);
        hunks.push_back({at - lead, 0, before_line - lead, 0, after_line - lead, 0});
      }
      end = at + 1 + std::min(contextLines, lines.size() - at - 1);
      hunks.back().count = end - hunks.back().first;
    }
    if (lines[at].kind != LineKind::Added) ++before_line;
    if (lines[at].kind != LineKind::Removed) ++after_line;
  }
  for (Hunk& hunk : hunks) {
    for (const DiffLine& line : lines.subspan(hunk.first, hunk.count)) {
      if (line.kind != LineKind::Added) ++hunk.beforeCount;
      if (line.kind != LineKind::Removed) ++hunk.afterCount;
    }
  }
  return hunks;
}

std::string HunkHeader(const Hunk& hunk) {
  return "@@ -" + RangeText(hunk.beforeLine, hunk.beforeCount) + " +" +
         RangeText(hunk.afterLine, hunk.afterCount) + " @@";
}

std::string UnifiedLine(const DiffLine& line) {
  std::string_view text = line.text;
  if (text.ends_with('\n')) text.remove_suffix(1);
  std::string result(1, MarkOf(line.kind));
  result += text;
  return result;
}

std::string UnifiedDiff(std::string_view before, std::string_view after,
                        const UnifiedDiffOptions& options) {
  const std::vector<DiffLine> lines = DiffLines(before, after, options.lines);
  const std::vector<Hunk> hunks = FindHunks(lines, options.contextLines);
  std::string result;
  if (!hunks.empty() && !(options.beforeName.empty() && options.afterName.empty())) {
    result += "--- " + options.beforeName + "\n+++ " + options.afterName + '\n';
  }
  for (const Hunk& hunk : hunks) {
    result += HunkHeader(hunk) + '\n';
    for (std::size_t i = hunk.first; i < hunk.first + hunk.count; ++i) {
      result += UnifiedLine(lines[i]) + '\n';
      if (!lines[i].text.ends_with('\n')) result.append(kNoNewlineMark) += '\n';
    }
  }
  return result;
}

}  // namespace TalVcs::Kit
