#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace Tal {

/// One line of a comparison: kept, removed or added. The text has its line end, if it had one.
struct DiffLine {
  enum class Kind { Kept, Removed, Added };

  Kind kind;
  std::string_view text;
};

/// Compares two texts line by line and returns all lines of both, in an order that turns the first
/// text into the second. The lines are views of the arguments.
///
/// The result is a shortest one, unless the texts differ in more than about a thousand lines; what
/// lies between their common ends is then removed and added as a whole.
std::vector<DiffLine> DiffLines(std::string_view before, std::string_view after);

/// True for content that isn't shown as text: it has a zero byte near its start.
bool IsBinary(std::string_view content);

/// A run of changes with three kept lines around it; changes that are near share one.
struct Hunk {
  std::size_t first;  ///< index into the lines
  std::size_t count;
  std::size_t beforeLine;  ///< number of the first line on each side, from 1
  std::size_t afterLine;
  std::size_t beforeCount;
  std::size_t afterCount;
};

std::vector<Hunk> FindHunks(const std::vector<DiffLine>& lines);

}  // namespace Tal
