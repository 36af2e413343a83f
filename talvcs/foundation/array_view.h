#pragma once

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <vector>

namespace TalUtils {

/// A view of a run of `T` that it does not own. The run must live and stay in place.
template <class T>
class array_view {
 public:
  constexpr array_view() noexcept = default;
  /// Views the elements from `begin` up to, not including, `end`.
  constexpr array_view(T* begin, T* end) noexcept : m_begin(begin), m_end(end) {}

  /// Views all elements of `elements`; a change of its size makes the view invalid.
  array_view(
      const std::vector<std::remove_const_t<T>>& elements) noexcept requires std::is_const_v<T>
      : array_view(elements.data(), elements.data() + elements.size()) {}
  array_view(std::vector<T>& elements) noexcept requires(!std::is_const_v<T>)
      : array_view(elements.data(), elements.data() + elements.size()) {}

  /// Return the number of elements, whether there are none, and the bounds of the run.
  constexpr std::size_t size() const noexcept { return static_cast<std::size_t>(m_end - m_begin); }
  constexpr bool empty() const noexcept { return m_begin == m_end; }
  constexpr T* begin() const noexcept { return m_begin; }
  constexpr T* end() const noexcept { return m_end; }

  /// The element at `index`, which has to be below the size; `back` needs an element.
  constexpr T& operator[](std::size_t index) const noexcept { return m_begin[index]; }
  constexpr T& back() const noexcept { return m_end[-1]; }

  /// The last `n` elements, or all if there are fewer.
  constexpr array_view last(std::size_t n) const noexcept {
    return array_view(m_end - std::min(n, size()), m_end);
  }
  /// All but the last `n` elements, or none if there are fewer.
  constexpr array_view without_last(std::size_t n) const noexcept {
    return array_view(m_begin, m_end - std::min(n, size()));
  }

 private:
  T* m_begin = nullptr;
  T* m_end = nullptr;
};

}  // namespace TalUtils
