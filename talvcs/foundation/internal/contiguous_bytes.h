#pragma once

#include <talvcs/foundation/buffer.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace TalUtils {

/// The bytes of a buffer from a position to the end, in one run. They are copied only if they lie
/// in several segments.
class ContiguousBytes {
 public:
  /// `buffer` must outlive the object, unchanged; `start` is at most its size.
  ContiguousBytes(const Memory::Buffer& buffer, std::size_t start) {
    if (buffer.GetSegmentCount() == 1) {
      const auto bytes = buffer.GetSegment(0).subspan(start);
      m_bytes = {static_cast<const char*>(static_cast<const void*>(bytes.data())), bytes.size()};
      return;
    }
    m_copy.resize(static_cast<std::size_t>(buffer.GetSize()) - start);
    buffer.ReadAt(start, m_copy.data(), m_copy.size());
    m_bytes = m_copy;
  }
  ContiguousBytes(const ContiguousBytes&) = delete;
  ContiguousBytes& operator=(const ContiguousBytes&) = delete;

  std::string_view Get() const noexcept { return m_bytes; }

 private:
  std::string m_copy;
  std::string_view m_bytes;
};

}  // namespace TalUtils
