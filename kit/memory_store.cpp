#include <kit/internal/store_paths.h>
#include <kit/memory_store.h>

#include <utility>

namespace TalVcs::Kit {

MemoryStore::MemoryStore() = default;
MemoryStore::MemoryStore(const MemoryStore& other) = default;
MemoryStore::MemoryStore(MemoryStore&& other) noexcept : m_streams(std::move(other.m_streams)) {
  other.m_streams.clear();
}
MemoryStore& MemoryStore::operator=(const MemoryStore& other) = default;
MemoryStore& MemoryStore::operator=(MemoryStore&& other) noexcept {
  MemoryStore taken(std::move(other));
  m_streams.swap(taken.m_streams);
  return *this;
}
MemoryStore::~MemoryStore() = default;

Stream MemoryStore::CreateBlobStream(const WideString& /*path*/) { return MemStream::Create(0); }

bool MemoryStore::CommitBlobStream(const WideString& path, Stream stream) {
  Buffer bytes;
  if (!StreamIO(stream).ReadToEnd(bytes)) return false;
  m_streams.insert_or_assign(path, std::move(bytes));
  return true;
}

void MemoryStore::RemoveStorage(const WideString& storagePath) {
  EraseBelow(m_streams, storagePath);
}

StreamIO MemoryStore::OpenBlob(const WideString& path) {
  const auto found = m_streams.find(path);
  return found == m_streams.end() ? StreamIO() : ReaderOf(found->second);
}

std::vector<WideString> MemoryStore::ListBlobs(const WideString& directoryPath) {
  std::vector<WideString> names;
  VisitNames(m_streams, directoryPath, [&](const WideString& name) { names.push_back(name); });
  return names;
}

std::size_t MemoryStore::GetCount() const noexcept { return m_streams.size(); }

std::uint64_t MemoryStore::GetSizeInBytes() const noexcept {
  std::uint64_t size = 0;
  for (const auto& [path, bytes] : m_streams) size += bytes.GetSize();
  return size;
}

}  // namespace TalVcs::Kit
