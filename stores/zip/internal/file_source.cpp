#include <stores/zip/internal/file_source.h>
#include <stores/zip/internal/state_source.h>
#include <stores/zip/internal/zip_error.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

namespace TalVcs::Kit::Zip {
namespace {

/// Converts a position that libzip asks for. Returns a negative number for one that is none.
zip_int64_t Seek(std::uint64_t& position, std::uint64_t size, void* data, zip_uint64_t length,
                 zip_error_t& error) {
  const zip_int64_t wanted = zip_source_seek_compute_offset(position, size, data, length, &error);
  if (wanted < 0) return -1;
  position = static_cast<std::uint64_t>(wanted);
  return 0;
}

zip_int64_t PassSize(std::uint64_t size, void* data, zip_uint64_t length, zip_error_t& error) {
  zip_stat_t* status = ZIP_SOURCE_GET_ARGS(zip_stat_t, data, length, &error);
  if (status == nullptr) return -1;
  zip_stat_init(status);
  status->size = size;
  status->valid |= ZIP_STAT_SIZE;
  return sizeof(zip_stat_t);
}

struct Reading {
  std::shared_ptr<ReadFile> file;
  std::uint64_t size = 0;
  std::uint64_t position = 0;
  zip_error_t error{};

  zip_int64_t Read(void* data, zip_uint64_t length) {
    std::size_t count = 0;
    const std::error_code failure = file->file.ReadAt(position, data, length, count);
    if (failure) {
      file->failure = failure;
      SetSystemError(error, ZIP_ER_READ, failure);
      return -1;
    }
    position += count;
    return static_cast<zip_int64_t>(count);
  }

  zip_int64_t Do(void* data, zip_uint64_t length, zip_source_cmd_t command) {
    switch (command) {
      case ZIP_SOURCE_OPEN:
        position = 0;
        return 0;
      case ZIP_SOURCE_READ:
        return Read(data, length);
      case ZIP_SOURCE_CLOSE:
        return 0;
      case ZIP_SOURCE_STAT:
        return PassSize(size, data, length, error);
      case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&error, data, length);
      case ZIP_SOURCE_SEEK:
        return Seek(position, size, data, length, error);
      case ZIP_SOURCE_TELL:
        return static_cast<zip_int64_t>(position);
      case ZIP_SOURCE_SUPPORTS:
        return ZIP_SOURCE_SUPPORTS_SEEKABLE;
      default:
        zip_error_set(&error, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
  }
};

/// libzip writes each header twice and in small parts. What lies near the last write is in memory.
struct Writing {
  static constexpr std::uint64_t kBufferBytes = std::uint64_t{1} << 16;

  File& file;
  std::string buffer{};
  std::uint64_t bufferStart = 0;
  std::uint64_t size = 0;
  std::uint64_t position = 0;
  zip_error_t error{};

  zip_int64_t Flush() {
    if (const std::error_code failure = file.WriteAt(bufferStart, buffer.data(), buffer.size())) {
      SetSystemError(error, ZIP_ER_WRITE, failure);
      return -1;
    }
    buffer.clear();
    bufferStart = position;
    return 0;
  }

  zip_int64_t Write(const char* data, zip_uint64_t length) {
    const bool touches = position >= bufferStart && position <= bufferStart + buffer.size();
    const bool fits = touches && position - bufferStart + length <= kBufferBytes;
    if (!fits && Flush() < 0) return -1;
    const std::uint64_t offset = position - bufferStart;
    buffer.resize(std::max<std::size_t>(buffer.size(), offset + length));
    std::copy(data, data + length, buffer.begin() + static_cast<std::ptrdiff_t>(offset));
    position += length;
    size = std::max(size, position);
    return static_cast<zip_int64_t>(length);
  }

  zip_int64_t Do(void* data, zip_uint64_t length, zip_source_cmd_t command) {
    switch (command) {
      case ZIP_SOURCE_STAT:
        return PassSize(size, data, length, error);
      case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&error, data, length);
      case ZIP_SOURCE_WRITE:
        return Write(static_cast<const char*>(data), length);
      case ZIP_SOURCE_COMMIT_WRITE:
        return Flush();
      case ZIP_SOURCE_SEEK_WRITE:
        return Seek(position, size, data, length, error);
      case ZIP_SOURCE_TELL_WRITE:
        return static_cast<zip_int64_t>(position);
      case ZIP_SOURCE_SUPPORTS:
        return ZIP_SOURCE_SUPPORTS_WRITABLE;
      // libzip opens even what it only writes. The caller commits by a rename.
      case ZIP_SOURCE_OPEN:
      case ZIP_SOURCE_BEGIN_WRITE:
      case ZIP_SOURCE_ROLLBACK_WRITE:
      case ZIP_SOURCE_CLOSE:
        return 0;
      default:
        zip_error_set(&error, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
  }
};

}  // namespace

zip_source_t* MakeReadSource(std::shared_ptr<ReadFile> file, std::uint64_t sizeBytes) {
  return MakeStateSource(std::make_unique<Reading>(Reading{std::move(file), sizeBytes}));
}

zip_source_t* MakeWriteTarget(File& file) {
  return MakeStateSource(std::make_unique<Writing>(Writing{file}));
}

}  // namespace TalVcs::Kit::Zip
