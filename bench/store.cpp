#include <bench/store.h>

#include <algorithm>
#include <cstring>

namespace TalVcs::Bench {
namespace {

/// Returns the names of the streams directly below a directory.
template <class Streams>
std::vector<TalStringT<WideChar>> ListBelow(const Streams& streams,
                                            const TalStringT<WideChar>& directory) {
  std::vector<TalStringT<WideChar>> names;
  const TalStringViewT<WideChar> prefix = directory;
  for (const auto& [path, stream] : streams) {
    const TalStringViewT<WideChar> view = path;
    if (view.length > prefix.length + 1 && view.StartsWith(prefix)) {
      names.push_back(view.Mid(prefix.length + 1, view.length).ToString());
    }
  }
  return names;
}

}  // namespace

/// A stream over a part of the buffer, whose end moves while it is written.
class StreamStore::Window final : public IStream {
 public:
  Window(char* bytes, std::size_t size, std::size_t capacity)
      : m_bytes(bytes), m_size(size), m_capacity(capacity) {}

  std::size_t Read(void* data, std::size_t size) override {
    const std::size_t count = m_position < m_size ? std::min(size, m_size - m_position) : 0;
    if (count != 0) std::memcpy(data, m_bytes + m_position, count);
    m_position += count;
    return count;
  }

  std::size_t Write(const void* data, std::size_t size) override {
    const std::size_t count = std::min(size, m_capacity - m_position);
    if (count != 0) std::memcpy(m_bytes + m_position, data, count);
    m_position += count;
    m_size = std::max(m_size, m_position);
    return count;
  }

  bool Seek(std::uint64_t position) override {
    if (position > m_size) return false;
    m_position = static_cast<std::size_t>(position);
    return true;
  }

  std::uint64_t GetPosition() const override { return m_position; }
  std::uint64_t GetSize() const override { return m_size; }

 private:
  char* m_bytes;
  std::size_t m_size;
  std::size_t m_capacity;
  std::size_t m_position = 0;
};

StreamStore::StreamStore(std::size_t capacity) : m_bytes(capacity, 'x') {}

Stream StreamStore::CreateBlobStream(const TalStringT<WideChar>&) {
  return Stream(
      std::make_shared<Window>(m_bytes.data() + m_used, std::size_t{0}, m_bytes.size() - m_used));
}

bool StreamStore::CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) {
  const IStream* const written = stream;
  const auto size = static_cast<std::size_t>(written->GetSize());
  m_streams[path] = {m_used, size};
  m_used += size;
  return true;
}

void StreamStore::RemoveStorage(const TalStringT<WideChar>&) {
  m_streams.clear();
  m_used = 0;
}

StreamIO StreamStore::OpenBlob(const TalStringT<WideChar>& path) {
  const auto found = m_streams.find(path);
  if (found == m_streams.end()) return StreamIO();
  const Range range = found->second;
  return StreamIO(
      Stream(std::make_shared<Window>(m_bytes.data() + range.offset, range.size, range.size)));
}

std::vector<TalStringT<WideChar>> StreamStore::ListBlobs(const TalStringT<WideChar>& directory) {
  return ListBelow(m_streams, directory);
}

Stream SharingStore::CreateBlobStream(const TalStringT<WideChar>&) { return MemStream::Create(0); }

bool SharingStore::CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) {
  Buffer bytes;
  const bool complete = StreamIO(stream).ReadToEnd(bytes);
  m_streams[path] = std::move(bytes);
  return complete;
}

void SharingStore::RemoveStorage(const TalStringT<WideChar>&) { m_streams.clear(); }

StreamIO SharingStore::OpenBlob(const TalStringT<WideChar>& path) {
  const auto found = m_streams.find(path);
  return found == m_streams.end() ? StreamIO() : StreamIO(MemStream::CreateOnRef(found->second));
}

std::vector<TalStringT<WideChar>> SharingStore::ListBlobs(const TalStringT<WideChar>& directory) {
  return ListBelow(m_streams, directory);
}

}  // namespace TalVcs::Bench
