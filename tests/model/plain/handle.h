#pragma once

#include <memory>
#include <utility>

namespace Model {

/// A counted share of an object, with copy on write. What holds an object decides what a purge
/// removes, so every holder in the model has a handle of its own, as in the library.
template <class T>
class Handle {
 public:
  Handle() = default;
  explicit Handle(T object) : m_object(std::make_shared<T>(std::move(object))) {}

  const T* get() const { return m_object.get(); }
  const T* operator->() const { return m_object.get(); }
  const T& operator*() const { return *m_object; }
  explicit operator bool() const { return m_object != nullptr; }
  long UseCount() const { return m_object.use_count(); }
  friend bool operator==(const Handle&, const Handle&) = default;

  /// Write access: null becomes a new object, a sole owner keeps its object, a shared one is
  /// copied.
  T* write() {
    if (m_object == nullptr) {
      m_object = std::make_shared<T>();
    } else if (m_object.use_count() != 1) {
      m_object = std::make_shared<T>(*m_object);
    }
    return m_object.get();
  }

 private:
  std::shared_ptr<T> m_object;
};

}  // namespace Model
