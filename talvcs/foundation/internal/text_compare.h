#pragma once

#include <talvcs/foundation/wide_char.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace TalPlatform {

/// Returns the index of the first unit in which `a` and `b` differ, or `count`.
///
/// Compares a machine word at a time: ids agree in nothing or in everything, names often share
/// long beginnings.
template <class C>
std::size_t FindMismatch(const C* a, const C* b, std::size_t count) noexcept {
  constexpr std::size_t kStep = sizeof(std::uint64_t) / sizeof(C);
  std::size_t index = 0;
  for (; index + kStep <= count; index += kStep) {
    std::uint64_t word_a;
    std::uint64_t word_b;
    std::memcpy(&word_a, a + index, sizeof(word_a));
    std::memcpy(&word_b, b + index, sizeof(word_b));
    if (word_a == word_b) continue;
    const std::uint64_t difference = word_a ^ word_b;
    const int bit = std::endian::native == std::endian::little ? std::countr_zero(difference)
                                                               : std::countl_zero(difference);
    return index + static_cast<std::size_t>(bit) / (8 * sizeof(C));
  }
  while (index < count && a[index] == b[index]) ++index;
  return index;
}

/// Compares two texts by their code units as unsigned values, the shorter text first at a common
/// prefix. Returns a negative value, zero or a positive one.
template <class C>
int CompareUnits(const C* a, std::size_t a_count, const C* b, std::size_t b_count) noexcept {
  const std::size_t common = a_count < b_count ? a_count : b_count;
  const std::size_t index = a == b ? common : FindMismatch(a, b, common);
  if (index < common) {
    using Unit = std::make_unsigned_t<std::conditional_t<sizeof(C) == 1, char, std::int16_t>>;
    return static_cast<Unit>(a[index]) < static_cast<Unit>(b[index]) ? -1 : 1;
  }
  return a_count == b_count ? 0 : (a_count < b_count ? -1 : 1);
}

}  // namespace TalPlatform
