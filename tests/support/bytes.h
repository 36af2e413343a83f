#pragma once

#include <talvcs/foundation/names.h>
#include <tests/support/text.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace TalVcs::Testing {

/// Returns a buffer with these bytes in one segment.
inline Buffer BufferOf(std::string_view bytes) {
  Buffer buffer;
  buffer.Append(bytes.data(), bytes.size(), 1);
  return buffer;
}

/// Returns a buffer with one segment for each part.
inline Buffer BufferOfParts(std::initializer_list<std::string_view> parts) {
  Buffer buffer;
  for (const std::string_view part : parts) buffer.Append(BufferOf(part));
  return buffer;
}

/// Returns all bytes of a buffer, read segment by segment.
inline std::string Bytes(const Buffer& buffer) {
  std::string bytes;
  for (const Buffer::ReadDataAccessor& segment : buffer.LockForRead()) {
    bytes.append(static_cast<const char*>(segment.GetData()), segment.GetSize());
  }
  return bytes;
}

/// Returns a stream of its own over a copy of these bytes, at its start.
inline Stream StreamOf(std::string_view bytes) {
  Stream stream = MemStream::Create(0);
  BufferOf(bytes).AppendTo(stream, nullptr);
  stream.SeekToBegin();
  return stream;
}

}  // namespace TalVcs::Testing
