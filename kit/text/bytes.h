#pragma once

#include <kit/export.h>
#include <talvcs/foundation/names.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace TalVcs::Kit {

/// The content of a file: an immutable sequence of bytes in one piece.
///
/// A value. A copy shares the bytes, and so does one that was read from a history. Copies may be
/// used by several threads at once.
class TALVCS_KIT_API Bytes {
 public:
  /// No bytes.
  Bytes() noexcept = default;
  /// Copy the bytes.
  explicit Bytes(std::span<const std::byte> bytes);
  explicit Bytes(std::string_view text);
  /// Shares the bytes of a buffer, or copies them if they lie in several pieces.
  explicit Bytes(const Buffer& buffer);

  /// Return the bytes, valid as long as this object is unchanged.
  std::span<const std::byte> span() const noexcept;
  std::string_view text() const noexcept;

  /// Returns the number of bytes.
  std::uint64_t size() const noexcept { return m_buffer.GetSize(); }
  bool empty() const noexcept { return m_buffer.IsEmpty(); }

  /// Returns the bytes as the core takes them; the buffer shares them.
  const Buffer& GetBuffer() const noexcept { return m_buffer; }
  /// Compares all bytes.
  friend bool operator==(const Bytes& a, const Bytes& b) noexcept { return a.text() == b.text(); }

 private:
  Buffer m_buffer;  // of one segment at the most
};

}  // namespace TalVcs::Kit
