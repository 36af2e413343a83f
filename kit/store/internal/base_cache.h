#pragma once

#include <kit/store/object_codec.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <list>
#include <optional>
#include <unordered_map>
#include <utility>

namespace TalVcs::Kit {

/// Objects that may be bases, the ones used last, up to a number of bytes.
class BaseCache {
 public:
  struct Entry {
    Id id;
    Id base;
    std::uint32_t position = 0;
    /// None for a version that is no base of others, of which the place alone is of use.
    std::optional<Buffer> packed;
    /// Whether it is known that `packed` fits `id`.
    bool fitsId = false;
  };

  explicit BaseCache(std::uint64_t mostBytes) : m_mostBytes(mostBytes) {}

  /// Returns the entry, or null. Valid until the next `Put` or `Clear`.
  const Entry* Find(const Id& id) {
    const auto found = m_index.find(id);
    if (found == m_index.end()) return nullptr;
    m_entries.splice(m_entries.begin(), m_entries, found->second);
    return &*found->second;
  }

  /// Adds an entry in the place of an older one of its id. One that is larger than the cache isn't
  /// kept.
  void Put(Entry entry) {
    const auto found = m_index.find(entry.id);
    if (found != m_index.end()) Erase(found->second);
    if (SizeOf(entry) > m_mostBytes) return;
    m_sizeBytes += SizeOf(entry);
    m_entries.push_front(std::move(entry));
    m_index.emplace(m_entries.front().id, m_entries.begin());
    while (m_sizeBytes > m_mostBytes) Erase(std::prev(m_entries.end()));
  }

  void Clear() noexcept {
    m_index.clear();
    m_entries.clear();
    m_sizeBytes = 0;
  }

  std::uint64_t GetSizeInBytes() const noexcept { return m_sizeBytes; }

 private:
  // About what the nodes of list and index and the texts of two ids take.
  static constexpr std::uint64_t kEntryBytes = 512;

  static std::uint64_t SizeOf(const Entry& entry) {
    return kEntryBytes + (entry.packed ? entry.packed->GetSize() : 0);
  }

  void Erase(std::list<Entry>::iterator entry) {
    m_sizeBytes -= SizeOf(*entry);
    m_index.erase(entry->id);
    m_entries.erase(entry);
  }

  std::uint64_t m_mostBytes;
  std::uint64_t m_sizeBytes = 0;
  std::list<Entry> m_entries;  // the one used last comes first
  std::unordered_map<Id, std::list<Entry>::iterator> m_index;
};

}  // namespace TalVcs::Kit
