// A row has two columns for each lane: the lane's character and what is between it and the next.
// Lanes that end in a version are led to it in a line of their own above it:
//
//     │ ○ │      the middle lane and the right one both end in the version below
//     ├─┴─╯
//     ●

#include <kit/history/graph_layout.h>

#include <algorithm>

namespace TalVcs::Kit {

namespace {

using Line = GraphLayout::Line;

std::size_t Place(int index) { return static_cast<std::size_t>(index); }

/// The ends that a character of a drawing has.
enum End : unsigned { Up = 1, Down = 2, Left = 4, Right = 8 };

std::string Character(unsigned ends, GraphCharacters characters) {
  constexpr const char* kLines[] = {" ", "╵", "╷", "│", "╴", "╯", "╮", "┤",
                                    "╶", "╰", "╭", "├", "─", "┴", "┬", "┼"};
  constexpr const char* kAscii[] = {" ", "|", "|", "|", "-", "'", ".", "|",
                                    "-", "'", ".", "|", "-", "-", "-", "|"};
  return characters == GraphCharacters::Lines ? kLines[ends] : kAscii[ends];
}

std::string CircleOf(const Version& version, GraphCharacters characters) {
  if (characters == GraphCharacters::Ascii) return "*";
  return version.branches.empty() ? "○" : "●";
}

bool PassesAbove(const Line& line, int row) {
  return line.firstRow < row && row <= std::max(line.lastRow, line.joinRow);
}

bool PassesBelow(const Line& line, int row) {
  return line.firstRow < row && row < std::max(line.lastRow, line.joinRow);
}

/// Returns the line above a row, empty if no lane ends in the row.
std::string DrawJoins(const GraphLayout& layout, int row, GraphCharacters characters) {
  std::vector<unsigned> cells(2 * Place(layout.laneCount), 0);
  const int target = layout.LaneOfRow(row);
  bool has_join = false;
  for (const Line& line : layout.lines) {
    if (!PassesAbove(line, row)) continue;
    unsigned& cell = cells[2 * Place(line.lane)];
    if (line.joinRow != row) {
      cell |= Up | Down;
      continue;
    }
    has_join = true;
    const int from = 2 * std::min(line.lane, target);
    const int to = 2 * std::max(line.lane, target);
    cell |= Up;
    cells[2 * Place(target)] |= Down;
    for (int at = from; at < to; ++at) {
      cells[Place(at)] |= Right;
      cells[Place(at + 1)] |= Left;
    }
  }
  if (!has_join) return "";
  std::string text;
  for (const unsigned cell : cells) text += Character(cell, characters);
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

}  // namespace

TextGraph DrawTextGraph(const VersionGraph& graph, const GraphLayout& layout,
                        GraphCharacters characters) {
  TextGraph drawn;
  for (int row = 0; row < static_cast<int>(graph.versions.size()); ++row) {
    drawn.above.push_back(DrawJoins(layout, row, characters));
    std::vector<std::string> lanes(Place(layout.laneCount), " ");
    for (const Line& line : layout.lines) {
      if (PassesBelow(line, row)) lanes[Place(line.lane)] = Character(Up | Down, characters);
    }
    lanes[Place(layout.LaneOfRow(row))] = CircleOf(graph.versions[Place(row)].version, characters);
    std::string text;
    for (const std::string& lane : lanes) text += lane + " ";
    drawn.rows.push_back(std::move(text));
  }
  return drawn;
}

}  // namespace TalVcs::Kit
