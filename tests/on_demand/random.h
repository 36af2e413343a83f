#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace TalVcs::Testing {

/// Random numbers from a seed, the same ones on every platform.
class Random {
 public:
  explicit Random(std::uint64_t seed) : m_state(seed) {}

  /// Returns a number below `limit`, which is at least 1.
  std::size_t Below(std::size_t limit) {
    m_state += 0x9E3779B97F4A7C15;
    std::uint64_t z = m_state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return static_cast<std::size_t>((z ^ (z >> 31)) % limit);
  }
  /// True once in `limit` times.
  bool OneIn(std::size_t limit) { return Below(limit) == 0; }
  /// Returns an element of a container that isn't empty.
  template <class Container>
  const auto& Of(const Container& container) {
    return *std::next(std::begin(container),
                      static_cast<std::ptrdiff_t>(Below(std::size(container))));
  }

 private:
  std::uint64_t m_state;
};

}  // namespace TalVcs::Testing
