#include <kit/internal/recent_objects.h>
#include <kit/open/internal/errors.h>
#include <kit/store/encoded_objects.h>

#include <optional>
#include <utility>

namespace TalVcs::Kit {

namespace {

/// The position of the base of `position`.
constexpr std::uint32_t BasePosition(std::uint32_t position) { return position & (position - 1); }

/// Odd positions are nobody's base.
constexpr bool MayBeBase(std::uint32_t position) { return position % 2 == 0; }

/// An object that may be a base, or whose base may be one.
struct Candidate {
  Id base;
  std::uint32_t position = 0;
  /// None for a version that is no base of others, of which the place alone is of use.
  std::optional<Buffer> packed;
  /// Whether it is known that `packed` fits the id.
  bool fitsId = false;
  /// True for a base that was read and that no caller has got.
  bool isUntaken = false;
};

/// An encoded form on the way to a base.
struct Step {
  Id id;
  EncodedHeader header;
  std::vector<std::byte> encoded;
};

}  // namespace

struct EncodedObjects::State {
  explicit State(std::uint64_t cacheBytes) : cache(cacheBytes) {}

  ObjectEncoder encoder;
  ObjectDecoder decoder;
  RecentObjects<Candidate> cache;

  void Keep(const Id& id, const EncodedHeader& header, const Buffer& packed, bool fits_id) {
    Candidate candidate{header.base, header.position, std::nullopt, fits_id, false};
    if (MayBeBase(header.position)) candidate.packed = packed;
    const std::uint64_t size_bytes = candidate.packed ? packed.GetSize() : 0;
    cache.Put(id, std::move(candidate), size_bytes);
  }

  static Result<Step> ReadStep(const Id& id, const ReadEncoded& read) {
    Result<std::vector<std::byte>> encoded = read(id);
    if (!encoded) return encoded.error();
    const Result<EncodedHeader> header = ReadEncodedHeader(*encoded);
    if (!header) return header.error();
    return Step{id, *header, *std::move(encoded)};
  }

  /// Returns the packed form of the object, which lies below a difference of that depth.
  Result<Buffer> ReadBase(Id id, std::uint32_t depth, const ReadEncoded& read) {
    std::vector<Step> steps;
    std::optional<Buffer> packed;
    for (;;) {
      const Candidate* cached = cache.Find(id);
      if (cached != nullptr && cached->packed) {
        packed = cached->packed;
        break;
      }
      Result<Step> step = ReadStep(id, read);
      if (!step) return step.error();
      if (DepthOf(step->header.position) >= depth) {
        return MakeError(ErrorCode::Damaged,
                         "cannot decode an object: its base has no place below it", TextOf(id));
      }
      depth = DepthOf(step->header.position);
      id = step->header.base;
      steps.push_back(*std::move(step));
      if (steps.back().header.encoding != ObjectEncoding::Difference) break;
    }
    for (; !steps.empty(); steps.pop_back()) {
      const Step& step = steps.back();
      Result<Buffer> decoded = decoder.Decode(step.encoded, packed ? &*packed : nullptr);
      if (!decoded) {
        Error error = std::move(decoded).error();
        error.subject = TextOf(step.id);
        return error;
      }
      packed = *std::move(decoded);
      Keep(step.id, step.header, *packed, false);
      if (Candidate* kept = cache.Find(step.id)) kept->isUntaken = true;
    }
    return *std::move(packed);
  }

  /// Returns the base for the version after `previous`, or none if it begins a group.
  std::optional<EncodingBase> ChooseBase(const Id& previous, const ReadEncoded& read) {
    EncodingBase base{previous, Buffer(), 0};
    std::uint32_t depth = kMostDifferences + 1;
    for (;;) {
      std::uint32_t position = 0;
      Id next;
      if (const Candidate* cached = cache.Find(base.id)) {
        position = cached->position;
        next = cached->base;
      } else {
        const Result<Step> step = ReadStep(base.id, read);
        if (!step) return std::nullopt;
        position = step->header.position;
        next = step->header.base;
      }
      if (base.position == 0) base.position = position + 1;
      if (base.position == kVersionsInGroup || DepthOf(position) >= depth) return std::nullopt;
      depth = DepthOf(position);
      if (position <= BasePosition(base.position)) break;
      base.id = next;
    }
    if (depth >= DepthOf(base.position)) return std::nullopt;
    const Result<Buffer> packed = ReadBase(base.id, DepthOf(base.position), read);
    if (!packed) return std::nullopt;
    base.packed = *packed;
    return FitsId(base) ? std::optional(std::move(base)) : std::nullopt;
  }

  // What is encoded against damaged bytes would be damaged as soon as those are repaired.
  bool FitsId(const EncodingBase& base) {
    Candidate* cached = cache.Find(base.id);
    if (cached != nullptr && cached->fitsId) return true;
    if (!(Id(base.packed) == base.id)) return false;
    if (cached != nullptr) cached->fitsId = true;
    return true;
  }
};

EncodedObjects::EncodedObjects(std::uint64_t cacheBytes)
    : m_state(std::make_unique<State>(cacheBytes)) {}
EncodedObjects::EncodedObjects(EncodedObjects&& other) noexcept = default;
EncodedObjects& EncodedObjects::operator=(EncodedObjects&& other) noexcept = default;
EncodedObjects::~EncodedObjects() = default;

std::vector<std::byte> EncodedObjects::Encode(const StoredObject& object, const ReadEncoded& read) {
  std::optional<EncodingBase> base;
  if (ObjectEncoder::CanCompress() && IsObjectId(object.previous) &&
      !(object.previous == object.id)) {
    base = m_state->ChooseBase(object.previous, read);
  }
  std::vector<std::byte> encoded = m_state->encoder.Encode(object.packed, base ? &*base : nullptr);
  const Result<EncodedHeader> header = ReadEncodedHeader(encoded);
  if (header) m_state->Keep(object.id, *header, object.packed, true);
  return encoded;
}

Result<Buffer> EncodedObjects::Decode(const Id& id, std::span<const std::byte> encoded,
                                      const ReadEncoded& read) {
  const Result<EncodedHeader> header = ReadEncodedHeader(encoded);
  if (!header) return header.error();
  std::optional<Buffer> base;
  if (header->encoding == ObjectEncoding::Difference) {
    Result<Buffer> packed = m_state->ReadBase(header->base, DepthOf(header->position), read);
    if (!packed) {
      if (packed.error().code != ErrorCode::NotFound) return packed.error();
      return MakeError(ErrorCode::Damaged,
                       "cannot decode object " + ShortId(id) + ": the store lacks its base " +
                           ShortId(header->base),
                       TextOf(id));
    }
    base = *std::move(packed);
  }
  Result<Buffer> packed = m_state->decoder.Decode(encoded, base ? &*base : nullptr);
  if (packed && MayBeBase(header->position)) m_state->Keep(id, *header, *packed, false);
  return packed;
}

std::optional<Buffer> EncodedObjects::TakeBase(const Id& id) {
  Candidate* cached = m_state->cache.Find(id);
  if (cached == nullptr || !std::exchange(cached->isUntaken, false)) return std::nullopt;
  return cached->packed;
}

void EncodedObjects::Clear() noexcept { m_state->cache.Clear(); }

std::uint64_t EncodedObjects::GetCachedBytes() const noexcept {
  return m_state->cache.GetSizeInBytes();
}

}  // namespace TalVcs::Kit
