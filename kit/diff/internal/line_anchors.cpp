#include <kit/diff/internal/line_anchors.h>

#include <algorithm>
#include <unordered_map>

namespace TalVcs::Kit {
namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

/// Returns the places of the lines that occur once in both texts, ascending in the first one.
std::vector<LineMatch> LinesThatOccurOnce(std::span<const std::uint32_t> before,
                                          std::span<const std::uint32_t> after) {
  struct Occurrence {
    std::size_t before = 0;
    std::size_t after = 0;
    std::size_t place = 0;  // in the second text
  };
  std::unordered_map<std::uint32_t, Occurrence> occurrences;
  for (const std::uint32_t line : before) ++occurrences[line].before;
  for (std::size_t i = 0; i < after.size(); ++i) {
    Occurrence& occurrence = occurrences[after[i]];
    ++occurrence.after;
    occurrence.place = i;
  }
  std::vector<LineMatch> matches;
  for (std::size_t i = 0; i < before.size(); ++i) {
    const Occurrence& occurrence = occurrences[before[i]];
    if (occurrence.before == 1 && occurrence.after == 1) matches.push_back({i, occurrence.place});
  }
  return matches;
}

/// Returns a longest list of these matches that ascends in the second text too.
std::vector<LineMatch> LongestAscending(const std::vector<LineMatch>& matches) {
  std::vector<std::size_t> last_of_length;  // index of the lowest match that ends such a list
  std::vector<std::size_t> previous(matches.size(), kNone);
  for (std::size_t i = 0; i < matches.size(); ++i) {
    const auto at = std::lower_bound(
        last_of_length.begin(), last_of_length.end(), matches[i].after,
        [&](std::size_t index, std::size_t after) { return matches[index].after < after; });
    if (at != last_of_length.begin()) previous[i] = *(at - 1);
    if (at == last_of_length.end()) {
      last_of_length.push_back(i);
    } else {
      *at = i;
    }
  }
  std::vector<LineMatch> longest;
  std::size_t next = last_of_length.empty() ? kNone : last_of_length.back();
  for (; next != kNone; next = previous[next]) longest.push_back(matches[next]);
  std::reverse(longest.begin(), longest.end());
  return longest;
}

}  // namespace

std::vector<LineMatch> FindAnchors(std::span<const std::uint32_t> before,
                                   std::span<const std::uint32_t> after) {
  return LongestAscending(LinesThatOccurOnce(before, after));
}

}  // namespace TalVcs::Kit
