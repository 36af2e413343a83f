#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// Places of two equal lines that a comparison keeps.
struct LineMatch {
  std::size_t before;
  std::size_t after;
};

/// The kept lines of a comparison, ascending in both texts.
struct LineMatches {
  std::vector<LineMatch> kept;
  bool isShortest = true;
};

/// Finds a longest common subsequence, within the bound of `LineDiffOptions::mostSteps`.
LineMatches MatchLines(std::span<const std::string_view> before,
                       std::span<const std::string_view> after, std::uint64_t mostSteps);

}  // namespace TalVcs::Kit
