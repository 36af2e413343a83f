#include "graph_cells.h"

#include <algorithm>

// A row's picture has the parts of all lines that pass through the row:
//
//     ...|...   the line of the version's lane, which ends at its oldest version
//        o--.   from a merge down to the lane of what it merged, dashed
//     ...|  |   a line that joins this row at its last version's parent comes in from its own lane

namespace Tal {
namespace {

constexpr int kLaneWidth = 16;
constexpr int kMostLanes = 24;  // further ones share the last place
constexpr int kMiddle = GraphCells::kRowHeight / 2;

std::string Number(int number) { return std::to_string(number); }

std::string Path(const std::string& shape, int colour, bool isDashed) {
  return "<path class=\"l" + Number(colour % 8) + (isDashed ? " m" : "") + "\" d=\"" + shape +
         "\"/>";
}

std::string Vertical(int x, int from, int to) {
  return "M" + Number(x) + " " + Number(from) + "V" + Number(to);
}

std::string Curve(int x, int y, int toX, int toY) {
  const std::string middle = Number((y + toY) / 2);
  return "M" + Number(x) + " " + Number(y) + "C" + Number(x) + " " + middle + " " + Number(toX) +
         " " + middle + " " + Number(toX) + " " + Number(toY);
}

std::size_t Place(int index) { return static_cast<std::size_t>(index); }

}  // namespace

GraphCells::GraphCells(const TalVcs::Kit::GraphLayout& layout, std::vector<MergeEdge> merges)
    : m_layout(layout),
      m_merges(std::move(merges)),
      m_linesOfRow(layout.lineOfRow.size()),
      m_mergesOfRow(layout.lineOfRow.size()) {
  for (std::size_t i = 0; i < layout.lines.size(); ++i) {
    const TalVcs::Kit::GraphLayout::Line& line = layout.lines[i];
    for (int row = line.firstRow; row <= std::max(line.lastRow, line.joinRow); ++row) {
      m_linesOfRow[Place(row)].push_back(i);
    }
  }
  for (std::size_t i = 0; i < m_merges.size(); ++i) {
    for (int row = m_merges[i].from; row <= m_merges[i].to; ++row) {
      m_mergesOfRow[Place(row)].push_back(i);
    }
  }
}

int GraphCells::X(int lane) const {
  return kLaneWidth / 2 + 2 + std::min(lane, kMostLanes - 1) * kLaneWidth;
}

void GraphCells::DrawLine(const TalVcs::Kit::GraphLayout::Line& line, int row,
                          std::string& svg) const {
  const int x = X(line.lane);
  if (row == line.joinRow) {
    svg += Path(Curve(x, 0, X(LaneOf(row)), kMiddle), line.colour, false);
    return;
  }
  const int top = row == line.firstRow ? kMiddle : 0;
  const bool ends = row == line.lastRow && line.joinRow < 0;
  const int bottom = ends ? kMiddle : kRowHeight;
  if (top < bottom) svg += Path(Vertical(x, top, bottom), line.colour, false);
}

void GraphCells::DrawMerge(const MergeEdge& merge, int row, std::string& svg) const {
  const int x = X(LaneOf(merge.to));
  const int colour = m_layout.lines[Place(m_layout.lineOfRow[Place(merge.to)])].colour;
  if (row == merge.from) {
    svg += Path(Curve(X(LaneOf(row)), kMiddle, x, kRowHeight), colour, true);
  } else if (row == merge.to) {
    svg += Path(Vertical(x, 0, kMiddle), colour, true);
  } else {
    svg += Path(Vertical(x, 0, kRowHeight), colour, true);
  }
}

std::string GraphCells::Draw(int row, bool isHead) const {
  const std::string width = Number(X(std::min(m_layout.laneCount, kMostLanes)) - 2);
  std::string svg =
      "<svg width=\"" + width + "\" height=\"" + Number(kRowHeight) + "\" aria-hidden=\"true\">";
  for (const std::size_t merge : m_mergesOfRow[Place(row)]) DrawMerge(m_merges[merge], row, svg);
  for (const std::size_t line : m_linesOfRow[Place(row)]) DrawLine(m_layout.lines[line], row, svg);
  const int colour = m_layout.lines[Place(m_layout.lineOfRow[Place(row)])].colour;
  svg += "<circle class=\"l" + Number(colour % 8) + (isHead ? " h" : "") + "\" cx=\"" +
         Number(X(LaneOf(row))) + "\" cy=\"" + Number(kMiddle) + "\" r=\"" +
         (isHead ? "6" : "4.5") + "\"/>";
  return svg + "</svg>";
}

}  // namespace Tal
