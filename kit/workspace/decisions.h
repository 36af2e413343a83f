#pragma once

#include <kit/export.h>
#include <kit/text/result.h>
#include <kit/workspace/merge_preview.h>
#include <kit/workspace/snapshot.h>

#include <optional>
#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// Returns what both sides did, for people: such as "changed on both sides", "added here, folder
/// there" or "removed here, changed there". "Here" is ours, "there" is theirs.
[[nodiscard]] TALVCS_KIT_API std::string Describe(const Conflict& conflict);

/// Returns the name of a side: "ours", "theirs", "base", or "edited" for new bytes.
[[nodiscard]] TALVCS_KIT_API const char* ToString(Decision::Side side) noexcept;

/// Takes the side with the later time.
///
/// A document may keep times in files: each at the path `timePath` in the folder that the time is
/// about, as a text that `ParseTime` reads. The search goes from the folder of the conflict up to
/// the topmost one; the first folder in which the times of both sides differ decides. A time on one
/// side alone is the later one. Returns none if no folder decides. `ours` and `theirs` are the
/// files of both sides. Fails with `Damaged` or `Unavailable` if an object can't be read.
[[nodiscard]] TALVCS_KIT_API Result<std::optional<Decision>> DecideByTime(
    const Conflict& conflict, const Snapshot& ours, const Snapshot& theirs,
    std::string_view timePath);

/// Adds a decision for each conflict of the preview that has none, so that a person can decide it
/// in the files: the merged text, with the markers of its merger, where there is one and both sides
/// have a file; else what ours has; else what theirs has. Returns all decisions.
[[nodiscard]] TALVCS_KIT_API Decisions KeepBothSides(const MergePreview& preview,
                                                     Decisions decisions = {});

}  // namespace TalVcs::Kit
