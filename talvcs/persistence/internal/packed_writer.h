#pragma once

#include <talvcs/format/internal/packed_format.h>
#include <talvcs/foundation/names.h>
#include <talvcs/foundation/stream.h>
#include <talvcs/objects/blob.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/tree.h>

#include <array>
#include <cstddef>

namespace TalVcs {

/// Writes packed forms to a stream that copies what it takes.
///
/// The bytes go to the stream in large pieces, gathered from where they lie; to make a buffer of
/// shared segments first, with a count for each, took a third of the time of a save. Once the
/// stream has taken fewer bytes than it was given, it gets no more.
class PackedWriter {
 public:
  explicit PackedWriter(IStream& stream) noexcept : m_stream(stream) {}

  void Write(const Blob& blob);
  void Write(const Tree& tree);
  void Write(const Commit& commit);
  void Write(const Buffer& bytes);
  /// Gives the stream what is still gathered.
  void Flush();

 private:
  void Put(const void* data, std::size_t size);
  void Put(const PackedHeader& header);
  void Pass(const void* data, std::size_t size);

  IStream& m_stream;
  std::size_t m_gathered = 0;
  bool m_failed = false;
  std::array<std::byte, 16384> m_piece;
};

}  // namespace TalVcs
