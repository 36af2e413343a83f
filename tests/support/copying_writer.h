#pragma once

#include <talvcs/foundation/stream.h>
#include <talvcs/persistence/blob_io.h>
#include <tests/support/text.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>

namespace TalVcs::Testing {

/// A stream that copies what it takes, `room` bytes at most.
class CopyingStream final : public IStream {
 public:
  explicit CopyingStream(std::size_t room) : m_room(room) {}

  std::size_t Read(void*, std::size_t) override { return 0; }
  std::size_t Write(const void* data, std::size_t size) override {
    ++writes;
    const std::size_t taken = std::min(size, m_room - bytes.size());
    bytes.append(static_cast<const char*>(data), taken);
    return taken;
  }
  bool Seek(std::uint64_t position) override { return position <= bytes.size(); }
  std::uint64_t GetPosition() const override { return bytes.size(); }
  std::uint64_t GetSize() const override { return bytes.size(); }

  std::string bytes;
  int writes = 0;

 private:
  std::size_t m_room;
};

/// Keeps the streams of a save, by path.
class CopyingWriter final : public IBlobWriter {
 public:
  explicit CopyingWriter(std::size_t room = std::numeric_limits<std::size_t>::max())
      : m_room(room) {}

  Stream CreateBlobStream(const TalStringT<WideChar>& path) override {
    auto stream = std::make_shared<CopyingStream>(m_room);
    streams[Ascii(path)] = stream;
    return Stream(stream);
  }
  bool CommitBlobStream(const TalStringT<WideChar>&, Stream) override { return true; }
  void RemoveStorage(const TalStringT<WideChar>&) override { streams.clear(); }

  std::map<std::string, std::shared_ptr<CopyingStream>> streams;

 private:
  std::size_t m_room;
};

}  // namespace TalVcs::Testing
