#pragma once

#include "history.h"

#include <string>
#include <vector>

namespace Tal {

/// Where the commits of a history stand in a drawing: a row each, in the history's order, and a
/// lane for each line of commits. The first line is the current branch's.
///
///     row  lanes        Lines: master holds a and b, topic holds c. The line of topic begins in
///     row 0
///      0     | c        and joins in row 2, at its last commit's parent.
///      1     b |
///      2     a-'
struct GraphLayout {
  /// The commits that a branch has before the ones that an earlier branch has already.
  struct Line {
    int lane;
    int firstRow;
    int lastRow;  ///< the row of its oldest commit
    int joinRow;  ///< the row of that commit's parent, or -1
    int colour;   ///< counts from 0
  };

  std::vector<Line> lines;
  std::vector<int> lineOfRow;
  int laneCount = 0;

  int LaneOfRow(int row) const;
};

GraphLayout LayOutGraph(const History& history, const std::vector<Kit::Head>& branches);

/// What drawings say of a commit.
bool IsFork(const HistoryCommit& commit);
std::string ShortDescription(const HistoryCommit& commit, std::size_t characters);

/// Draws the lanes in text: what stands before each row of `history`, and the lines that join
/// the lanes between two rows.
struct TextGraph {
  std::vector<std::string> rows;
  std::vector<std::string> above;  ///< a line to print above the row, or nothing
};
TextGraph DrawText(const History& history, const GraphLayout& layout, bool lineCharacters);

/// Returns the history as a graph in the DOT language.
std::string DrawDot(const History& history, const GraphLayout& layout);

/// Returns the history as a picture. `title` stands above it.
std::string DrawSvg(const History& history, const GraphLayout& layout, const std::string& title,
                    const std::string& currentBranch);

}  // namespace Tal
