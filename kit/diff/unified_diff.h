#pragma once

#include <kit/diff/line_diff.h>
#include <kit/export.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// A part of a comparison: changes with kept lines around them. Changes share a hunk if their kept
/// lines overlap or touch.
struct Hunk {
  std::size_t first = 0;        ///< Index of its first line in the list of lines.
  std::size_t count = 0;        ///< Number of its lines in that list.
  std::size_t beforeLine = 1;   ///< Number of its first line in the first text, from 1.
  std::size_t beforeCount = 0;  ///< Number of its lines in the first text.
  std::size_t afterLine = 1;    ///< Number of its first line in the second text, from 1.
  std::size_t afterCount = 0;   ///< Number of its lines in the second text.

  friend bool operator==(const Hunk&, const Hunk&) = default;
};

/// Returns the hunks of a comparison, each with up to `contextLines` kept lines on both ends.
[[nodiscard]] TALVCS_KIT_API std::vector<Hunk> FindHunks(std::span<const DiffLine> lines,
                                                         std::size_t contextLines = 3);

/// Returns the first line of a hunk, such as "@@ -1,3 +1,4 @@", without an end. If the hunk has no
/// line of a text, the number is that of the line before it.
[[nodiscard]] TALVCS_KIT_API std::string HunkHeader(const Hunk& hunk);

/// Returns the line of a unified diff for that line: " ", "-" or "+", and the text without "\n".
[[nodiscard]] TALVCS_KIT_API std::string UnifiedLine(const DiffLine& line);

/// The line that follows one whose text has no "\n", without an end.
inline constexpr std::string_view kNoNewlineMark = "\\ No newline at end of file";

/// Options of `UnifiedDiff`.
struct UnifiedDiffOptions {
  /// Names for the lines "--- " and "+++ ", which are left out if both names are empty.
  std::string beforeName = {};
  std::string afterName = {};
  /// Kept lines at both ends of each hunk.
  std::size_t contextLines = 3;
  /// Options of the comparison.
  LineDiffOptions lines = {};
};

/// Compares two texts and returns the unified diff, with which programs like `patch` turn the first
/// text into the second. Empty for equal texts.
[[nodiscard]] TALVCS_KIT_API std::string UnifiedDiff(std::string_view before,
                                                     std::string_view after,
                                                     const UnifiedDiffOptions& options = {});

}  // namespace TalVcs::Kit
