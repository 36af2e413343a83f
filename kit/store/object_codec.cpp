#include <kit/internal/store_state.h>
#include <kit/open/internal/errors.h>
#include <kit/store/internal/compression.h>
#include <kit/store/object_codec.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

// An encoded form, as docs/formats.md describes it:
//
//     encoded := method size (base position)? payload
//     method  := 1 byte, an ObjectEncoding; base and position follow for a difference only
//     size    := 1 to 9 bytes, 7 bits each, lowest first; all but the last have the highest bit
//     base    := 32 bytes
//     position := 1 byte

namespace TalVcs::Kit {

namespace {

/// A payload expands to at most so many times the encoded form, the base not counted. An encoder
/// makes it longer where it would be more, so that small inputs can't take much memory.
constexpr std::uint64_t kMostExpansion = 1024;

/// A base is in memory as a whole, and the window of the compression must reach it.
constexpr std::uint64_t kMostBaseBytes = std::uint64_t{1} << 26;

/// Fewer bytes aren't worth an attempt without a base.
constexpr std::uint64_t kLeastBytes = 48;

constexpr int kMostSizeBytes = 9;

Error Damaged(std::string reason) {
  return MakeError(ErrorCode::Damaged, "cannot decode an object: " + std::move(reason));
}

void PutSize(std::uint64_t size, std::vector<std::byte>& target) {
  for (; size >= 0x80; size >>= 7) target.push_back(static_cast<std::byte>((size & 0x7F) | 0x80));
  target.push_back(static_cast<std::byte>(size));
}

/// Reads a size from the front of `bytes` and removes it there; nothing if `PutSize` didn't put it.
std::optional<std::uint64_t> TakeSize(std::span<const std::byte>& bytes) {
  std::uint64_t size = 0;
  for (int index = 0; index < kMostSizeBytes && !bytes.empty(); ++index) {
    const auto byte = std::to_integer<std::uint64_t>(bytes.front());
    bytes = bytes.subspan(1);
    size |= (byte & 0x7F) << (7 * index);
    if (byte < 0x80) return byte == 0 && index > 0 ? std::nullopt : std::optional(size);
  }
  return std::nullopt;
}

/// The bytes of a buffer as one piece.
class Piece {
 public:
  explicit Piece(const Buffer& buffer) {
    if (buffer.GetSegmentCount() <= 1) {
      if (!buffer.IsEmpty()) m_bytes = buffer.GetSegment(0);
      return;
    }
    m_copy.resize(static_cast<std::size_t>(buffer.GetSize()));
    buffer.ReadAt(0, m_copy.data(), m_copy.size());
    m_bytes = m_copy;
  }
  Piece(const Piece&) = delete;
  Piece& operator=(const Piece&) = delete;

  std::span<const std::byte> Bytes() const noexcept { return m_bytes; }

 private:
  std::vector<std::byte> m_copy;
  std::span<const std::byte> m_bytes;
};

/// True if the packed form is a tree's, most of which is ids.
bool IsTree(std::span<const std::byte> packed) noexcept {
  constexpr std::string_view kStart = "tree ";
  return packed.size() >= kStart.size() &&
         std::memcmp(packed.data(), kStart.data(), kStart.size()) == 0;
}

std::vector<std::byte> StartOf(ObjectEncoding encoding, std::uint64_t size) {
  std::vector<std::byte> encoded;
  encoded.push_back(static_cast<std::byte>(encoding));
  PutSize(size, encoded);
  return encoded;
}

/// True if `encoded` is short enough to be taken in place of `other` bytes, which are quicker to
/// read.
bool Pays(const std::vector<std::byte>& encoded, std::uint64_t other) {
  return !encoded.empty() && encoded.size() <= other - other / 16 && encoded.size() < other;
}

std::vector<std::byte> PlainForm(std::span<const std::byte> bytes) {
  std::vector<std::byte> encoded = StartOf(ObjectEncoding::Plain, bytes.size());
  encoded.insert(encoded.end(), bytes.begin(), bytes.end());
  return encoded;
}

/// A header with the bytes of the base in place of its id, which takes longer to make.
struct RawHeader {
  ObjectEncoding encoding = ObjectEncoding::Plain;
  std::uint64_t sizeBytes = 0;
  ObjectKey base{};
  std::uint32_t position = 0;
  std::size_t headerBytes = 0;

  Id Base() const { return IdOf(base); }
};

Result<RawHeader> ReadRawHeader(std::span<const std::byte> encoded) {
  const std::size_t all = encoded.size();
  if (encoded.empty()) return Damaged("there are no bytes");
  RawHeader header;
  const auto method = std::to_integer<std::uint8_t>(encoded.front());
  if (method > static_cast<std::uint8_t>(ObjectEncoding::Difference)) {
    return MakeError(ErrorCode::Unsupported, "cannot decode an object: its encoding " +
                                                 std::to_string(method) +
                                                 " is unknown to this version");
  }
  header.encoding = static_cast<ObjectEncoding>(method);
  encoded = encoded.subspan(1);
  const std::optional<std::uint64_t> size = TakeSize(encoded);
  if (!size) return Damaged("its size is damaged");
  header.sizeBytes = *size;
  if (header.encoding == ObjectEncoding::Difference) {
    ObjectKey& key = header.base;
    if (encoded.size() <= key.size()) return Damaged("its header is incomplete");
    std::memcpy(key.data(), encoded.data(), key.size());
    header.position = std::to_integer<std::uint8_t>(encoded[key.size()]);
    if (header.position == 0 || header.position >= kVersionsInGroup) {
      return Damaged("its position is damaged");
    }
    encoded = encoded.subspan(key.size() + 1);
  }
  header.headerBytes = all - encoded.size();
  return header;
}

}  // namespace

std::uint32_t DepthOf(std::uint32_t position) noexcept {
  return static_cast<std::uint32_t>(std::popcount(position));
}

Result<EncodedHeader> ReadEncodedHeader(std::span<const std::byte> encoded) {
  Result<RawHeader> raw = ReadRawHeader(encoded);
  if (!raw) return std::move(raw).error();
  EncodedHeader header;
  header.encoding = raw->encoding;
  header.sizeBytes = raw->sizeBytes;
  if (raw->encoding == ObjectEncoding::Difference) header.base = raw->Base();
  header.position = raw->position;
  header.headerBytes = raw->headerBytes;
  return header;
}

struct ObjectEncoder::State {
  Compressor compressor;

  /// Returns nothing if there is no compression.
  std::vector<std::byte> Compressed(std::span<const std::byte> bytes) {
    std::vector<std::byte> encoded = StartOf(ObjectEncoding::Compressed, bytes.size());
    const auto effort = IsTree(bytes) ? CompressionEffort::Less : CompressionEffort::Normal;
    if (!compressor.Append(bytes, {}, encoded, effort)) return {};
    const std::uint64_t least = bytes.size() / kMostExpansion + 1;
    if (encoded.size() < least) encoded.resize(static_cast<std::size_t>(least));
    return encoded;
  }

  /// Returns nothing if there is no compression or the base can't be used.
  std::vector<std::byte> Difference(std::span<const std::byte> bytes, const EncodingBase& base) {
    const std::optional<ObjectKey> key = KeyOf(base.id);
    if (!key || base.position == 0 || base.position >= kVersionsInGroup ||
        base.packed.GetSize() > kMostBaseBytes) {
      return {};
    }
    std::vector<std::byte> encoded = StartOf(ObjectEncoding::Difference, bytes.size());
    for (const std::uint8_t byte : *key) encoded.push_back(std::byte{byte});
    encoded.push_back(static_cast<std::byte>(base.position));
    const Piece prefix(base.packed);
    if (!compressor.Append(bytes, prefix.Bytes(), encoded)) return {};
    const std::uint64_t free = std::min<std::uint64_t>(prefix.Bytes().size(), bytes.size());
    const std::uint64_t least = (bytes.size() - free) / kMostExpansion + 1;
    if (encoded.size() < least) encoded.resize(static_cast<std::size_t>(least));
    return encoded;
  }
};

ObjectEncoder::ObjectEncoder() : m_state(std::make_unique<State>()) {}
ObjectEncoder::ObjectEncoder(ObjectEncoder&& other) noexcept = default;
ObjectEncoder& ObjectEncoder::operator=(ObjectEncoder&& other) noexcept = default;
ObjectEncoder::~ObjectEncoder() = default;

bool ObjectEncoder::CanCompress() noexcept { return HasCompression(); }

std::vector<std::byte> ObjectEncoder::Encode(const Buffer& packed, const EncodingBase* base) {
  const Piece piece(packed);
  const std::span<const std::byte> bytes = piece.Bytes();
  std::vector<std::byte> difference;
  if (base != nullptr) difference = m_state->Difference(bytes, *base);
  // A difference this short is never beaten.
  if (!difference.empty() && difference.size() <= bytes.size() / 8) return difference;
  std::vector<std::byte> compressed;
  if (bytes.size() >= kLeastBytes) compressed = m_state->Compressed(bytes);
  if (!Pays(compressed, bytes.size())) compressed = PlainForm(bytes);
  return Pays(difference, compressed.size()) ? difference : compressed;
}

std::vector<std::byte> ObjectEncoder::Plain(const Buffer& packed) {
  return PlainForm(Piece(packed).Bytes());
}

struct ObjectDecoder::State {
  Decompressor decompressor;
};

ObjectDecoder::ObjectDecoder() : m_state(std::make_unique<State>()) {}
ObjectDecoder::ObjectDecoder(ObjectDecoder&& other) noexcept = default;
ObjectDecoder& ObjectDecoder::operator=(ObjectDecoder&& other) noexcept = default;
ObjectDecoder::~ObjectDecoder() = default;

Result<Buffer> ObjectDecoder::Decode(std::span<const std::byte> encoded, const Buffer* base) {
  const Result<RawHeader> header = ReadRawHeader(encoded);
  if (!header) return header.error();
  const std::span<const std::byte> payload = encoded.subspan(header->headerBytes);
  if (header->encoding == ObjectEncoding::Plain) {
    if (payload.size() != header->sizeBytes) return Damaged("its size is another");
    Buffer packed;
    packed.Append(payload.data(), payload.size());
    return packed;
  }
  if (!HasCompression()) {
    return MakeError(ErrorCode::Unsupported,
                     "cannot decode an object: it is compressed, and this build has no zstd");
  }
  const bool is_difference = header->encoding == ObjectEncoding::Difference;
  if (is_difference && base == nullptr) {
    return MakeError(ErrorCode::NotFound, "cannot decode an object: its base is missing",
                     TextOf(header->Base()));
  }
  const Buffer none;
  const Piece prefix(is_difference ? *base : none);
  const std::uint64_t most = kMostExpansion * encoded.size() + prefix.Bytes().size();
  if (header->sizeBytes > most) return Damaged("its size is damaged");
  if (header->sizeBytes == 0) {
    return m_state->decompressor.Read(payload, prefix.Bytes(), {})
               ? Result<Buffer>(Buffer())
               : Result<Buffer>(Damaged("its compressed bytes are damaged"));
  }
  std::byte* target = nullptr;
  const auto size = static_cast<std::size_t>(header->sizeBytes);
  Buffer packed = Buffer::Allocate(size, target);
  if (!m_state->decompressor.Read(payload, prefix.Bytes(), {target, size})) {
    return Damaged("its compressed bytes are damaged");
  }
  return packed;
}

}  // namespace TalVcs::Kit
