#include <stores/zip/internal/deflate_source.h>
#include <stores/zip/internal/state_source.h>

// Lets zlib take its input as constant.
#define ZLIB_CONST
#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <span>
#include <utility>

namespace TalVcs::Kit::Zip {
namespace {

// Below it, the bytes of an object are mostly ids, which don't get smaller.
constexpr std::uint64_t kLeastBytes = 64;
// Deflate without the header of zlib, as zip has it.
constexpr int kRawWindow = -15;
constexpr int kMemoryLevel = 8;

struct EndDeflate {
  void operator()(z_stream* stream) const noexcept { deflateEnd(stream); }
};

/// Bytes for libzip, deflated or not.
struct Bytes {
  Buffer bytes;
  std::uint64_t plainSize = 0;
  std::uint32_t checksum = 0;
  zip_uint16_t method = ZIP_CM_STORE;
  std::uint64_t position = 0;
  zip_error_t error{};

  zip_int64_t PassStatus(void* data, zip_uint64_t length) {
    zip_stat_t* status = ZIP_SOURCE_GET_ARGS(zip_stat_t, data, length, &error);
    if (status == nullptr) return -1;
    zip_stat_init(status);
    status->size = plainSize;
    status->comp_size = bytes.GetSize();
    status->comp_method = method;
    status->crc = checksum;
    status->valid |= ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD;
    // The checksum of stored bytes is computed while they are copied.
    if (method != ZIP_CM_STORE) status->valid |= ZIP_STAT_CRC;
    return sizeof(zip_stat_t);
  }

  zip_int64_t Do(void* data, zip_uint64_t length, zip_source_cmd_t command) {
    switch (command) {
      case ZIP_SOURCE_OPEN:
        position = 0;
        return 0;
      case ZIP_SOURCE_READ: {
        const std::size_t count = bytes.ReadAt(position, data, length);
        position += count;
        return static_cast<zip_int64_t>(count);
      }
      case ZIP_SOURCE_CLOSE:
        return 0;
      case ZIP_SOURCE_STAT:
        return PassStatus(data, length);
      case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&error, data, length);
      case ZIP_SOURCE_SUPPORTS:
        return ZIP_SOURCE_SUPPORTS_READABLE;
      default:
        zip_error_set(&error, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
  }
};

/// Passes bytes to zlib, not more at once than it can count. Returns false once the output is full.
bool Deflate(z_stream& stream, std::span<const std::byte> input, std::uint32_t& checksum) {
  constexpr std::size_t kMost = std::size_t{1} << 30;
  while (!input.empty()) {
    const std::span<const std::byte> piece = input.first(std::min(input.size(), kMost));
    stream.next_in = reinterpret_cast<const Bytef*>(piece.data());
    stream.avail_in = static_cast<uInt>(piece.size());
    checksum = static_cast<std::uint32_t>(crc32(checksum, stream.next_in, stream.avail_in));
    if (deflate(&stream, Z_NO_FLUSH) != Z_OK || stream.avail_in > 0) return false;
    input = input.subspan(piece.size());
  }
  return true;
}

}  // namespace

zip_source_t* MakeDeflateSource(const Buffer& bytes) {
  constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 31;
  const std::uint64_t size = bytes.GetSize();
  if (size < kLeastBytes || size > kMostBytes) return nullptr;
  z_stream stream{};
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kRawWindow, kMemoryLevel,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::bad_alloc();
  }
  const std::unique_ptr<z_stream, EndDeflate> end(&stream);
  // What doesn't fit into one byte less is not smaller.
  const std::unique_ptr<std::byte[]> output(new std::byte[size - 1]);
  stream.next_out = reinterpret_cast<Bytef*>(output.get());
  stream.avail_out = static_cast<uInt>(size - 1);
  auto deflated = std::make_unique<Bytes>();
  for (std::size_t index = 0; index < bytes.GetSegmentCount(); ++index) {
    if (!Deflate(stream, bytes.GetSegment(index), deflated->checksum)) return nullptr;
  }
  if (deflate(&stream, Z_FINISH) != Z_STREAM_END) return nullptr;
  deflated->bytes.Append(output.get(), static_cast<std::size_t>(stream.total_out));
  deflated->plainSize = size;
  deflated->method = ZIP_CM_DEFLATE;
  return MakeStateSource(std::move(deflated));
}

zip_source_t* MakeStoredSource(const Buffer& bytes) {
  auto stored = std::make_unique<Bytes>();
  stored->bytes = bytes;
  stored->plainSize = bytes.GetSize();
  return MakeStateSource(std::move(stored));
}

}  // namespace TalVcs::Kit::Zip
