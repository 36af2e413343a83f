#include "graph.h"

#include <algorithm>

// A row has two columns for each lane: the lane's character and what lies between it and the next.
// Lanes that end in a commit are led to it in a line of their own above it:
//
//     │ ○ │      the middle lane and the right one both end in the commit below
//     ├─┴─╯
//     ●

namespace Tal {
namespace {

using Line = GraphLayout::Line;

std::size_t Place(int index) { return static_cast<std::size_t>(index); }

/// The ends that a character of a drawing has.
enum End : unsigned { Up = 1, Down = 2, Left = 4, Right = 8 };

std::string Character(unsigned ends, bool lineCharacters) {
  constexpr const char* kLines[] = {" ", "╵", "╷", "│", "╴", "╯", "╮", "┤",
                                    "╶", "╰", "╭", "├", "─", "┴", "┬", "┼"};
  constexpr const char* kAscii[] = {" ", "|", "|", "|", "-", "'", ".", "|",
                                    "-", "'", ".", "|", "-", "-", "-", "|"};
  return lineCharacters ? kLines[ends] : kAscii[ends];
}

bool PassesAbove(const Line& line, int row) {
  return line.firstRow < row && row <= std::max(line.lastRow, line.joinRow);
}

bool PassesBelow(const Line& line, int row) {
  return line.firstRow < row && row < std::max(line.lastRow, line.joinRow);
}

std::string Trimmed(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::string DrawJoins(const GraphLayout& layout, int row, bool lineCharacters) {
  std::vector<unsigned> cells(2 * Place(layout.laneCount), 0);
  const int target = layout.LaneOfRow(row);
  bool any = false;
  for (const Line& line : layout.lines) {
    if (!PassesAbove(line, row)) continue;
    unsigned& cell = cells[2 * Place(line.lane)];
    if (line.joinRow != row) {
      cell |= Up | Down;
      continue;
    }
    any = true;
    const int from = 2 * std::min(line.lane, target);
    const int to = 2 * std::max(line.lane, target);
    cell |= Up;
    cells[2 * Place(target)] |= Down;
    for (int at = from; at < to; ++at) {
      cells[Place(at)] |= Right;
      cells[Place(at + 1)] |= Left;
    }
  }
  if (!any) return "";
  std::string text;
  for (const unsigned cell : cells) text += Character(cell, lineCharacters);
  return Trimmed(text);
}

}  // namespace

TextGraph DrawText(const History& history, const GraphLayout& layout, bool lineCharacters) {
  TextGraph graph;
  for (int row = 0; row < static_cast<int>(history.commits.size()); ++row) {
    graph.above.push_back(DrawJoins(layout, row, lineCharacters));
    std::vector<std::string> lanes(Place(layout.laneCount), " ");
    for (const Line& line : layout.lines) {
      if (PassesBelow(line, row)) lanes[Place(line.lane)] = Character(Up | Down, lineCharacters);
    }
    const HistoryCommit& commit = history.commits[Place(row)];
    const bool tip = !commit.version.branches.empty();
    lanes[Place(layout.LaneOfRow(row))] = !lineCharacters ? "*" : tip ? "●" : "○";
    std::string text;
    for (const std::string& lane : lanes) text += lane + " ";
    graph.rows.push_back(text);
  }
  return graph;
}

}  // namespace Tal
