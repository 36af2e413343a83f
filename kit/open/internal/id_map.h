#pragma once

#include <talvcs/objects/id.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// The digest that an id writes in digits, in four words.
struct IdKey {
  std::array<std::uint64_t, 4> words{};

  friend bool operator==(const IdKey&, const IdKey&) = default;
};

/// Returns the key of an id; nothing for a text that no object can have as its id.
std::optional<IdKey> KeyOf(const Id& id);
/// Returns the id of a key.
Id IdOf(const IdKey& key);

/// A hash table from keys to numbers, of 40 bytes a slot in one piece of memory.
///
/// No entry can be removed. References and pointers are valid until the next insertion.
class IdMap {
 public:
  static constexpr std::uint32_t kMostValue = 0xFFFFFFFE;

  /// Inserts the key with `value` if it is not there. Returns the value that is in the table, and
  /// whether it was inserted.
  std::pair<std::uint32_t*, bool> Insert(const IdKey& key, std::uint32_t value);
  /// Returns the value of the key, or null.
  const std::uint32_t* Find(const IdKey& key) const noexcept;
  std::uint32_t* Find(const IdKey& key) noexcept;
  bool Contains(const IdKey& key) const noexcept { return Find(key) != nullptr; }
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
    IdKey key;
    std::uint32_t value = kFree;
  };

  std::size_t SlotOf(const IdKey& key) const noexcept;
  void Grow();

  std::vector<Slot> m_slots;  // a power of two, or none
  std::size_t m_count = 0;
};

}  // namespace TalVcs::Kit
