#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// The numbers from `first` up to `end`, which isn't one of them.
struct NumberRange {
  std::uint32_t first = 0;
  std::uint32_t end = 0;

  std::uint32_t GetCount() const noexcept { return end - first; }
  friend auto operator<=>(const NumberRange&, const NumberRange&) = default;
};

/// Sets of small numbers, each kept once and known by its index. Set 0 is empty.
///
/// Cost: a set takes memory, and an operation time, by its ranges of numbers that follow each
/// other, and not by its numbers.
class NumberSets {
 public:
  static constexpr std::uint32_t kEmpty = 0;

  NumberSets();

  /// Returns the set of these numbers, which may come in any order and more than once.
  std::uint32_t Make(std::vector<std::uint32_t> numbers);
  /// Returns the set of a range, which may be empty.
  std::uint32_t MakeRange(NumberRange range);
  std::uint32_t Union(std::uint32_t first, std::uint32_t second);
  /// True if every number of `part` is in `whole`.
  bool Includes(std::uint32_t whole, std::uint32_t part) const;
  /// The numbers as the fewest ranges, ascending; valid until a set is made.
  std::span<const NumberRange> Ranges(std::uint32_t set) const { return *m_sets[set]; }
  std::size_t GetCount() const noexcept { return m_sets.size(); }

  /// Calls `visit` with each number of a set, ascending.
  template <class Visit>
  void ForEachNumber(std::uint32_t set, Visit visit) const {
    for (const NumberRange& range : Ranges(set)) {
      for (std::uint32_t number = range.first; number < range.end; ++number) visit(number);
    }
  }

 private:
  using RangeList = std::vector<NumberRange>;

  std::uint32_t Keep(RangeList ranges);

  std::map<RangeList, std::uint32_t> m_indexes;
  std::vector<const RangeList*> m_sets;  // keys of the map
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> m_unions;
};

}  // namespace TalVcs::Kit
