#pragma once

#include <stores/sqlite/internal/object_key.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>

namespace TalVcs::Kit::Sqlite {

/// Packed forms that were read or written last, because the next difference is often one from them.
/// An id says what the packed form is, so that an entry never gets wrong.
class RecentObjects {
 public:
  /// Larger objects are left out.
  static constexpr std::uint64_t kLargest = std::uint64_t{256} << 10;

  /// Returns null if there is none.
  const Buffer* Find(const ObjectKey& key) const {
    const auto found = m_objects.find(key);
    return found == m_objects.end() ? nullptr : &found->second;
  }

  /// Removes the oldest entries.
  void Add(const ObjectKey& key, const Buffer& packed) {
    if (packed.GetSize() > kLargest || !m_objects.try_emplace(key, packed).second) return;
    m_order.push_back(key);
    m_sizeBytes += packed.GetSize();
    while (m_sizeBytes > kMostBytes || m_order.size() > kMost) {
      const auto oldest = m_objects.find(m_order.front());
      m_sizeBytes -= oldest->second.GetSize();
      m_objects.erase(oldest);
      m_order.pop_front();
    }
  }

 private:
  static constexpr std::uint64_t kMostBytes = std::uint64_t{4} << 20;
  static constexpr std::size_t kMost = 1024;

  std::unordered_map<ObjectKey, Buffer, ObjectKeyHash> m_objects;
  std::deque<ObjectKey> m_order;
  std::uint64_t m_sizeBytes = 0;
};

}  // namespace TalVcs::Kit::Sqlite
