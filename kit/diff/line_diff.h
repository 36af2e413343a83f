#pragma once

#include <kit/export.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// What a comparison says about a line.
enum class LineKind {
  Kept,     ///< Both texts have it.
  Removed,  ///< Only the first text has it.
  Added,    ///< Only the second text has it.
};

/// One line of a comparison. The text is a view of an argument and includes the line's end, so that
/// a last line without an end differs from the same line with one.
struct DiffLine {
  LineKind kind = LineKind::Kept;  ///< Which of the texts have the line.
  std::string_view text;           ///< The line with its end.

  friend bool operator==(const DiffLine&, const DiffLine&) = default;
};

/// A run of lines of the first text and the lines of the second text that replace it. Lines count
/// from 0. One of the two counts may be 0. At least one kept line is between two changes.
struct LineChange {
  /// The removed and the added lines, each as the first one and their number.
  std::size_t beforeFirst = 0;
  std::size_t beforeCount = 0;
  std::size_t afterFirst = 0;
  std::size_t afterCount = 0;

  friend bool operator==(const LineChange&, const LineChange&) = default;
};

/// The changes that turn one text into another, in the order of the lines.
struct LineChanges {
  std::vector<LineChange> changes;  ///< Empty for equal texts.
  /// True if no other list of changes removes and adds fewer lines. False if the search was given
  /// up at `LineDiffOptions::mostSteps`.
  bool isShortest = true;
};

/// Options of a comparison.
struct LineDiffOptions {
  /// Bound of the search for the shortest result, in steps of a few nanoseconds. Two texts that
  /// differ in d lines that both contain elsewhere need about d * d steps. Beyond the bound, the
  /// parts that remain are compared by lines that occur once in each of them; a part that has none
  /// is removed and added as a whole.
  std::uint64_t mostSteps = 20'000'000;
};

/// Cuts a text after each "\n". Each line includes its end; the last one may have none. An empty
/// text has no line. The lines are views of `text`.
[[nodiscard]] TALVCS_KIT_API std::vector<std::string_view> SplitLines(std::string_view text);

/// Compares two lists of lines, or of any other pieces of text.
///
/// If equal pieces allow several places for a change, the change is placed beside a change on the
/// other side, or otherwise, as a rule, as late as possible. Memory is linear; the cost is bounded
/// by the options.
[[nodiscard]] TALVCS_KIT_API LineChanges FindLineChanges(std::span<const std::string_view> before,
                                                         std::span<const std::string_view> after,
                                                         const LineDiffOptions& options = {});

/// Compares two texts and returns all lines of both, in an order that turns the first text into the
/// second: within a change, the removed lines precede the added ones.
[[nodiscard]] TALVCS_KIT_API std::vector<DiffLine> DiffLines(std::string_view before,
                                                             std::string_view after,
                                                             const LineDiffOptions& options = {});

/// Returns true for content that is not text: one of its first 8,000 bytes is zero.
[[nodiscard]] TALVCS_KIT_API bool IsBinary(std::string_view content) noexcept;

}  // namespace TalVcs::Kit
