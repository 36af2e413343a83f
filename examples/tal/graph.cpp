#include "graph.h"

#include "utf8.h"

#include <algorithm>
#include <unordered_map>

namespace Tal {
namespace {

std::size_t Place(int index) { return static_cast<std::size_t>(index); }

/// Finds the lowest lane that is free from the line's first row to its join.
int FreeLane(const std::vector<GraphLayout::Line>& placed, const GraphLayout::Line& line) {
  const auto end = [](const GraphLayout::Line& l) { return std::max(l.lastRow, l.joinRow); };
  for (int lane = 0;; ++lane) {
    const bool taken = std::any_of(placed.begin(), placed.end(), [&](const auto& other) {
      return other.lane == lane && other.firstRow <= end(line) && line.firstRow <= end(other);
    });
    if (!taken) return lane;
  }
}

}  // namespace

int GraphLayout::LaneOfRow(int row) const { return lines[Place(lineOfRow[Place(row)])].lane; }

GraphLayout LayOutGraph(const History& history, const std::vector<Kit::Head>& branches) {
  GraphLayout layout;
  layout.lineOfRow.assign(history.commits.size(), -1);
  const auto follow = [&](int row) {
    if (layout.lineOfRow[Place(row)] >= 0) return;
    const int line = static_cast<int>(layout.lines.size());
    layout.lines.push_back({0, row, row, -1, line});
    for (; row >= 0; row = history.commits[Place(row)].parent) {
      if (layout.lineOfRow[Place(row)] >= 0) {
        layout.lines.back().joinRow = row;
        return;
      }
      layout.lineOfRow[Place(row)] = line;
      layout.lines.back().lastRow = row;
    }
  };
  std::unordered_map<std::string, int> rows;
  for (std::size_t row = 0; row < history.commits.size(); ++row)
    rows.emplace(history.commits[row].id, static_cast<int>(row));
  for (const Kit::Head& branch : branches) {
    const auto found = rows.find(ToUtf8(branch.id));
    if (found != rows.end()) follow(found->second);
  }
  for (std::size_t row = 0; row < history.commits.size(); ++row) follow(static_cast<int>(row));

  std::vector<std::size_t> order(layout.lines.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  if (!order.empty()) {
    std::sort(order.begin() + 1, order.end(), [&](std::size_t a, std::size_t b) {
      return layout.lines[a].firstRow < layout.lines[b].firstRow;
    });
  }
  std::vector<GraphLayout::Line> placed;
  for (const std::size_t i : order) {
    GraphLayout::Line& line = layout.lines[i];
    line.lane = FreeLane(placed, line);
    layout.laneCount = std::max(layout.laneCount, line.lane + 1);
    placed.push_back(line);
  }
  return layout;
}

bool IsFork(const HistoryCommit& commit) { return commit.children.size() > 1; }

std::string ShortDescription(const HistoryCommit& commit, std::size_t characters) {
  return CutText(commit.version.summary, characters);
}

}  // namespace Tal
