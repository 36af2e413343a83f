#pragma once

#include <kit/diff/line_diff.h>
#include <kit/export.h>
#include <kit/text/result.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// What the merged text has in the place of a conflict.
enum class ConflictText {
  Left,             ///< The left lines.
  Right,            ///< The right lines.
  Root,             ///< The lines of the common base.
  Both,             ///< The left lines, then the right lines.
  Markers,          ///< Both between the marker lines "<<<<<<<", "=======" and ">>>>>>>".
  MarkersWithRoot,  ///< Left, root and right lines, with "|||||||" before the root's.
};

/// Options of `MergeText`.
struct TextMergeOptions {
  /// What is in the place of a conflict.
  ConflictText conflictText = ConflictText::Left;
  /// Names after the marker characters; an empty one is left out.
  std::string leftLabel = "ours";
  std::string rootLabel = "base";
  std::string rightLabel = "theirs";
  /// Number of characters of a marker.
  std::size_t markerSize = 7;
  /// Options of the comparisons of each side with the root.
  LineDiffOptions lines = {};
};

/// A run of lines, from 0.
struct LineRange {
  std::size_t first = 0;  ///< The first line.
  std::size_t count = 0;  ///< Number of lines.

  friend bool operator==(const LineRange&, const LineRange&) = default;
};

/// Lines that both sides changed differently.
struct TextConflict {
  /// The lines of each version with their ends; each may be empty.
  std::string root;
  std::string left;
  std::string right;
  /// The places of these lines in the three texts.
  LineRange rootLines;
  LineRange leftLines;
  LineRange rightLines;

  friend bool operator==(const TextConflict&, const TextConflict&) = default;
};

/// The outcome of a merge of texts.
struct TextMerge {
  std::string text;  ///< The merged text; in the place of conflicts what the options say.
  std::vector<TextConflict> conflicts;  ///< In the order of the lines.

  /// True if there is no conflict.
  bool IsClean() const noexcept { return conflicts.empty(); }
};

/// Merges the changes that two sides made to `root`, line by line.
///
/// Changes of one side alone are taken, and changes that both sides made in the same way. Changes
/// that overlap or touch, with another outcome, are one conflict. Lines at both ends of a conflict
/// that the two sides have in common are merged and not part of it, except with `MarkersWithRoot`.
/// Exchanging the sides exchanges them in each conflict and changes nothing else. Line ends count:
/// a text whose line ends were changed differs in each line.
///
/// Marker lines end as the line before them does. A last line without an end gets one before a
/// marker line.
///
/// Fails with `Unsupported` if one of the texts is binary (see `IsBinary`) and not equal to another
/// one in a way that decides the merge.
[[nodiscard]] TALVCS_KIT_API Result<TextMerge> MergeText(std::string_view root,
                                                         std::string_view left,
                                                         std::string_view right,
                                                         const TextMergeOptions& options = {});

/// Returns true if a line of the text is the first marker line of a conflict, as `MergeText` writes
/// it with these options, also with more text after the label. For a file that a person edits.
[[nodiscard]] TALVCS_KIT_API bool HasConflictMarkers(std::string_view text,
                                                     const TextMergeOptions& options = {});

}  // namespace TalVcs::Kit
