#include <bench/store.h>

#include <algorithm>
#include <cstring>

namespace TalVcs::Bench {
namespace {

/// Adds the name of the stream at `path` if that is directly below `directory`.
void AddNameBelow(TalStringViewT<WideChar> directory, TalStringViewT<WideChar> path,
                  std::vector<TalStringT<WideChar>>& names) {
  if (path.length <= directory.length + 1 || !path.StartsWith(directory)) return;
  names.push_back(path.Mid(directory.length + 1, path.length).ToString());
}

}  // namespace

/// A stream over a part of the buffer, whose end moves while it is written.
class StreamStore::Window final : public IStream {
 public:
  /// Shows `size` bytes from `bytes` on, where there is room for `capacity`.
  void Show(char* bytes, std::size_t size, std::size_t capacity) {
    m_bytes = bytes;
    m_size = size;
    m_capacity = capacity;
    m_position = 0;
  }

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
  char* m_bytes = nullptr;
  std::size_t m_size = 0;
  std::size_t m_capacity = 0;
  std::size_t m_position = 0;
};

StreamStore::StreamStore(std::size_t capacity)
    : m_bytes(capacity, 'x'), m_window(std::make_shared<Window>()) {}

StreamStore::~StreamStore() = default;

Stream StreamStore::CreateBlobStream(const TalStringT<WideChar>&) {
  m_window->Show(m_bytes.data() + m_used, 0, m_bytes.size() - m_used);
  return Stream(m_window);
}

bool StreamStore::CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) {
  const IStream* const written = stream;
  const auto size = static_cast<std::size_t>(written->GetSize());
  m_written.push_back({path, m_used, size});
  m_used += size;
  return true;
}

void StreamStore::RemoveStorage(const TalStringT<WideChar>&) {
  m_written.clear();
  m_index.clear();
  m_used = 0;
}

void StreamStore::BuildIndex() {
  for (std::size_t i = 0; i < m_written.size(); ++i) m_index[m_written[i].path] = i;
}

StreamIO StreamStore::OpenBlob(const TalStringT<WideChar>& path) {
  const auto found = m_index.find(path);
  if (found == m_index.end()) return StreamIO();
  const Written& written = m_written[found->second];
  const auto window = std::make_shared<Window>();
  window->Show(m_bytes.data() + written.offset, written.size, written.size);
  return StreamIO(Stream(window));
}

std::vector<TalStringT<WideChar>> StreamStore::ListBlobs(const TalStringT<WideChar>& directory) {
  std::vector<TalStringT<WideChar>> names;
  for (const Written& written : m_written) AddNameBelow(directory, written.path, names);
  return names;
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
  std::vector<TalStringT<WideChar>> names;
  for (const auto& [path, bytes] : m_streams) AddNameBelow(directory, path, names);
  return names;
}

}  // namespace TalVcs::Bench
