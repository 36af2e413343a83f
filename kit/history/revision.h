#pragma once

#include <kit/export.h>
#include <kit/text/result.h>
#include <kit/workspace/workspace.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// The name of the current branch's newest version in `FindRevision`.
inline constexpr std::string_view kHeadRevision = "HEAD";

/// The fewest characters of an id that `FindByPrefix` looks for.
inline constexpr std::size_t kFewestPrefixCharacters = 4;

/// A revision with a distance, such as "draft~3".
struct RevisionSteps {
  std::string name;         ///< What is before the last "~".
  std::uint32_t steps = 1;  ///< The number after it; 1 if there is none.

  friend bool operator==(const RevisionSteps&, const RevisionSteps&) = default;
};

/// Splits a revision at its last "~". Returns nothing if it has none, or something else than a
/// number after it. A number of more than 32 bits becomes the largest one.
[[nodiscard]] TALVCS_KIT_API std::optional<RevisionSteps> SplitSteps(std::string_view revision);

/// Returns the versions of all branches and tags whose ids begin with these lower-case hexadecimal
/// digits, newest first; none for fewer than `kFewestPrefixCharacters` and for other text. Reads
/// the whole history. Fails as `Workspace::Log` does.
[[nodiscard]] TALVCS_KIT_API Result<std::vector<Version>> FindByPrefix(const Workspace& workspace,
                                                                       std::string_view prefix);

/// Finds the version that a person means: "HEAD" for the newest one of the current branch, a
/// branch, a tag, an id, or the beginning of an id; after it perhaps "~" and the number of versions
/// to go back. A name that exists comes before the beginning of an id, and before one that is
/// split.
///
/// Fails with `NotFound` if there is no such version, even after too many steps; with `BadName` if
/// several ids begin with the text (`FindByPrefix` returns them); with `BadText` for a text that
/// isn't UTF-8. Reads the whole history if it must look for the beginning of an id.
[[nodiscard]] TALVCS_KIT_API Result<Version> FindRevision(const Workspace& workspace,
                                                          std::string_view revision);

}  // namespace TalVcs::Kit
