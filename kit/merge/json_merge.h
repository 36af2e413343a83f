#pragma once

#include <kit/diff/json_diff.h>
#include <kit/export.h>
#include <kit/text/result.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// The side that a merge takes in a conflict.
enum class MergeSide {
  Left,   ///< The left side, such as the current branch.
  Right,  ///< The right side, such as the branch that is merged.
  Root,   ///< The common base of both sides.
};

/// Options of `MergeJson`.
struct JsonMergeOptions {
  /// The value in the place of a conflict. A side that lacks the member removes it. For whole
  /// documents without a root, `Root` takes the left one.
  MergeSide conflictSide = MergeSide::Left;
  /// Which arrays are merged by element.
  JsonArrayOptions arrays = {};
};

/// A place where both sides changed a document differently.
struct JsonConflict {
  /// The place as a JSON pointer; empty for the whole document. Indexes are those of the merged
  /// document; if that lacks the element, "-" is in the place of the index.
  std::string pointer;
  /// The values as compact JSON. Nothing where the member does not exist.
  std::optional<std::string> root;
  std::optional<std::string> left;
  std::optional<std::string> right;

  friend bool operator==(const JsonConflict&, const JsonConflict&) = default;
};

/// The outcome of a merge of JSON documents.
struct JsonMerge {
  std::string text;                     ///< The merged document.
  std::vector<JsonConflict> conflicts;  ///< In the order of the merged document.

  /// True if there is no conflict.
  bool IsClean() const noexcept { return conflicts.empty(); }
};

/// Merges the changes that two sides made to the document `root`, member by member.
///
/// A value that one side changed is taken, and one that both changed in the same way. Where both
/// changed it differently, objects are merged by member and arrays by element (see
/// `JsonArrayOptions`), even if the root has no value there; any other values are a conflict. A
/// member or element that one side removed and the other changed is a conflict.
///
/// Members keep the order of the left side. A member that only the right side has follows its
/// predecessor there, after the members that only the left side has at that place. The elements of
/// an array keep the order of the side that reordered them, or else of the left side.
///
/// Values are compared as `DiffJson` does. If the outcome has the value of the left or else the
/// right document, it is that text, byte for byte. Otherwise the text is written anew: on one line
/// if the left document has no line break, else indented like the left document. Numbers and
/// strings keep their spelling.
///
/// Fails as `DiffJson` does; `subject` is "root", "left" or "right".
[[nodiscard]] TALVCS_KIT_API Result<JsonMerge> MergeJson(std::string_view root,
                                                         std::string_view left,
                                                         std::string_view right,
                                                         const JsonMergeOptions& options = {});

/// Does the same for two documents that were added on both sides and have no common base.
[[nodiscard]] TALVCS_KIT_API Result<JsonMerge> MergeAddedJson(std::string_view left,
                                                              std::string_view right,
                                                              const JsonMergeOptions& options = {});

}  // namespace TalVcs::Kit
