#include <talvcs/objects/blob.h>

#include <talvcs/format/internal/packed_format.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/foundation/internal/exact_type.h>
#include <talvcs/foundation/internal/sha256_many.h>
#include <talvcs/objects/dll_wrapped_shared.h>
#include <talvcs/objects/internal/packed_id.h>

#include <array>
#include <optional>
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
    : Object((other.CompleteCaches(), other)), m_buffer(std::move(other.m_buffer)) {}

Blob& Blob::operator=(Blob&& other) {
  other.CompleteCaches();
  Object::operator=(other);
  if (this != &other) m_buffer = std::move(other.m_buffer);
  return *this;
}

Id Blob::GetId() const {
  if (HasId()) return CachedId();
  return TalUtils::IsExactly<Blob>(*this) ? IdOfData(kType, m_buffer) : Object::GetId();
}
TalStringT<char> Blob::GetHeader() const { return kType; }
TalStringT<char> Blob::GetStoragePrefix() const { return kMode; }
const Buffer& Blob::GetData() const { return m_buffer; }

Buffer Blob::BuildPackedData() const {
  if (!TalUtils::IsExactly<Blob>(*this)) return GetPackedData();
  return CachedPackedData().IsEmpty() ? Pack(kType, m_buffer) : CachedPackedData();
}

void Blob::ComputeIds(std::span<const Blob* const> blobs) {
  constexpr std::size_t kTogether = 32;
  constexpr std::size_t kFewestBytes = 256;  // below, there is nothing to win
  std::array<std::optional<PackedHeader>, kTogether> headers;
  std::array<TalUtils::Sha256Message, kTogether> messages;
  std::array<TalUtils::Sha256::Digest, kTogether> digests;
  std::array<const Blob*, kTogether> waiting;
  std::size_t count = 0;
  const auto compute = [&] {
    TalUtils::ComputeSha256(std::span(messages).first(count));
    for (std::size_t index = 0; index < count; ++index) {
      waiting[index]->CacheId(IdOfDigest(digests[index]));
    }
    count = 0;
  };
  for (const Blob* blob : blobs) {
    if (blob == nullptr || blob->HasId() || blob->m_buffer.GetSegmentCount() != 1) continue;
    if (!TalUtils::IsExactly<Blob>(*blob)) continue;
    const auto body = blob->m_buffer.GetSegment(0);
    if (body.size() < kFewestBytes) continue;
    headers[count].emplace(kType, body.size());
    messages[count] = {
        std::as_bytes(std::span(headers[count]->GetData(), headers[count]->GetSize())), body,
        &digests[count]};
    waiting[count] = blob;
    if (++count == kTogether) compute();
  }
  compute();
}

cow_ptr<Blob> Blob::Deserialize(StreamIO& stream) {
  if (!stream || !Helpers::ShiftObjectIdentifier(stream, kType)) return nullptr;
  Buffer data;
  stream.ReadToEnd(data);
  return std::make_shared<Blob>(std::move(data));
}

}  // namespace TalVcs
