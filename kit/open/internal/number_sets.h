#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// Sets of small numbers, each kept once and known by its index. Set 0 is empty.
class NumberSets {
 public:
  static constexpr std::uint32_t kEmpty = 0;

  NumberSets();

  /// Returns the set of these numbers, which may come in any order and more than once.
  std::uint32_t Make(std::vector<std::uint32_t> numbers);
  std::uint32_t Union(std::uint32_t first, std::uint32_t second);
  /// True if every number of `part` is in `whole`.
  bool Includes(std::uint32_t whole, std::uint32_t part) const;
  /// The numbers, ascending; valid until a set is made.
  std::span<const std::uint32_t> Numbers(std::uint32_t set) const { return *m_sets[set]; }
  std::size_t GetCount() const noexcept { return m_sets.size(); }

 private:
  std::map<std::vector<std::uint32_t>, std::uint32_t> m_indexes;
  std::vector<const std::vector<std::uint32_t>*> m_sets;  // keys of the map
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> m_unions;
};

}  // namespace TalVcs::Kit
