#pragma once

#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace TalVcs::Testing {

/// A history as plain data, for models: the parent of each commit, or -1. A parent comes before
/// its children.
struct Forest {
  std::vector<int> parents;

  int Size() const { return static_cast<int>(parents.size()); }

  /// The names under which `DrawHistory` knows the commits.
  static std::string NameOf(int commit) { return "c" + std::to_string(commit); }
  std::string Drawing() const;

  /// The commit itself, its parent, and so on to the root.
  std::vector<int> LineOf(int commit) const;

  /// "c0-c3-c4", from the root to `commit`, with the commits of `kept` alone.
  std::string ChainOf(int commit, const std::set<int>& kept) const;
  std::string ChainOf(int commit) const;
};

/// Returns a forest of that size. Some are bushy and some are long chains.
Forest RandomForest(std::mt19937& random, int size);

/// Returns a number below `bound`, the same on every platform.
inline int Below(std::mt19937& random, int bound) {
  return static_cast<int>(random() % static_cast<std::uint32_t>(bound));
}

/// Returns all forests of up to `size` commits.
std::vector<Forest> AllForests(int size);

}  // namespace TalVcs::Testing
