#include <kit/open/internal/id_map.h>

#include <array>
#include <cstring>

namespace TalVcs::Kit {

namespace {

constexpr std::size_t kFirstSlots = 64;

}  // namespace

std::pair<std::uint32_t*, bool> IdMap::Insert(const ObjectKey& key, std::uint32_t value) {
  if (10 * (m_count + 1) > 7 * m_slots.size()) Grow();
  Slot& slot = m_slots[SlotOf(key)];
  if (slot.value != kFree) return {&slot.value, false};
  slot = {key, value};
  ++m_count;
  return {&slot.value, true};
}

std::uint32_t* IdMap::Find(const ObjectKey& key) noexcept {
  if (m_slots.empty()) return nullptr;
  Slot& slot = m_slots[SlotOf(key)];
  return slot.value == kFree ? nullptr : &slot.value;
}

const std::uint32_t* IdMap::Find(const ObjectKey& key) const noexcept {
  if (m_slots.empty()) return nullptr;
  const Slot& slot = m_slots[SlotOf(key)];
  return slot.value == kFree ? nullptr : &slot.value;
}

// Returns where the key is, or the free slot where it belongs. All words take part, because a
// hostile store chooses the ids that its trees name.
std::size_t IdMap::SlotOf(const ObjectKey& key) const noexcept {
  std::array<std::uint64_t, 4> words;
  static_assert(sizeof(words) == sizeof(key));
  std::memcpy(words.data(), key.data(), sizeof(words));
  std::uint64_t hash = 0;
  for (const std::uint64_t word : words) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 32;
  }
  const std::size_t mask = m_slots.size() - 1;
  std::size_t index = static_cast<std::size_t>(hash) & mask;
  while (m_slots[index].value != kFree && !(m_slots[index].key == key)) index = (index + 1) & mask;
  return index;
}

void IdMap::Grow() {
  std::vector<Slot> old(m_slots.empty() ? kFirstSlots : 2 * m_slots.size());
  old.swap(m_slots);
  for (const Slot& slot : old) {
    if (slot.value != kFree) m_slots[SlotOf(slot.key)] = slot;
  }
}

}  // namespace TalVcs::Kit
