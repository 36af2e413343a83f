#pragma once

#include <kit/export.h>
#include <kit/merge/json_merge.h>
#include <kit/merge/text_merge.h>
#include <kit/text/result.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// A file that both sides changed differently. The views are valid during the call.
struct ContentToMerge {
  std::string_view path;                 ///< The path in the document, components between "/".
  std::optional<std::string_view> root;  ///< Nothing if both sides added the file.
  std::string_view left;                 ///< The left side, such as the current branch.
  std::string_view right;                ///< The right side, such as the branch that is merged.
};

/// A conflict inside a file.
struct ContentConflict {
  /// The place: "line 12" of the left text, from 1, or a JSON pointer.
  std::string place;
  /// What the versions have there; nothing where they have nothing that could be shown.
  std::optional<std::string> root;
  std::optional<std::string> left;
  std::optional<std::string> right;

  friend bool operator==(const ContentConflict&, const ContentConflict&) = default;
};

/// The outcome of a merge of one file.
struct MergedContent {
  /// The merged bytes. With conflicts, what the merger puts in their place.
  std::string bytes;
  /// Empty if the merge is complete.
  std::vector<ContentConflict> conflicts;

  /// True if there is no conflict.
  bool IsClean() const noexcept { return conflicts.empty(); }
};

/// Merges the contents of a file. Called on the thread of the merge. An error means that the merger
/// cannot merge this content; the file is then a conflict as a whole.
using ContentMerger = std::function<Result<MergedContent>(const ContentToMerge&)>;

/// Returns a merger that calls `MergeText`. A missing root is an empty text.
[[nodiscard]] TALVCS_KIT_API ContentMerger MakeTextMerger(TextMergeOptions options = {});

/// Returns a merger that calls `MergeJson`.
[[nodiscard]] TALVCS_KIT_API ContentMerger MakeJsonMerger(JsonMergeOptions options = {});

/// Returns true if a path matches a pattern, byte by byte.
///
/// "*" matches any characters but "/", "?" one character but "/" (a whole UTF-8 character), "**"
/// any characters, and "**/" also nothing. "[abc]", "[a-z]" and "[!a-z]" match one ASCII character
/// of the set, never "/". A "\" takes the next character literally. A pattern without "/" is
/// compared with the last component of the path, any other with the whole path. A "[" without "]"
/// is an ordinary character. Cost: at most the product of the two lengths.
[[nodiscard]] TALVCS_KIT_API bool MatchesPathPattern(std::string_view pattern,
                                                     std::string_view path);

/// The mergers of a host, each for the paths of a pattern.
///
///     ContentMergers mergers;
///     mergers.Add("shapes/**", MakeJsonMerger());
///     mergers.Add("*.txt", MakeTextMerger());
///
/// A value. Threads: one object may be read by several threads if its mergers may.
class TALVCS_KIT_API ContentMergers {
 public:
  /// No mergers: every file that both sides changed is a conflict.
  ContentMergers();
  ContentMergers(const ContentMergers& other);
  ContentMergers(ContentMergers&& other) noexcept;
  ContentMergers& operator=(const ContentMergers& other);
  ContentMergers& operator=(ContentMergers&& other) noexcept;
  ~ContentMergers();

  /// Merges files whose path matches `pattern` (see `MatchesPathPattern`) with `merger`. Patterns
  /// that were added earlier come first. An empty `merger` excludes the paths of the pattern.
  void Add(std::string pattern, ContentMerger merger);

  /// Returns the merger of the first pattern that matches, or null if none does or the merger is
  /// empty. Valid until the next `Add` and as long as this object.
  [[nodiscard]] const ContentMerger* Find(std::string_view path) const;

  /// Merges a file with the merger of its path. Nothing if it has none.
  [[nodiscard]] Result<std::optional<MergedContent>> Merge(const ContentToMerge& content) const;

 private:
  std::vector<std::pair<std::string, ContentMerger>> m_mergers;
};

}  // namespace TalVcs::Kit
