#include "line_diff.h"

#include <algorithm>

namespace Tal {
namespace {

using Kind = DiffLine::Kind;
using Lines = std::vector<std::string_view>;

constexpr int kMostEdits = 1500;
constexpr std::size_t kContext = 3;

Lines SplitLines(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::size_t size = end == std::string_view::npos ? text.size() : end + 1;
    lines.push_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return lines;
}

// Myers' greedy search: after d edits, reach[k] is how far into `before` a path on the diagonal k
// (place in before minus place in after) gets. One copy of the used part of `reach` for each d is
// enough to walk the path back.
class ShortestEdit {
 public:
  ShortestEdit(const Lines& before, const Lines& after)
      : m_before(before),
        m_after(after),
        m_rows(static_cast<int>(before.size())),
        m_columns(static_cast<int>(after.size())),
        m_most(std::min(m_rows + m_columns, kMostEdits)) {}

  /// Returns the lines, last one first, or nothing if there are too many edits.
  std::vector<DiffLine> FindBackwards() {
    std::vector<int> reach(2 * static_cast<std::size_t>(m_most) + 2, 0);
    for (int edits = 0; edits <= m_most; ++edits) {
      m_trace.push_back(Window(reach, edits));
      for (int diagonal = -edits; diagonal <= edits; diagonal += 2) {
        int row = StartOf(reach, m_most, edits, diagonal);
        while (row < m_rows && row - diagonal < m_columns && Same(row, row - diagonal)) ++row;
        reach[Index(m_most, diagonal)] = row;
        if (row >= m_rows && row - diagonal >= m_columns) return WalkBack(edits);
      }
    }
    return {};
  }

 private:
  static std::size_t Index(int centre, int diagonal) {
    return static_cast<std::size_t>(diagonal + centre);
  }

  bool Same(int row, int column) const {
    return m_before[static_cast<std::size_t>(row)] == m_after[static_cast<std::size_t>(column)];
  }

  std::vector<int> Window(const std::vector<int>& reach, int edits) const {
    const auto first = reach.begin() + (m_most - edits);
    return {first, first + 2 * edits + 1};
  }

  static bool ComesDown(const std::vector<int>& reach, int centre, int edits, int diagonal) {
    if (diagonal == -edits) return true;
    if (diagonal == edits) return false;
    return reach[Index(centre, diagonal - 1)] < reach[Index(centre, diagonal + 1)];
  }

  static int StartOf(const std::vector<int>& reach, int centre, int edits, int diagonal) {
    if (edits == 0) return 0;
    return ComesDown(reach, centre, edits, diagonal) ? reach[Index(centre, diagonal + 1)]
                                                     : reach[Index(centre, diagonal - 1)] + 1;
  }

  std::vector<DiffLine> WalkBack(int edits) const {
    std::vector<DiffLine> lines;
    int row = m_rows;
    int column = m_columns;
    for (; edits > 0; --edits) {
      const std::vector<int>& reach = m_trace[static_cast<std::size_t>(edits)];
      const int diagonal = row - column;
      const bool down = ComesDown(reach, edits, edits, diagonal);
      const int start = StartOf(reach, edits, edits, diagonal);
      while (row > start) Push(lines, Kind::Kept, m_before, --row);
      column = row - diagonal;
      if (down) {
        Push(lines, Kind::Added, m_after, --column);
      } else {
        Push(lines, Kind::Removed, m_before, --row);
      }
    }
    while (row > 0) Push(lines, Kind::Kept, m_before, --row);
    return lines;
  }

  static void Push(std::vector<DiffLine>& lines, Kind kind, const Lines& from, int index) {
    lines.push_back({kind, from[static_cast<std::size_t>(index)]});
  }

  const Lines& m_before;
  const Lines& m_after;
  int m_rows;
  int m_columns;
  int m_most;
  std::vector<std::vector<int>> m_trace;
};

void AppendMiddle(std::vector<DiffLine>& result, const Lines& before, const Lines& after) {
  const std::vector<DiffLine> backwards = ShortestEdit(before, after).FindBackwards();
  if (!backwards.empty()) {
    result.insert(result.end(), backwards.rbegin(), backwards.rend());
    return;
  }
  for (const std::string_view line : before) result.push_back({Kind::Removed, line});
  for (const std::string_view line : after) result.push_back({Kind::Added, line});
}

}  // namespace

std::vector<DiffLine> DiffLines(std::string_view before, std::string_view after) {
  Lines left = SplitLines(before);
  Lines right = SplitLines(after);
  const std::size_t shorter = std::min(left.size(), right.size());
  std::size_t head = 0;
  while (head < shorter && left[head] == right[head]) ++head;
  std::size_t tail = 0;
  while (tail < shorter - head && left[left.size() - 1 - tail] == right[right.size() - 1 - tail])
    ++tail;

  std::vector<DiffLine> result;
  const auto keep = [&](std::size_t first, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) result.push_back({Kind::Kept, left[first + i]});
  };
  const auto middle = [&](const Lines& lines) {
    return Lines(lines.begin() + static_cast<std::ptrdiff_t>(head),
                 lines.end() - static_cast<std::ptrdiff_t>(tail));
  };
  keep(0, head);
  AppendMiddle(result, middle(left), middle(right));
  keep(left.size() - tail, tail);
  return result;
}

bool IsBinary(std::string_view content) {
  return content.substr(0, 8000).find('\0') != std::string_view::npos;
}

std::vector<Hunk> FindHunks(const std::vector<DiffLine>& lines) {
  std::vector<Hunk> hunks;
  std::size_t end = 0;  // behind the last hunk
  std::size_t beforeLine = 1;
  std::size_t afterLine = 1;
  for (std::size_t at = 0; at < lines.size(); ++at) {
    if (lines[at].kind != Kind::Kept) {
      const std::size_t from = at < kContext ? 0 : at - kContext;
      if (hunks.empty() || from > end) {
        const std::size_t lead = at - std::max(from, end);
        hunks.push_back({at - lead, 0, beforeLine - lead, afterLine - lead, 0, 0});
      }
      end = std::min(at + kContext + 1, lines.size());
      hunks.back().count = end - hunks.back().first;
    }
    if (lines[at].kind != Kind::Added) ++beforeLine;
    if (lines[at].kind != Kind::Removed) ++afterLine;
  }
  for (Hunk& hunk : hunks) {
    for (std::size_t i = hunk.first; i < hunk.first + hunk.count; ++i) {
      if (lines[i].kind != Kind::Added) ++hunk.beforeCount;
      if (lines[i].kind != Kind::Removed) ++hunk.afterCount;
    }
  }
  return hunks;
}

}  // namespace Tal
