#include <kit/text/bytes.h>

namespace TalVcs::Kit {

Bytes::Bytes(std::span<const std::byte> bytes) {
  if (!bytes.empty()) m_buffer.Append(bytes.data(), bytes.size());
}

Bytes::Bytes(std::string_view text) : Bytes(std::as_bytes(std::span(text))) {}

Bytes::Bytes(const Buffer& buffer) : m_buffer(buffer) {
  if (buffer.GetSegmentCount() <= 1) return;
  std::byte* bytes = nullptr;
  const auto size = static_cast<std::size_t>(buffer.GetSize());
  m_buffer = Buffer::Allocate(size, bytes);
  buffer.ReadAt(0, bytes, size);
}

std::span<const std::byte> Bytes::span() const noexcept {
  return m_buffer.IsEmpty() ? std::span<const std::byte>() : m_buffer.GetSegment(0);
}

std::string_view Bytes::text() const noexcept {
  const auto bytes = span();
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace TalVcs::Kit
