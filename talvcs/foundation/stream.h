#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/buffer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace TalUtils {

/// A seekable sequence of bytes with one position, which a host may implement.
///
/// Sizes and positions are in bytes from the start. The functions must not throw if the medium
/// fails: they return a short count or false, and the library treats bytes that were not read as
/// missing.
class TALVCS_API IStream {
 public:
  IStream() = default;
  IStream(const IStream&) = delete;
  IStream& operator=(const IStream&) = delete;
  virtual ~IStream();

  /// Reads up to `size` bytes at the position and moves after them. Returns how many were read;
  /// fewer than `size` only at the end or after an error. A number above `size` counts as 0.
  virtual std::size_t Read(void* data, std::size_t size) = 0;

  /// Writes `size` bytes at the position, over the bytes there, and moves after them. Returns how
  /// many were written. A number above `size` counts as 0.
  virtual std::size_t Write(const void* data, std::size_t size) = 0;

  /// Moves to `position`, which may be after the end. Returns false if that can't be done.
  virtual bool Seek(std::uint64_t position) = 0;

  /// Return the position and the size of the whole stream.
  virtual std::uint64_t GetPosition() const = 0;
  virtual std::uint64_t GetSize() const = 0;

  /// Writes the bytes of `data` like `Write`. Override it in a stream that can share them.
  virtual std::uint64_t WriteBuffer(const Memory::Buffer& data);

  /// True if `WriteBuffer` shares the bytes of a buffer: override both together. A save hands such
  /// a stream whole buffers; any other, as the default says, gets the bytes by `Write` in pieces.
  virtual bool SharesBytes() const;

  /// Appends the bytes from the position to the end to `target` and moves to the end. Returns false
  /// if there were fewer bytes than `GetSize` says. Override it in a stream that can share its
  /// bytes.
  virtual bool ReadToEnd(Memory::Buffer& target);
};

/// A handle on a shared stream: a copy works on the same bytes and the same position.
///
/// A handle over nothing reads as empty and takes no bytes.
class TALVCS_API Stream {
 public:
  Stream() noexcept = default;
  /// A handle on `stream`, which may be null.
  explicit Stream(std::shared_ptr<IStream> stream) noexcept : m_stream(std::move(stream)) {}

  /// Returns the stream of the handle, or null. The handles keep it alive.
  operator IStream*() const noexcept { return m_stream.get(); }

  /// Moves to the start. Returns false over nothing and if the stream refuses.
  bool SeekToBegin();

  /// Writes all bytes of `data` at the position. Returns how many were taken.
  std::uint64_t Write(const Memory::Buffer& data);

 private:
  std::shared_ptr<IStream> m_stream;
};

/// Makes streams in memory.
class TALVCS_API MemStream {
 public:
  MemStream() = delete;

  /// Returns a stream over bytes of its own, `size` zeros.
  static Stream Create(std::size_t size);

  /// Returns a stream over `buffer`, at its start: what is written lands there. The buffer has to
  /// outlive every handle on the stream.
  static Stream CreateOnRef(Memory::Buffer& buffer);
};

namespace Serialization {

/// A reader over a stream. A copy reads from the same position.
///
/// A host's reader returns a default-made one, which tests false, if there is nothing to read.
class TALVCS_API StreamIO {
 public:
  StreamIO() noexcept = default;
  /// Reads from `stream`, from where it stands.
  StreamIO(const Stream& stream) noexcept : m_stream(stream) {}
  StreamIO(const StreamIO&) = default;
  StreamIO(StreamIO&&) noexcept = default;
  StreamIO& operator=(const StreamIO&) = default;
  StreamIO& operator=(StreamIO&&) noexcept = default;
  virtual ~StreamIO();

  /// True if there is a stream to read from, be it empty.
  operator bool() const noexcept { return static_cast<IStream*>(m_stream) != nullptr; }

  /// Return the size of the whole stream and the position in it; 0 without a stream.
  std::uint64_t GetSize() const;
  virtual std::uint64_t GetPosition() const;

  /// Reads exactly `size` bytes. Returns false if there were fewer; what there was is in `data`.
  bool Read(void* data, std::size_t size);

  /// Copies the rest, from `GetPosition` to `GetSize`, to `target`, and puts the number of bytes in
  /// `copied` unless that is null. Returns false if fewer bytes were read or written.
  bool CopyTo(IStream* target, std::size_t* copied);

  /// Appends the rest, from `GetPosition` to `GetSize`, to `target`, and shares the bytes of a
  /// stream that allows it. Returns false if fewer bytes were read; those are in `target`.
  bool ReadToEnd(Memory::Buffer& target);

 private:
  Stream m_stream;
};

}  // namespace Serialization
}  // namespace TalUtils
