#include <kit/open/internal/number_sets.h>

#include <algorithm>
#include <iterator>

namespace TalVcs::Kit {

NumberSets::NumberSets() { Make({}); }

std::uint32_t NumberSets::Make(std::vector<std::uint32_t> numbers) {
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  const auto next = static_cast<std::uint32_t>(m_sets.size());
  const auto [entry, added] = m_indexes.try_emplace(std::move(numbers), next);
  if (added) m_sets.push_back(&entry->first);
  return entry->second;
}

std::uint32_t NumberSets::Union(std::uint32_t first, std::uint32_t second) {
  if (first == second || second == kEmpty) return first;
  if (first == kEmpty) return second;
  const auto known = m_unions.find(std::minmax(first, second));
  if (known != m_unions.end()) return known->second;
  std::vector<std::uint32_t> numbers;
  std::ranges::set_union(Numbers(first), Numbers(second), std::back_inserter(numbers));
  const std::uint32_t both = Make(std::move(numbers));
  m_unions.emplace(std::minmax(first, second), both);
  return both;
}

bool NumberSets::Includes(std::uint32_t whole, std::uint32_t part) const {
  return whole == part || part == kEmpty || std::ranges::includes(Numbers(whole), Numbers(part));
}

}  // namespace TalVcs::Kit
