#pragma once

#include <concepts>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

namespace TalUtils {

/// Makes the objects that `cow_ptr::write` needs. The library has specialisations for its own
/// classes, so that those are made and freed in the library.
template <class T>
struct cow_factory {
  /// Return a new default-made object, and a copy of `source`.
  static std::shared_ptr<T> create() { return std::make_shared<T>(); }
  static std::shared_ptr<T> copy(const T& source) { return std::make_shared<T>(source); }
};

/// A shared pointer with copy on write.
///
/// Reading returns the shared object and never copies it, even through a handle that isn't const.
/// `write` alone gives a mutable object, which no other handle sees. A copy of the handle costs one
/// count. A moved-from handle is null.
///
/// Threads: the count is atomic, so handles on one object may be copied and dropped on different
/// threads. One handle, and the object under `write`, belong to one thread at a time.
template <class T>
class cow_ptr {
 public:
  /// The type of the object, without const.
  using element_type = T;

  constexpr cow_ptr() noexcept = default;
  /// A null handle.
  constexpr cow_ptr(std::nullptr_t) noexcept {}

  /// Takes over a share of the object.
  cow_ptr(std::shared_ptr<T> shared) noexcept : m_shared(std::move(shared)) {}

  /// Shares the object of a handle on a derived class.
  template <class Derived>
  requires(!std::same_as<Derived, T> && std::convertible_to<Derived*, T*>)
      cow_ptr(const cow_ptr<Derived>& other)
  noexcept : m_shared(other.m_shared) {}
  template <class Derived>
  requires(!std::same_as<Derived, T> && std::convertible_to<Derived*, T*>)
      cow_ptr(cow_ptr<Derived>&& other)
  noexcept : m_shared(std::move(other.m_shared)) {}

  /// Return the object for reading. Only `get` may be called on a null handle; it returns null.
  const T* get() const noexcept { return m_shared.get(); }
  const T* operator->() const noexcept { return m_shared.get(); }
  const T& operator*() const noexcept { return *m_shared; }
  explicit operator bool() const noexcept { return m_shared != nullptr; }

  /// Returns an object that this handle alone holds, valid until the handle is copied or changed.
  ///
  /// A null handle gets a new default-made object; a sole holder keeps its object; one that shares
  /// gets a copy of that one level, and the other holders keep the old object.
  T* write() {
    if (m_shared == nullptr) {
      m_shared = cow_factory<T>::create();
    } else if (m_shared.use_count() != 1) {
      m_shared = cow_factory<T>::copy(*m_shared);
    }
    return m_shared.get();
  }

  /// Returns the number of handles that share the object, 0 for a null handle.
  long use_count() const noexcept { return m_shared.use_count(); }

  /// Handles are equal when they hold the same object, or both none.
  friend bool operator==(const cow_ptr& a, const cow_ptr& b) noexcept {
    return a.m_shared == b.m_shared;
  }
  friend bool operator==(const cow_ptr& a, std::nullptr_t) noexcept {
    return a.m_shared == nullptr;
  }

  /// Returns a handle on the same object as a `Derived`, which it has to be.
  template <class Derived>
  requires std::derived_from<Derived, T> cow_ptr<Derived> as()
  const noexcept { return cow_ptr<Derived>(std::static_pointer_cast<Derived>(m_shared)); }

 private:
  template <class Other>
  friend class cow_ptr;

  std::shared_ptr<T> m_shared;
};

}  // namespace TalUtils
