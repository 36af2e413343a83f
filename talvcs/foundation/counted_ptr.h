#pragma once

#include <utility>

namespace TalUtils {

/// A hold on a counted block, or on none.
///
/// A copy shares the block; the last hold that ends frees it. A moved-from pointer is null. `Block`
/// has a count `holders`, which starts with one hold, and a static function `Free`. It needs to be
/// complete only where a hold begins or ends.
///
/// Threads: the count is atomic, so pointers to one block may be copied and dropped on different
/// threads. One pointer belongs to one thread at a time.
template <class Block>
class CountedPtr {
 public:
  CountedPtr() noexcept = default;
  /// Takes over the caller's hold on `held`, which may be null.
  explicit CountedPtr(Block* held) noexcept : m_block(held) {}
  CountedPtr(const CountedPtr& other) noexcept : m_block(other.m_block) {
    if (m_block != nullptr) m_block->holders.Acquire();
  }
  CountedPtr(CountedPtr&& other) noexcept : m_block(other.Disown()) {}
  // The previous block is freed last, because it may be what keeps `other` alive.
  CountedPtr& operator=(const CountedPtr& other) noexcept {
    CountedPtr copy(other);
    std::swap(m_block, copy.m_block);
    return *this;
  }
  CountedPtr& operator=(CountedPtr&& other) noexcept {
    CountedPtr taken(std::move(other));
    std::swap(m_block, taken.m_block);
    return *this;
  }
  ~CountedPtr() {
    if (m_block != nullptr && m_block->holders.Release()) Block::Free(m_block);
  }

  /// Returns a new hold on `block`, which must be held already; null for null.
  static CountedPtr Share(Block* block) noexcept {
    if (block != nullptr) block->holders.Acquire();
    return CountedPtr(block);
  }
  /// Returns the block, whose hold the caller takes over, and becomes null.
  Block* Disown() noexcept { return std::exchange(m_block, nullptr); }

  /// Return the block, null for none, without a hold on it.
  Block* get() const noexcept { return m_block; }
  Block* operator->() const noexcept { return m_block; }
  Block& operator*() const noexcept { return *m_block; }
  explicit operator bool() const noexcept { return m_block != nullptr; }

 private:
  Block* m_block = nullptr;
};

}  // namespace TalUtils
