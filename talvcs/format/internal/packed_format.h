#pragma once

#include <talvcs/format/object_type.h>
#include <talvcs/foundation/names.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace TalVcs {

// packed := header data
// header := type SP size NUL      type: "blob", "tree" or "commit", or that of a host's class
//                                 size: bytes of data, decimal, without leading zeros

/// The bytes of a header, to be written before the data to a digest, a buffer or a stream.
class PackedHeader {
 public:
  /// The longest type word that a header has room for.
  static constexpr int kMostTypeLength = 32;

  /// `type` must not be longer than that.
  PackedHeader(TalStringViewT<char> type, std::uint64_t size) noexcept {
    char* at = std::copy_n(type.text, type.length, m_bytes);
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

/// The contents of a header.
struct PackedHeaderFields {
  ObjectType type;
  std::size_t headerBytes;
  std::uint64_t dataBytes;
};

/// Reads the header of `packed`. Returns nothing unless it has one of the three types and exactly
/// the form above, and `packed` holds exactly the data that the header announces.
std::optional<PackedHeaderFields> ReadPackedHeader(const Buffer& packed) noexcept;

}  // namespace TalVcs
