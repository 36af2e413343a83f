#pragma once

#include <kit/open/internal/number_sets.h>
#include <kit/open/report.h>

#include <cstdint>
#include <vector>

namespace TalVcs::Kit {

/// The damages that a walk found, and sets of them: a set says what one object lacks.
class DamageList {
 public:
  /// The list has up to `most` damages.
  explicit DamageList(std::uint32_t most) : m_most(most) {}
  /// Adds a damage and returns the set of it alone. What is beyond the list's length is counted,
  /// and all of it has one set.
  std::uint32_t Add(Damage damage);
  NumberSets& Sets() noexcept { return m_sets; }
  std::uint32_t GetMost() const noexcept { return m_most; }

  /// Counts one more commit that lacks what is in the set.
  void CountCommit(std::uint32_t set);
  /// Moves the damages, each with its number of commits, into the report.
  void MoveTo(HistoryReport& report);

 private:
  std::uint32_t m_most;
  NumberSets m_sets;
  std::vector<Damage> m_damages;
  std::uint64_t m_count = 0;
  std::vector<std::uint64_t> m_commits;  // by set
};

}  // namespace TalVcs::Kit
