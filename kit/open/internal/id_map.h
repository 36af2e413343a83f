#pragma once

#include <kit/store/object_key.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// A hash table from keys to numbers, of 36 bytes a slot in one piece of memory.
///
/// No entry can be removed. References and pointers are valid until the next insertion.
class IdMap {
 public:
  static constexpr std::uint32_t kMostValue = 0xFFFFFFFE;

  /// Inserts the key with `value` if it is not there. Returns the value that is in the table, and
  /// whether it was inserted.
  std::pair<std::uint32_t*, bool> Insert(const ObjectKey& key, std::uint32_t value);
  /// Returns the value of the key, or null.
  const std::uint32_t* Find(const ObjectKey& key) const noexcept;
  std::uint32_t* Find(const ObjectKey& key) noexcept;
  bool Contains(const ObjectKey& key) const noexcept { return Find(key) != nullptr; }
  std::size_t GetCount() const noexcept { return m_count; }

  /// Calls `visit(key, value)` for each entry, in no order.
  template <class Visit>
  void ForEach(Visit visit) const {
    for (const Slot& slot : m_slots) {
      if (slot.value != kFree) visit(slot.key, slot.value);
    }
  }

 private:
  static constexpr std::uint32_t kFree = 0xFFFFFFFF;

  struct Slot {
    ObjectKey key{};
    std::uint32_t value = kFree;
  };

  std::size_t SlotOf(const ObjectKey& key) const noexcept;
  void Grow();

  std::vector<Slot> m_slots;  // a power of two, or none
  std::size_t m_count = 0;
};

}  // namespace TalVcs::Kit
