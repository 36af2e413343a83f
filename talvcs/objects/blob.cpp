#include <talvcs/objects/blob.h>

#include <talvcs/foundation/helpers.h>
#include <talvcs/objects/dll_wrapped_shared.h>

#include <utility>

namespace TalVcs {

Blob::Blob() noexcept = default;
Blob::Blob(const Buffer& data) : m_buffer(data) {}
Blob::Blob(Buffer&& data) noexcept : m_buffer(std::move(data)) {}
Blob::Blob(const Blob& other) = default;
Blob& Blob::operator=(const Blob& other) = default;
Blob::~Blob() = default;

// The source keeps its caches, as the base class has copies only.
Blob::Blob(Blob&& other)
    : Object((other.KeepCaches(), other)), m_buffer(std::move(other.m_buffer)) {}

Blob& Blob::operator=(Blob&& other) {
  other.KeepCaches();
  Object::operator=(other);
  if (this != &other) m_buffer = std::move(other.m_buffer);
  return *this;
}

Id Blob::GetId() const { return IdOfData(kType, m_buffer); }
TalStringT<char> Blob::GetHeader() const { return kType; }
TalStringT<char> Blob::GetStoragePrefix() const { return kMode; }
const Buffer& Blob::GetData() const { return m_buffer; }

Buffer Blob::BuildPackedData() const {
  return CachedPackedData().IsEmpty() ? Pack(kType, m_buffer) : CachedPackedData();
}

cow_ptr<Blob> Blob::Deserialize(StreamIO& stream) {
  if (!stream || !Helpers::ShiftObjectIdentifier(stream, kType)) return nullptr;
  Buffer data;
  stream.ReadToEnd(data);
  return std::make_shared<Blob>(std::move(data));
}

}  // namespace TalVcs
