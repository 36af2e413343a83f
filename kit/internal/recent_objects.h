#pragma once

#include <talvcs/objects/id.h>

#include <cstdint>
#include <iterator>
#include <list>
#include <unordered_map>
#include <utility>

namespace TalVcs::Kit {

/// A cache: values under ids, the ones used last, up to a number of bytes.
template <class Value>
class RecentObjects {
 public:
  explicit RecentObjects(std::uint64_t mostBytes) : m_mostBytes(mostBytes) {}
  RecentObjects(const RecentObjects&) = delete;
  RecentObjects& operator=(const RecentObjects&) = delete;

  /// Returns the value, which is the one used last then, or null. Valid until the next `Put` or
  /// `Clear`.
  Value* Find(const Id& id) {
    const auto found = m_index.find(id);
    if (found == m_index.end()) return nullptr;
    m_entries.splice(m_entries.begin(), m_entries, found->second);
    return &found->second->value;
  }

  /// Puts a value of `sizeBytes` in the place of an older one of that id. The room of the entry
  /// itself is added. One that is larger than the cache isn't kept.
  void Put(const Id& id, Value value, std::uint64_t sizeBytes) {
    const auto found = m_index.find(id);
    if (found != m_index.end()) Erase(found->second);
    sizeBytes += kEntryBytes;
    if (sizeBytes > m_mostBytes) return;
    m_entries.push_front({id, std::move(value), sizeBytes});
    m_index.emplace(id, m_entries.begin());
    m_sizeBytes += sizeBytes;
    while (m_sizeBytes > m_mostBytes) Erase(std::prev(m_entries.end()));
  }

  void Clear() noexcept {
    m_index.clear();
    m_entries.clear();
    m_sizeBytes = 0;
  }

  std::uint64_t GetSizeInBytes() const noexcept { return m_sizeBytes; }

 private:
  struct Entry {
    Id id;
    Value value;
    std::uint64_t sizeBytes;
  };
  using Entries = std::list<Entry>;

  // About what the nodes of list and index and the texts of two ids take.
  static constexpr std::uint64_t kEntryBytes = 512;

  void Erase(typename Entries::iterator entry) {
    m_sizeBytes -= entry->sizeBytes;
    m_index.erase(entry->id);
    m_entries.erase(entry);
  }

  std::uint64_t m_mostBytes;
  std::uint64_t m_sizeBytes = 0;
  Entries m_entries;  // the one used last comes first
  std::unordered_map<Id, typename Entries::iterator> m_index;
};

}  // namespace TalVcs::Kit
