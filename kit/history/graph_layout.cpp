#include <kit/history/graph_layout.h>

#include <algorithm>
#include <cstddef>
#include <unordered_map>

namespace TalVcs::Kit {

namespace {

std::size_t Place(int index) { return static_cast<std::size_t>(index); }

/// Finds the lowest lane that is free from the line's first row to its join.
int FreeLane(const std::vector<GraphLayout::Line>& placed, const GraphLayout::Line& line) {
  const auto end = [](const GraphLayout::Line& l) { return std::max(l.lastRow, l.joinRow); };
  for (int lane = 0;; ++lane) {
    const bool is_taken = std::any_of(placed.begin(), placed.end(), [&](const auto& other) {
      return other.lane == lane && other.firstRow <= end(line) && line.firstRow <= end(other);
    });
    if (!is_taken) return lane;
  }
}

/// Begins a line at a row and follows the parents to the first row that has a line.
void Follow(const VersionGraph& graph, int row, GraphLayout& layout) {
  if (layout.lineOfRow[Place(row)] >= 0) return;
  const int line = static_cast<int>(layout.lines.size());
  layout.lines.push_back({0, row, row, -1, line});
  for (; row >= 0; row = graph.versions[Place(row)].parent) {
    if (layout.lineOfRow[Place(row)] >= 0) {
      layout.lines.back().joinRow = row;
      return;
    }
    layout.lineOfRow[Place(row)] = line;
    layout.lines.back().lastRow = row;
  }
}

/// Gives lanes to the lines: to the first one, then in the order of their first rows.
void PlaceLines(GraphLayout& layout) {
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
}

}  // namespace

GraphLayout LayOutGraph(const VersionGraph& graph, std::span<const Head> branches) {
  GraphLayout layout;
  layout.lineOfRow.assign(graph.versions.size(), -1);
  std::unordered_map<Id, int> rows;
  for (const GraphVersion& version : graph.versions) {
    rows.emplace(version.version.id, static_cast<int>(rows.size()));
  }
  for (const Head& branch : branches) {
    const auto found = rows.find(branch.id);
    if (found != rows.end()) Follow(graph, found->second, layout);
  }
  for (std::size_t row = 0; row < graph.versions.size(); ++row) {
    Follow(graph, static_cast<int>(row), layout);
  }
  PlaceLines(layout);
  return layout;
}

}  // namespace TalVcs::Kit
