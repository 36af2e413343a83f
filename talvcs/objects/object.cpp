#include <talvcs/objects/object.h>

#include <talvcs/format/internal/packed_format.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/foundation/internal/sha256.h>
#include <talvcs/objects/internal/packed_id.h>

#include <cstdint>
#include <string>

namespace TalVcs {

namespace {

// Only a host's class can have a type word that is too long for a header.
Buffer PackSized(TalStringViewT<char> type, std::uint64_t size, const Buffer& data) {
  Buffer packed;
  if (type.length > PackedHeader::kMostTypeLength) {
    Helpers::AppendToBuffer(packed, type);
    type = {};
  }
  const PackedHeader header(type, size);
  packed.Append(header.GetData(), header.GetSize(), 1);
  packed.Append(data);
  return packed;
}

}  // namespace

IObject::~IObject() = default;

Object::Object() noexcept = default;
Object::Object(const Object& other) = default;
Object& Object::operator=(const Object& other) = default;
Object::~Object() = default;

bool Object::operator==(const IObject& other) const {
  const Id own = GetId();
  return own == other.GetId();
}

bool Object::operator!=(const IObject& other) const {
  const IObject& self = *this;
  return !self.operator==(other);
}

Id Object::GetId() const {
  if (!HasId()) m_id = Id(Helpers::ComputeEncodedSHA256Hash(GetPackedData()));
  return m_id;
}

const Buffer& Object::GetPackedData() const {
  if (m_packedData.IsEmpty()) {
    // A host's class sees these calls, and what one returns may end with the next.
    const std::uint64_t size = GetData().GetSize();
    const TalStringT<char> type = GetHeader();
    m_packedData = PackSized(type, size, GetData());
  }
  return m_packedData;
}

TalStringT<WideChar> Object::ToString() const {
  const TalStringT<char> packed = Helpers::StringAFromBuffer(GetPackedData());
  std::basic_string<WideChar> printed;
  printed.reserve(static_cast<std::size_t>(packed.GetLength()));
  for (int index = 0; index < packed.GetLength(); ++index) {
    const auto byte = static_cast<signed char>(packed[index]);
    if (byte == 0) {
      printed += TAL_WIDE("\\0");
    } else {
      printed += static_cast<WideChar>(byte);
    }
  }
  return TalStringT<WideChar>(TalStringViewT<WideChar>(printed));
}

void Object::ResetState() {
  m_id = Id();
  m_packedData = Buffer();
}

Buffer Object::Pack(TalStringViewT<char> type, const Buffer& data) {
  return PackSized(type, data.GetSize(), data);
}

const Id& Object::IdOfData(TalStringViewT<char> type, const Buffer& data) const {
  if (HasId()) return m_id;
  if (type.length > PackedHeader::kMostTypeLength) {
    m_id = Id(Helpers::ComputeEncodedSHA256Hash(Pack(type, data)));
  } else if (data.GetSegmentCount() == 1) {
    m_id = IdOfPacked(type, data.GetSegment(0));
  } else {
    const PackedHeader header(type, data.GetSize());
    TalUtils::Sha256 hash;
    hash.Update(header.GetData(), header.GetSize());
    hash.Update(data);
    m_id = IdOfDigest(hash.Finish());
  }
  return m_id;
}

void Object::CompleteCaches() const {
  if (m_packedData.IsEmpty()) {
    if (HasId()) GetPackedData();
  } else if (!HasId()) {
    m_id = Id(Helpers::ComputeEncodedSHA256Hash(m_packedData));
  }
}

}  // namespace TalVcs
