#include <kit/diff/internal/line_anchors.h>
#include <kit/diff/internal/line_matches.h>

#include <algorithm>
#include <optional>
#include <unordered_map>

// A comparison is a path through a grid, whose columns are the lines of the first text and whose
// rows are those of the second. A step to the right removes a line, a step down adds one, and a
// diagonal step keeps a line that both have there. Diagonal k has the places with column - row = k.
//
//       a b c
//     +-------
//   b | . \ .
//   c | . . \      the diagonal steps keep b and c; a is removed
//
// The search runs from both corners. After d steps that are not diagonal, reach[k] is the farthest
// column on diagonal k. Where the two searches meet, a shortest path passes. The two boxes on both
// sides of that place are searched in the same way, so that memory is linear.
//
// Lines that the other text lacks are dropped first: no path keeps them.

namespace TalVcs::Kit {
namespace {

using Lines = std::span<const std::string_view>;
using Symbol = std::uint32_t;

constexpr std::size_t kUnmatched = static_cast<std::size_t>(-1);
// Searches for lines that occur once, each within the gaps of the one before.
constexpr int kMostAnchorLevels = 8;

/// The lines of a text that the other text has too, as numbers, with their places.
struct Sequence {
  std::vector<Symbol> symbols;
  std::vector<std::size_t> places;
};

struct Sequences {
  Sequence before;
  Sequence after;
};

Sequences NumberCommonLines(Lines before, Lines after, std::size_t offset) {
  std::unordered_map<std::string_view, Symbol> numbers;
  numbers.reserve(before.size());
  for (const std::string_view line : before) {
    numbers.try_emplace(line, static_cast<Symbol>(numbers.size()));
  }
  Sequences result;
  std::vector<bool> is_common(numbers.size());
  for (std::size_t i = 0; i < after.size(); ++i) {
    const auto found = numbers.find(after[i]);
    if (found == numbers.end()) continue;
    is_common[found->second] = true;
    result.after.symbols.push_back(found->second);
    result.after.places.push_back(offset + i);
  }
  for (std::size_t i = 0; i < before.size(); ++i) {
    const Symbol symbol = numbers.find(before[i])->second;
    if (!is_common[symbol]) continue;
    result.before.symbols.push_back(symbol);
    result.before.places.push_back(offset + i);
  }
  return result;
}

/// A part of the grid: the columns from `left` up to `right`, the rows from `top` up to `bottom`.
struct Box {
  std::size_t left;
  std::size_t right;
  std::size_t top;
  std::size_t bottom;
  int anchorLevel = 0;
};

struct Place {
  std::size_t column;
  std::size_t row;
};

/// One of the two searches in a box. The one from the lower right corner counts its columns and
/// rows from there.
class Frontier {
 public:
  using Number = std::ptrdiff_t;
  static constexpr Number kUnreached = PTRDIFF_MIN / 4;

  Frontier(std::vector<Number>& reach, Number columns, Number rows)
      : m_reach(reach), m_columns(columns), m_rows(rows) {
    m_reach.assign(static_cast<std::size_t>(columns + rows + 3), kUnreached);
  }

  Number Lowest(Number edits) const { return edits <= m_rows ? -edits : edits - 2 * m_rows; }
  Number Highest(Number edits) const { return edits <= m_columns ? edits : 2 * m_columns - edits; }
  Number At(Number diagonal) const {
    if (diagonal < -m_rows || diagonal > m_columns) return kUnreached;
    return m_reach[Index(diagonal)];
  }

  /// Returns the farthest column after one more step onto the diagonal, unreached if there is none.
  Number Step(Number edits, Number diagonal) const {
    if (edits == 0) return 0;
    Number column = kUnreached;
    const Number from_left = m_reach[Index(diagonal - 1)];
    if (from_left >= 0 && from_left < m_columns) column = from_left + 1;
    const Number from_above = m_reach[Index(diagonal + 1)];
    if (from_above >= 0 && from_above - (diagonal + 1) < m_rows) {
      column = std::max(column, from_above);
    }
    return column;
  }
  void Set(Number diagonal, Number column) { m_reach[Index(diagonal)] = column; }

 private:
  std::size_t Index(Number diagonal) const {
    return static_cast<std::size_t>(diagonal + m_rows + 1);
  }

  std::vector<Number>& m_reach;
  Number m_columns;
  Number m_rows;
};

class Matcher {
 public:
  Matcher(Sequences sequences, std::uint64_t mostSteps)
      : m_before(std::move(sequences.before)),
        m_after(std::move(sequences.after)),
        m_stepsLeft(mostSteps),
        m_partners(m_before.symbols.size(), kUnmatched) {}

  /// Returns whether the result is a shortest one.
  bool Run() {
    m_boxes.push_back({0, m_before.symbols.size(), 0, m_after.symbols.size()});
    while (!m_boxes.empty()) {
      Box box = m_boxes.back();
      m_boxes.pop_back();
      MatchEnds(box);
      if (box.left == box.right || box.top == box.bottom) continue;
      if (const std::optional<Place> middle = FindMiddle(box)) {
        m_boxes.push_back({box.left, middle->column, box.top, middle->row, box.anchorLevel});
        m_boxes.push_back({middle->column, box.right, middle->row, box.bottom, box.anchorLevel});
      } else {
        m_isShortest = false;
        if (box.anchorLevel < kMostAnchorLevels) SplitAtAnchors(box);
      }
    }
    return m_isShortest;
  }

  void AppendMatches(std::vector<LineMatch>& kept) const {
    for (std::size_t i = 0; i < m_partners.size(); ++i) {
      if (m_partners[i] == kUnmatched) continue;
      kept.push_back({m_before.places[i], m_after.places[m_partners[i]]});
    }
  }

 private:
  using Number = Frontier::Number;

  bool Same(std::size_t column, std::size_t row) const {
    return m_before.symbols[column] == m_after.symbols[row];
  }

  void MatchEnds(Box& box) {
    const auto is_open = [&] { return box.left < box.right && box.top < box.bottom; };
    for (; is_open() && Same(box.left, box.top); ++box.left, ++box.top) {
      m_partners[box.left] = box.top;
    }
    for (; is_open() && Same(box.right - 1, box.bottom - 1); --box.right, --box.bottom) {
      m_partners[box.right - 1] = box.bottom - 1;
    }
  }

  /// Returns a place on a shortest path that is neither of the two corners, or nothing if the
  /// search takes more than half of the steps that are left. The box has no equal lines at its
  /// corners.
  std::optional<Place> FindMiddle(const Box& box) {
    const auto columns = static_cast<Number>(box.right - box.left);
    const auto rows = static_cast<Number>(box.bottom - box.top);
    const Number delta = columns - rows;
    const bool is_odd = delta % 2 != 0;
    std::uint64_t steps = m_stepsLeft / 2;
    Frontier forward(m_forward, columns, rows);
    Frontier backward(m_backward, columns, rows);
    const auto advance = [&](Frontier& frontier, Number edits, Number diagonal, auto same) {
      Number column = frontier.Step(edits, diagonal);
      Number spent = 1;
      while (column >= 0 && column < columns && column - diagonal < rows &&
             same(column, column - diagonal)) {
        ++column;
        ++spent;
      }
      frontier.Set(diagonal, column);
      const auto cost = static_cast<std::uint64_t>(spent);
      steps -= std::min(steps, cost);
      m_stepsLeft -= std::min(m_stepsLeft, cost);
      return column;
    };
    const auto place = [&](Number column, Number row) {
      return Place{box.left + static_cast<std::size_t>(column),
                   box.top + static_cast<std::size_t>(row)};
    };
    const auto same_forward = [&](Number column, Number row) {
      return Same(box.left + static_cast<std::size_t>(column),
                  box.top + static_cast<std::size_t>(row));
    };
    const auto same_backward = [&](Number column, Number row) {
      return Same(box.right - 1 - static_cast<std::size_t>(column),
                  box.bottom - 1 - static_cast<std::size_t>(row));
    };

    for (Number edits = 0; steps > 0; ++edits) {
      for (Number k = forward.Lowest(edits); k <= forward.Highest(edits); k += 2) {
        const Number column = advance(forward, edits, k, same_forward);
        const Number opposite = delta - k;
        if (is_odd && opposite > -edits && opposite < edits &&
            column + backward.At(opposite) >= columns) {
          return place(column, column - k);
        }
      }
      for (Number k = backward.Lowest(edits); k <= backward.Highest(edits); k += 2) {
        const Number column = advance(backward, edits, k, same_backward);
        const Number opposite = delta - k;
        if (!is_odd && opposite >= -edits && opposite <= edits &&
            column + forward.At(opposite) >= columns) {
          return place(columns - column, rows - (column - k));
        }
      }
    }
    return std::nullopt;
  }

  /// Splits a box at the lines that occur once in each of its two texts, as far as they have the
  /// same order there. Without such lines, nothing of the box is kept.
  void SplitAtAnchors(const Box& box) {
    const auto cut = [](const Sequence& sequence, std::size_t begin, std::size_t end) {
      return std::span(sequence.symbols).subspan(begin, end - begin);
    };
    const std::vector<LineMatch> anchors =
        FindAnchors(cut(m_before, box.left, box.right), cut(m_after, box.top, box.bottom));
    if (anchors.empty()) return;
    Box part{box.left, 0, box.top, 0, box.anchorLevel + 1};
    for (const LineMatch& anchor : anchors) {
      part.right = box.left + anchor.before;
      part.bottom = box.top + anchor.after;
      m_partners[part.right] = part.bottom;
      m_boxes.push_back(part);
      part.left = part.right + 1;
      part.top = part.bottom + 1;
    }
    part.right = box.right;
    part.bottom = box.bottom;
    m_boxes.push_back(part);
  }

  Sequence m_before;
  Sequence m_after;
  std::uint64_t m_stepsLeft;
  std::vector<std::size_t> m_partners;
  std::vector<Box> m_boxes;
  std::vector<Number> m_forward;
  std::vector<Number> m_backward;
  bool m_isShortest = true;
};

}  // namespace

LineMatches MatchLines(Lines before, Lines after, std::uint64_t mostSteps) {
  const std::size_t shorter = std::min(before.size(), after.size());
  std::size_t head = 0;
  while (head < shorter && before[head] == after[head]) ++head;
  std::size_t tail = 0;
  while (tail < shorter - head &&
         before[before.size() - 1 - tail] == after[after.size() - 1 - tail]) {
    ++tail;
  }

  LineMatches result;
  for (std::size_t i = 0; i < head; ++i) result.kept.push_back({i, i});
  Matcher matcher(NumberCommonLines(before.subspan(head, before.size() - head - tail),
                                    after.subspan(head, after.size() - head - tail), head),
                  mostSteps);
  result.isShortest = matcher.Run();
  matcher.AppendMatches(result.kept);
  for (std::size_t i = tail; i > 0; --i) {
    result.kept.push_back({before.size() - i, after.size() - i});
  }
  return result;
}

}  // namespace TalVcs::Kit
