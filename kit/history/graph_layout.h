#pragma once

#include <kit/export.h>
#include <kit/history/version_graph.h>
#include <kit/text/error.h>

#include <span>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// The places of versions in a drawing: a row for each, in the order of the graph, and a lane for
/// each line of versions.
///
///     row  lanes        Two lines: master has a and b, topic has c. The line of topic begins in
///      0     | c        row 0 and joins in row 2, at the parent of its last version.
///      1     b |
///      2     a-'
struct GraphLayout {
  /// A line of versions: those of one branch that no earlier branch has.
  struct Line {
    int lane;      ///< Its lane, from 0.
    int firstRow;  ///< The row of its newest version.
    int lastRow;   ///< The row of its oldest version.
    int joinRow;   ///< The row of that version's parent; -1 without a parent.
    int colour;    ///< The number of its colour, from 0: each line has its own.
  };

  std::vector<Line> lines;     ///< The lines, those of the branches first.
  std::vector<int> lineOfRow;  ///< The index of each row's line.
  int laneCount = 0;           ///< The number of lanes.

  /// Returns the lane of a row's version.
  int LaneOfRow(int row) const {
    return lines[static_cast<std::size_t>(lineOfRow[static_cast<std::size_t>(row)])].lane;
  }
};

/// Gives each version of a graph its lane. The first branch has lane 0 and its versions down to the
/// root; each other branch has the versions that no branch before it has. Branches that the graph
/// lacks are skipped; versions that no branch reaches get lines of their own. A line takes the
/// lowest lane that is free from its first row to its join. `GraphVersion::children` are not read.
/// Cost: the number of versions, and at most the square of the number of lines.
[[nodiscard]] TALVCS_KIT_API GraphLayout LayOutGraph(const VersionGraph& graph,
                                                     std::span<const Head> branches);

/// The characters of a drawing in text.
enum class GraphCharacters {
  Ascii,  ///< "*", "|" and the like.
  Lines,  ///< Box-drawing characters in UTF-8; the head of a branch has a filled circle.
};

/// A graph as text, to be printed beside a line of text for each version.
///
///     * |      rows[0], with a blank at its end
///     | *      rows[1]
///     |-'      above[2]: the line of the second lane ends in the version below
///     *        rows[2]
struct TextGraph {
  std::vector<std::string> rows;   ///< What precedes the text of each row.
  std::vector<std::string> above;  ///< A line to be printed above the row; empty for none.
};

/// Draws the lanes of a layout. Cost: rows times lines.
[[nodiscard]] TALVCS_KIT_API TextGraph DrawTextGraph(const VersionGraph& graph,
                                                     const GraphLayout& layout,
                                                     GraphCharacters characters);

}  // namespace TalVcs::Kit
