#pragma once

#include <talvcs/foundation/counted_ptr.h>
#include <talvcs/foundation/internal/ref_count.h>

#include <cstddef>
#include <memory>
#include <new>

namespace TalUtils {

/// The head of a piece of memory that its holders share. Its elements follow it in the same
/// allocation. A derived class adds its own fields. `CountedPtr` holds a block.
struct CountedBlock {
  RefCount holders;
};

/// Returns a new block with one hold and room for `bytes` bytes after its head.
template <class Head>
Head* NewCountedBlock(std::size_t bytes) {
  return ::new (::operator new(sizeof(Head) + bytes)) Head;
}

/// Frees a block that has no hold left. The elements after the head must be destroyed before.
template <class Head>
void FreeCountedBlock(Head* head) noexcept {
  std::destroy_at(head);
  ::operator delete(head);
}

/// Ends a hold that no `CountedPtr` owns.
template <class Block>
void EndHold(Block* held) noexcept {
  const CountedPtr<Block> hold(held);
}

/// Returns the first element after the head.
template <class T, class Head>
T* FirstAfter(Head* head) noexcept {
  static_assert(sizeof(Head) % alignof(T) == 0);
  return static_cast<T*>(static_cast<void*>(head + 1));
}

/// Returns the head before the first element.
template <class Head, class T>
Head* HeadBefore(T* first) noexcept {
  return static_cast<Head*>(static_cast<void*>(first)) - 1;
}

}  // namespace TalUtils
