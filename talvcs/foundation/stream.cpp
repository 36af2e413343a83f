#include <talvcs/foundation/stream.h>

#include <algorithm>
#include <array>
#include <utility>

namespace TalUtils {

using Memory::Buffer;

namespace {

constexpr std::size_t kStep = std::size_t{1} << 16;

/// Returns how many bytes a stream has read or written that was asked for `size`. One that says
/// more, as a host's -1 does, has none.
std::size_t Transferred(std::size_t count, std::size_t size) { return count <= size ? count : 0; }

/// Appends the next `size` bytes of `stream` to `target`. Returns false if there were fewer. Memory
/// grows with the bytes that come, not with the size that the stream reports.
bool ReadPieces(IStream& stream, std::uint64_t size, Buffer& target) {
  if (size != 0 && size <= kStep && target.IsEmpty()) {
    std::byte* bytes = nullptr;
    Buffer whole = Buffer::Allocate(static_cast<std::size_t>(size), bytes);
    const std::size_t count = stream.Read(bytes, static_cast<std::size_t>(size));
    if (count == size) {
      target = std::move(whole);
      return true;
    }
    target.Append(bytes, Transferred(count, static_cast<std::size_t>(size)), 1);
    return false;
  }
  std::array<std::byte, kStep> piece;
  for (std::uint64_t left = size; left > 0;) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kStep));
    const std::size_t count = Transferred(stream.Read(piece.data(), wanted), wanted);
    target.Append(piece.data(), count, 1);
    if (count != wanted) return false;
    left -= count;
  }
  return true;
}

/// A stream over a buffer that it does not own.
class BufferStream : public IStream {
 public:
  explicit BufferStream(Buffer& buffer) noexcept : m_buffer(buffer) {}

  std::size_t Read(void* data, std::size_t size) override {
    const std::size_t count = m_buffer.ReadAt(m_position, data, size);
    m_position += count;
    return count;
  }

  std::size_t Write(const void* data, std::size_t size) override {
    m_buffer.WriteAt(m_position, data, size);
    m_position += size;
    return size;
  }

  bool Seek(std::uint64_t position) override {
    m_position = position;
    return true;
  }

  std::uint64_t GetPosition() const override { return m_position; }
  std::uint64_t GetSize() const override { return m_buffer.GetSize(); }

  std::uint64_t WriteBuffer(const Buffer& data) override {
    if (m_position != m_buffer.GetSize()) return IStream::WriteBuffer(data);
    const std::uint64_t size = data.GetSize();
    m_buffer.Append(data);
    m_position += size;
    return size;
  }

  bool SharesBytes() const override { return true; }

  bool ReadToEnd(Buffer& target) override {
    const std::uint64_t size = m_buffer.GetSize();
    if (m_position < size) target.AppendRange(m_buffer, m_position, size - m_position);
    m_position = std::max(m_position, size);
    return true;
  }

 private:
  Buffer& m_buffer;
  std::uint64_t m_position = 0;
};

/// A stream over a buffer of its own.
class OwningBufferStream final : private Buffer, public BufferStream {
 public:
  explicit OwningBufferStream(std::size_t size)
      : Buffer(size), BufferStream(static_cast<Buffer&>(*this)) {}
  using BufferStream::GetSize;
};

}  // namespace

IStream::~IStream() = default;

std::uint64_t IStream::WriteBuffer(const Buffer& data) {
  // The stream may write into the very buffer.
  const Buffer kept(data);  // NOLINT(performance-unnecessary-copy-initialization)
  std::uint64_t total = 0;
  for (std::size_t index = 0; index < kept.GetSegmentCount(); ++index) {
    const auto bytes = kept.GetSegment(index);
    const std::size_t written = Transferred(Write(bytes.data(), bytes.size()), bytes.size());
    total += written;
    if (written != bytes.size()) break;
  }
  return total;
}

bool IStream::SharesBytes() const { return false; }

bool IStream::ReadToEnd(Buffer& target) {
  const std::uint64_t size = GetSize();
  const std::uint64_t position = GetPosition();
  return ReadPieces(*this, position < size ? size - position : 0, target);
}

bool Stream::SeekToBegin() { return m_stream != nullptr && m_stream->Seek(0); }

std::uint64_t Stream::Write(const Buffer& data) {
  return m_stream == nullptr ? 0 : m_stream->WriteBuffer(data);
}

Stream MemStream::Create(std::size_t size) {
  return Stream(std::make_shared<OwningBufferStream>(size));
}

Stream MemStream::CreateOnRef(Buffer& buffer) {
  return Stream(std::make_shared<BufferStream>(buffer));
}

namespace Serialization {

StreamIO::~StreamIO() = default;

std::uint64_t StreamIO::GetSize() const {
  const IStream* stream = m_stream;
  return stream == nullptr ? 0 : stream->GetSize();
}

std::uint64_t StreamIO::GetPosition() const {
  const IStream* stream = m_stream;
  return stream == nullptr ? 0 : stream->GetPosition();
}

bool StreamIO::Read(void* data, std::size_t size) {
  IStream* stream = m_stream;
  return stream != nullptr && stream->Read(data, size) == size;
}

bool StreamIO::CopyTo(IStream* target, std::size_t* copied) {
  Buffer bytes;
  const bool complete = ReadToEnd(bytes);
  const std::uint64_t written = target == nullptr ? 0 : target->WriteBuffer(bytes);
  if (copied != nullptr) *copied = static_cast<std::size_t>(written);
  return complete && written == bytes.GetSize();
}

// A host's class can report another position than the stream. The number of bytes is what this
// reader reports, so a stream that can share its bytes is asked only if both agree.
bool StreamIO::ReadToEnd(Buffer& target) {
  IStream* stream = m_stream;
  if (stream == nullptr) return false;
  const std::uint64_t size = GetSize();
  const std::uint64_t position = GetPosition();
  const std::uint64_t wanted = position < size ? size - position : 0;
  if (stream->GetPosition() != position) return ReadPieces(*stream, wanted, target);
  const std::uint64_t before = target.GetSize();
  const bool complete = stream->ReadToEnd(target);
  const std::uint64_t read = target.GetSize() - before;
  if (read > wanted) {
    Buffer cut;
    cut.AppendRange(target, 0, before + wanted);
    target = std::move(cut);
  }
  return complete && read >= wanted;
}

}  // namespace Serialization
}  // namespace TalUtils
