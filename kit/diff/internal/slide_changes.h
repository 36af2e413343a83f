#pragma once

#include <kit/diff/internal/line_matches.h>

#include <span>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// Moves changes across equal lines: to a place where both texts change, or else as far down as
/// they go. The number of kept lines stays. The changes of the first text are moved first; one that
/// met a change of the second text stays there, even if that one moves on.
void SlideChanges(std::span<const std::string_view> before, std::span<const std::string_view> after,
                  std::vector<LineMatch>& kept);

}  // namespace TalVcs::Kit
