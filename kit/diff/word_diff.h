#pragma once

#include <kit/diff/line_diff.h>
#include <kit/export.h>

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// A range of bytes of a text. It never begins or ends inside a UTF-8 character.
struct TextRange {
  std::size_t offset = 0;     ///< Of its first byte.
  std::size_t sizeBytes = 0;  ///< Its length, at least 1.

  friend bool operator==(const TextRange&, const TextRange&) = default;
};

/// The parts of two lines that differ.
struct ChangedWords {
  std::vector<TextRange> before;  ///< Parts of the first line that the second lacks, ascending.
  std::vector<TextRange> after;   ///< Parts of the second line that the first lacks, ascending.
};

/// Compares two lines word by word.
///
/// A word is a run of ASCII letters, digits, "_" and characters beyond ASCII; a run of blanks is
/// one piece, and any other character is one piece. Ranges that touch are joined.
[[nodiscard]] TALVCS_KIT_API ChangedWords FindChangedWords(std::string_view before,
                                                           std::string_view after);

/// A line of a comparison with the parts of it that changed.
struct MarkedLine {
  LineKind kind = LineKind::Kept;  ///< Which of the texts have the line.
  std::string_view text;           ///< The line with its end.
  /// The changed parts of a line that has a counterpart on the other side. Empty for a kept line,
  /// and for a line that is removed or added as a whole.
  std::vector<TextRange> changed;
};

/// Marks the changed words of the lines that `DiffLines` returned. In each change, the first
/// removed line is the counterpart of the first added one, and so on. Two counterparts that have no
/// word in common are not marked.
[[nodiscard]] TALVCS_KIT_API std::vector<MarkedLine> MarkChangedWords(
    std::span<const DiffLine> lines);

}  // namespace TalVcs::Kit
