#pragma once

#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

namespace TalUtils {

template <class Signature, int Safe = 1>
class basic_safe_function;

/// A copyable callable whose call is safe when it is empty.
///
/// Calling an empty one does nothing and returns the value-initialised result. A moved-from one is
/// empty. A copy has a copy of the target, with its own state. A target whose copies must share a
/// state has to hold that state by reference.
template <class R, class... Args, int Safe>
class basic_safe_function<R(Args...), Safe> {
 public:
  basic_safe_function() noexcept = default;
  basic_safe_function(const basic_safe_function&) = default;
  basic_safe_function(basic_safe_function&& other) noexcept
      : m_target(std::exchange(other.m_target, nullptr)) {}
  basic_safe_function& operator=(const basic_safe_function&) = default;
  basic_safe_function& operator=(basic_safe_function&& other) noexcept {
    m_target = std::exchange(other.m_target, nullptr);
    return *this;
  }
  ~basic_safe_function() = default;

  /// Takes any callable that fits the signature. A null function pointer gives an empty one.
  template <class F>
  requires(!std::same_as<std::remove_cvref_t<F>, basic_safe_function> &&
           std::is_invocable_r_v<R, std::decay_t<F>&, Args...> &&
           std::copy_constructible<std::decay_t<F>>) basic_safe_function(F&& callable)
      : m_target(std::forward<F>(callable)) {}

  /// True if there is a target.
  explicit operator bool() const noexcept { return static_cast<bool>(m_target); }

  /// Calls the target; without one, returns a value-made `R`.
  R operator()(Args... args) const {
    if (!m_target) return R();
    return m_target(std::forward<Args>(args)...);
  }

 private:
  std::function<R(Args...)> m_target;
};

}  // namespace TalUtils
