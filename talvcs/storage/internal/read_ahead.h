#pragma once

#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>

namespace TalVcs {

/// Packed forms that a reader passed on before anything asked for them, up to a bound.
///
/// What comes when it is full is dropped: a walk uses what came first. Objects that nothing asked
/// for go when the next ones are about to come and there is little room left.
class ReadAheadCache {
 public:
  /// Says that more is about to come.
  void MakeRoom() noexcept {
    if (m_sizeBytes > kMostBytes / 2) Clear();
  }

  void Put(const Id& id, const Buffer& packed) {
    const std::uint64_t size = packed.GetSize();
    if (size > kMostBytes - m_sizeBytes) return;
    if (m_packed.try_emplace(id, packed).second) m_sizeBytes += size;
  }

  bool Contains(const Id& id) const { return m_packed.contains(id); }

  /// Returns the packed form, which is not cached any more, if it was.
  std::optional<Buffer> Take(const Id& id) {
    const auto found = m_packed.find(id);
    if (found == m_packed.end()) return std::nullopt;
    Buffer packed = std::move(found->second);
    m_packed.erase(found);
    m_sizeBytes -= packed.GetSize();
    return packed;
  }

  void Clear() noexcept {
    std::unordered_map<Id, Buffer>().swap(m_packed);
    m_sizeBytes = 0;
  }

 private:
  static constexpr std::uint64_t kMostBytes = 8 << 20;

  std::unordered_map<Id, Buffer> m_packed;
  std::uint64_t m_sizeBytes = 0;
};

}  // namespace TalVcs
