#pragma once

#include <kit/open/internal/number_sets.h>

#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace TalVcs::Kit {

/// Numbers the branches of a repository so that those that reach a commit follow each other.
///
/// This is possible because histories fork and never join. So the branches that reach a commit are
/// one range, however many they are.
///
///     A---B---C     first: 0       A, B: 0 and 1   C: 0   D: 1
///         `---D     second: 1
class BranchNumbers {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  /// Commits and branches are known by their indexes. `parents` has `kNone` for a commit without a
  /// parent; `heads` has the branches of each commit that is a head. Cost: a step for each commit.
  BranchNumbers(std::span<const std::uint32_t> parents,
                const std::map<std::uint32_t, std::vector<std::uint32_t>>& heads);

  /// Returns the commits, each after its parent.
  std::span<const std::uint32_t> Order() const noexcept { return m_order; }
  /// Returns the numbers of the branches that reach a commit.
  const NumberRange& Reaching(std::uint32_t commit) const { return m_ranges[commit]; }
  /// Returns the branch of each number, without those that have no commit.
  std::span<const std::uint32_t> Branches() const noexcept { return m_branches; }

 private:
  std::vector<std::uint32_t> m_order;
  std::vector<NumberRange> m_ranges;
  std::vector<std::uint32_t> m_branches;
};

}  // namespace TalVcs::Kit
