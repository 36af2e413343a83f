#pragma once

#include <talvcs/foundation/names.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace TalVcs {

/// The bytes that a stream has from its position on, in one run. A copy shares them.
///
/// The bytes are copied only if the stream gives them in several segments. Of more than an `int`
/// can count, the rest is left out.
class StreamText {
 public:
  StreamText() = default;
  /// Reads the stream to its end. The text is empty if that fails.
  explicit StreamText(StreamIO& stream) {
    if (!stream.ReadToEnd(m_bytes)) m_bytes = Buffer();
    if (m_bytes.GetSegmentCount() <= 1) return;
    std::byte* start = nullptr;
    Buffer whole = Buffer::Allocate(Size(), start);
    m_bytes.ReadAt(0, start, Size());
    m_bytes = std::move(whole);
  }

  bool IsEmpty() const noexcept { return m_bytes.IsEmpty(); }
  std::size_t Size() const noexcept {
    constexpr std::uint64_t kMost = std::numeric_limits<int>::max();
    return static_cast<std::size_t>(std::min(m_bytes.GetSize(), kMost));
  }
  /// Returns the text, which a copy keeps as well.
  TalStringViewT<char> View() const noexcept {
    if (IsEmpty()) return {};
    const void* const bytes = m_bytes.GetSegment(0).data();
    return {static_cast<const char*>(bytes), static_cast<int>(Size())};
  }

 private:
  Buffer m_bytes;
};

}  // namespace TalVcs
