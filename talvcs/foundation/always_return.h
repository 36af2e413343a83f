#pragma once

namespace TalUtils {

/// A callable that returns one value for any arguments: `always_return_t<int>{7}`.
template <class T>
struct always_return_t {
  T value;  ///< What each call returns.

  /// Returns `value` for any arguments.
  template <class... Args>
  constexpr T operator()(Args&&...) const {
    return value;
  }
};

}  // namespace TalUtils
