#pragma once

#include <utility>

namespace TalUtils {

template <class Signature>
class Delegate;

/// A call bound to an object that it does not own: two words, copied by value.
///
/// It is empty when both words are null. The object has to live while the delegate is called.
template <class R, class... Args>
class Delegate<R(Args...)> {
 public:
  /// The function that is called, with the object as its first argument.
  using Function = R (*)(void*, Args...);

  constexpr Delegate() noexcept = default;
  /// Binds `function` to `object`.
  constexpr Delegate(void* object, Function function) noexcept
      : m_object(object), m_function(function) {}

  /// True unless both words are null.
  constexpr explicit operator bool() const noexcept {
    return m_object != nullptr || m_function != nullptr;
  }

  /// Calls the function with the object and `args`. There has to be a function.
  R operator()(Args... args) const { return m_function(m_object, std::forward<Args>(args)...); }

 private:
  void* m_object = nullptr;
  Function m_function = nullptr;
};

}  // namespace TalUtils
