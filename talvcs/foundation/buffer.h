#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/counted_ptr.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace TalUtils {

class Stream;

namespace Memory {

/// A container of bytes that lie in one or several shared segments.
///
/// A buffer is a value. A copy is independent of its source and shares its segments; so does a
/// buffer to which another was appended. A change copies a segment first if others share it. A
/// moved-from buffer is empty. Sizes and positions are in bytes.
///
/// Threads: one buffer belongs to one thread at a time. Buffers that share segments may belong to
/// different threads.
class TALVCS_API Buffer {
 public:
  /// Read access to one segment, which it keeps alive and unchanged.
  class TALVCS_API ReadDataAccessor;

  /// Makes a buffer of `size` zero bytes.
  explicit Buffer(std::size_t size = 0);
  /// Makes a buffer of `size` bytes, one at least. Stores the address of the first byte, aligned
  /// like a pointer, in `bytes`. The caller must fill the bytes before the buffer is read or
  /// copied.
  static Buffer Allocate(std::size_t size, std::byte*& bytes);
  Buffer(const Buffer& other) noexcept;
  Buffer(Buffer&& other) noexcept;
  Buffer& operator=(const Buffer& other) noexcept;
  Buffer& operator=(Buffer&& other) noexcept;
  ~Buffer();

  /// Returns the number of bytes in all segments.
  std::uint64_t GetSize() const noexcept;
  /// True if there are no bytes.
  bool IsEmpty() const noexcept { return GetSize() == 0; }

  /// Appends a copy of `size` bytes. Returns false, with nothing changed, only if `data` is null
  /// and `size` is not 0. The third argument has no effect; it is part of the fixed interface.
  bool Append(const void* data, std::size_t size, std::size_t unused = 1);

  /// Appends the bytes of `source`, which may be this buffer, by sharing its segments.
  void Append(const Buffer& source);

  /// Writes all bytes at the position of `stream`. Stores the number of bytes written in `written`
  /// unless that is null. Returns false if the stream took fewer.
  bool AppendTo(Stream stream, std::size_t* written) const;

  /// Returns the segments in order; none for an empty buffer, and none of size 0.
  std::vector<ReadDataAccessor> LockForRead() const;

  /// Return the number of segments, and the bytes of one. They allocate nothing. The bytes are
  /// valid until this buffer changes or ends.
  std::size_t GetSegmentCount() const noexcept;
  std::span<const std::byte> GetSegment(std::size_t index) const noexcept;

  /// Copies bytes from `position` on to `target`, `size` at most. Returns their number.
  std::size_t ReadAt(std::uint64_t position, void* target, std::size_t size) const noexcept;

  /// Puts `size` bytes at `position`, over what stands there and beyond the end; a gap between the
  /// end and the position is filled with zeros. Shared segments are copied first.
  void WriteAt(std::uint64_t position, const void* data, std::size_t size);

  /// Appends the bytes of `source` from `position` on, `size` at most, sharing whole segments where
  /// they lie in that range and copying the rest.
  void AppendRange(const Buffer& source, std::uint64_t position, std::uint64_t size);

  /// Prefetches the first bytes. Call it some time before they are read.
  void Prefetch() const noexcept;

  /// Makes room for about `segments` more segments.
  void ReserveSegments(std::size_t segments);

 private:
  friend class ReadDataAccessor;
  struct Part;
  struct Block;
  struct List;
  struct Segment;

  static Block* NewBlock(std::size_t capacity);
  static List* NewList(std::size_t capacity);

  List* WritableList(std::size_t more);
  void PushSegment(Block* owned, const std::byte* data, std::size_t size);
  std::byte* WritableSegment(std::size_t index);
  std::size_t RoomInPlace() const noexcept;
  void FillInPlace(const std::byte* data, std::size_t size) noexcept;
  std::size_t FindSegment(std::uint64_t position) const noexcept;

  // Null when empty. One segment that fills a block needs no list: the part is the block itself.
  CountedPtr<Part> m_part;
};

/// Access to one segment of a buffer. It shares the bytes, so they don't change while it lives.
class TALVCS_API Buffer::ReadDataAccessor {
 public:
  ReadDataAccessor(const ReadDataAccessor& other) noexcept;
  ReadDataAccessor(ReadDataAccessor&& other) noexcept;
  ReadDataAccessor& operator=(ReadDataAccessor other) noexcept;
  ~ReadDataAccessor();

  /// Returns the first byte of the segment. It is valid while an accessor on it or the unchanged
  /// buffer lives.
  const void* GetData() const noexcept { return m_data; }
  /// Returns the number of bytes in the segment.
  std::size_t GetSize() const noexcept { return m_size; }

 private:
  friend class Buffer;
  // Takes over the caller's hold on `owner`.
  ReadDataAccessor(Part* owner, const void* data, std::size_t size) noexcept;

  CountedPtr<Part> m_owner;
  const void* m_data;
  std::size_t m_size;
};

}  // namespace Memory
}  // namespace TalUtils
