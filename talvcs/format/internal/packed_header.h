#pragma once

#include <talvcs/foundation/names.h>

#include <charconv>
#include <cstdint>
#include <cstring>

namespace TalVcs {

/// The bytes in front of an object's data: type word, blank, decimal size, a zero byte.
class PackedHeader {
 public:
  /// The longest type word that a header has room for.
  static constexpr int kMostTypeLength = 32;

  /// `type` isn't longer than that.
  PackedHeader(TalStringViewT<char> type, std::uint64_t size) noexcept {
    std::memcpy(m_bytes, type.text, static_cast<std::size_t>(type.length));
    char* at = m_bytes + type.length;
    *at++ = ' ';
    at = std::to_chars(at, m_bytes + sizeof(m_bytes), size).ptr;
    *at++ = '\0';
    m_size = static_cast<std::size_t>(at - m_bytes);
  }

  const char* GetData() const noexcept { return m_bytes; }
  std::size_t GetSize() const noexcept { return m_size; }

 private:
  char m_bytes[64];
  std::size_t m_size;
};

}  // namespace TalVcs
