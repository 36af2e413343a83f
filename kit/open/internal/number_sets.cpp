#include <kit/open/internal/number_sets.h>

#include <algorithm>
#include <iterator>

namespace TalVcs::Kit {

namespace {

/// Appends a range that doesn't begin before the last one. Ranges that meet become one.
void Append(std::vector<NumberRange>& ranges, const NumberRange& range) {
  if (ranges.empty() || range.first > ranges.back().end) {
    ranges.push_back(range);
  } else {
    ranges.back().end = std::max(ranges.back().end, range.end);
  }
}

}  // namespace

NumberSets::NumberSets() { Keep({}); }

std::uint32_t NumberSets::Keep(RangeList ranges) {
  const auto next = static_cast<std::uint32_t>(m_sets.size());
  const auto [entry, added] = m_indexes.try_emplace(std::move(ranges), next);
  if (added) m_sets.push_back(&entry->first);
  return entry->second;
}

std::uint32_t NumberSets::Make(std::vector<std::uint32_t> numbers) {
  std::sort(numbers.begin(), numbers.end());
  RangeList ranges;
  for (const std::uint32_t number : numbers) Append(ranges, {number, number + 1});
  return Keep(std::move(ranges));
}

std::uint32_t NumberSets::MakeRange(NumberRange range) {
  return range.GetCount() == 0 ? kEmpty : Keep({range});
}

std::uint32_t NumberSets::Union(std::uint32_t first, std::uint32_t second) {
  if (first == second || second == kEmpty) return first;
  if (first == kEmpty) return second;
  const auto known = m_unions.find(std::minmax(first, second));
  if (known != m_unions.end()) return known->second;
  RangeList all;
  std::ranges::merge(Ranges(first), Ranges(second), std::back_inserter(all));
  RangeList ranges;
  for (const NumberRange& range : all) Append(ranges, range);
  const std::uint32_t both = Keep(std::move(ranges));
  m_unions.emplace(std::minmax(first, second), both);
  return both;
}

bool NumberSets::Includes(std::uint32_t whole, std::uint32_t part) const {
  if (whole == part || part == kEmpty) return true;
  const std::span<const NumberRange> ranges = Ranges(whole);
  auto at = ranges.begin();
  // A range of the part is in a single one of the whole, because those don't meet.
  return std::ranges::all_of(Ranges(part), [&](const NumberRange& range) {
    at = std::ranges::find_if(at, ranges.end(),
                              [&](const NumberRange& other) { return other.end >= range.end; });
    return at != ranges.end() && at->first <= range.first;
  });
}

}  // namespace TalVcs::Kit
