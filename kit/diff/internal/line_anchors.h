#pragma once

#include <kit/diff/internal/line_matches.h>

#include <cstdint>
#include <span>
#include <vector>

namespace TalVcs::Kit {

/// Returns the places of the lines that occur once in each of two texts, as many as have the same
/// order in both. Lines are given as numbers. Cost: n log n.
std::vector<LineMatch> FindAnchors(std::span<const std::uint32_t> before,
                                   std::span<const std::uint32_t> after);

}  // namespace TalVcs::Kit
