#pragma once

#include <kit/history/graph_layout.h>

#include <string>
#include <vector>

namespace Tal {

/// A line from a version to one that it has merged, as rows of a layout.
struct MergeEdge {
  int from;  ///< the row of the merge
  int to;    ///< the row of what it merged, below
};

/// Draws the lanes of a graph as one picture a row, so that rows can be hidden.
class GraphCells {
 public:
  static constexpr int kRowHeight = 34;

  /// The layout must outlive the drawing.
  GraphCells(const TalVcs::Kit::GraphLayout& layout, std::vector<MergeEdge> merges);

  /// Returns the `svg` element of a row. Colours come from the page's classes "l0" to "l7".
  std::string Draw(int row, bool isHead) const;

 private:
  int X(int lane) const;
  int LaneOf(int row) const { return m_layout.LaneOfRow(row); }
  void DrawLine(const TalVcs::Kit::GraphLayout::Line& line, int row, std::string& svg) const;
  void DrawMerge(const MergeEdge& merge, int row, std::string& svg) const;

  const TalVcs::Kit::GraphLayout& m_layout;
  std::vector<MergeEdge> m_merges;
  std::vector<std::vector<std::size_t>> m_linesOfRow;
  std::vector<std::vector<std::size_t>> m_mergesOfRow;
};

}  // namespace Tal
