#pragma once

#include <kit/diff/line_diff.h>
#include <kit/export.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// A text as one version has it.
struct TextVersion {
  std::string id;    ///< Names the version: an id, or any other text of the caller.
  std::string text;  ///< The whole text.
};

/// Returns the next older version of a text each time it is called, at first the newest one;
/// nothing when there is no older one that has the text. An error ends the blame.
using NextOlderVersion = std::function<Result<std::optional<TextVersion>>()>;

/// The origin of a line.
struct BlamedLine {
  std::string text;         ///< The line with its end.
  std::size_t version = 0;  ///< Index into `Blame::versions`: the version that added the line.
  std::size_t line = 0;     ///< Its place in that version's text, from 0.

  friend bool operator==(const BlamedLine&, const BlamedLine&) = default;
};

/// The origin of each line of a text.
struct Blame {
  std::vector<BlamedLine> lines;      ///< All lines of the newest version.
  std::vector<std::string> versions;  ///< Ids of the versions that were read, the newest first.
  /// False if `BlameOptions::mostVersions` ended the search. The origin of a line of the last
  /// version that was read may then be older.
  bool isComplete = true;
};

/// Options of `BlameText`.
struct BlameOptions {
  /// Most versions that are read.
  std::uint64_t mostVersions = UINT64_MAX;
  /// Options of the comparison of each pair of versions.
  LineDiffOptions lines = {};
  /// The phase is "versions", its items are versions that were read.
  Progress progress = {};
};

/// Finds for each line of a text the version that added it.
///
/// Compares each version with the next older one and follows the lines that both have. Stops asking
/// for versions when each line has its origin. A list without any version has no lines. Keeps two
/// versions in memory. Fails with the error of `next`, or with `Cancelled`.
[[nodiscard]] TALVCS_KIT_API Result<Blame> BlameText(const NextOlderVersion& next,
                                                     const BlameOptions& options = {});

}  // namespace TalVcs::Kit
