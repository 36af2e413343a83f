#pragma once

#include <kit/store/object_key.h>

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Sqlite {

/// Objects that were written and aren't in the file yet, in the order in which they came.
class PendingObjects {
 public:
  struct Entry {
    ObjectKey key;
    Buffer packed;
    // The previous version of the same path; empty if it isn't known.
    Id previous;
  };

  /// Keeps the first of several objects of one key.
  void Add(const ObjectKey& key, const Buffer& packed, const Id& previous) {
    if (!m_places.try_emplace(key, m_entries.size()).second) return;
    m_entries.push_back({key, packed, previous});
    m_sizeBytes += packed.GetSize();
  }

  /// Returns null if there is none.
  const Buffer* Find(const ObjectKey& key) const {
    const auto found = m_places.find(key);
    return found == m_places.end() ? nullptr : &m_entries[found->second].packed;
  }

  const std::vector<Entry>& Entries() const noexcept { return m_entries; }
  std::uint64_t SizeBytes() const noexcept { return m_sizeBytes; }

  void Clear() noexcept {
    m_entries.clear();
    m_places.clear();
    m_sizeBytes = 0;
  }

 private:
  std::vector<Entry> m_entries;
  std::unordered_map<ObjectKey, std::size_t, ObjectKeyHash> m_places;
  std::uint64_t m_sizeBytes = 0;
};

}  // namespace TalVcs::Kit::Sqlite
