#pragma once

#include <kit/export.h>
#include <kit/text/result.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace TalVcs::Kit {

/// How an encoded form holds a packed form. The numbers are stored.
enum class ObjectEncoding : std::uint8_t {
  Plain = 0,       ///< The packed form as it is.
  Compressed = 1,  ///< Compressed by itself.
  Difference = 2,  ///< Compressed against another packed form, its base.
};

/// The most versions of one path that form a group. Only the first of a group has no base.
///
/// Each version has a position in its group. Its base has that position without the lowest bit that
/// is set: the base of 6 is 4, that of 7 is 6, that of 8 is 0. So a difference is at most 32
/// versions away from its base, and never has more bases below it than its position has bits.
inline constexpr std::uint32_t kVersionsInGroup = 64;

/// The longest chain of bases. Reading any version decodes at most this many differences, after one
/// form without a base.
inline constexpr std::uint32_t kMostDifferences = 6;

/// What the first bytes of an encoded form say.
struct EncodedHeader {
  ObjectEncoding encoding = ObjectEncoding::Plain;  ///< How the rest is encoded.
  std::uint64_t sizeBytes = 0;                      ///< The size of the packed form.
  Id base;                      ///< The base of a difference; empty for the others.
  std::uint32_t position = 0;   ///< The position in the group; 0 for a form without a base.
  std::size_t headerBytes = 0;  ///< The number of bytes of the header itself.
};

/// The most bytes of a header. This many bytes from the beginning of an encoded form, or all of
/// them if it is shorter, are enough for `ReadEncodedHeader`.
inline constexpr std::size_t kMostEncodedHeaderBytes = 64;

/// Returns how many bases lie at most below a form of that position. A reader must refuse a base
/// whose depth isn't less than that of its difference; then no damage makes a circle.
TALVCS_KIT_API std::uint32_t DepthOf(std::uint32_t position) noexcept;

/// Reads the header at the beginning of an encoded form. Fails with `Damaged` for bytes that are no
/// header, and with `Unsupported` for an encoding that this version doesn't know. Nothing below the
/// header is checked.
TALVCS_KIT_API Result<EncodedHeader> ReadEncodedHeader(std::span<const std::byte> encoded);

/// What a difference may refer to.
struct EncodingBase {
  Id id;                       ///< The id of the base, which must be an object's.
  Buffer packed;               ///< Its packed form.
  std::uint32_t position = 0;  ///< The position of the difference, not of the base; not 0.
};

/// Makes encoded forms, in which stores keep objects: a header, and the packed form plain,
/// compressed or as a difference, whichever is short. docs/formats.md describes the bytes. The id
/// of an object stays that of its packed form.
///
/// A resource that keeps working memory from one object to the next; moved, not copied. A
/// moved-from encoder may only be assigned to or destroyed. Threads: one thread at a time.
class TALVCS_KIT_API ObjectEncoder {
 public:
  ObjectEncoder();
  ObjectEncoder(ObjectEncoder&& other) noexcept;
  ObjectEncoder& operator=(ObjectEncoder&& other) noexcept;
  ~ObjectEncoder();

  /// True if this build compresses. Otherwise every encoded form is plain, and a decoder fails with
  /// `Unsupported` for the other encodings.
  static bool CanCompress() noexcept;

  /// Returns the encoded form of `packed`.
  ///
  /// It is a difference from `base` if that is clearly shorter than the other encodings. A base
  /// that is null, larger than 64 MiB or has no position in a group isn't used. Bytes that hardly
  /// get shorter, such as those of a compressed file, stay plain. The result depends on the version
  /// of the compression library; every version reads it.
  ///
  /// Cost: one compression at some 200 MB/s, two if the difference didn't pay.
  std::vector<std::byte> Encode(const Buffer& packed, const EncodingBase* base = nullptr);

  /// Returns the encoded form that is `packed` as it is.
  static std::vector<std::byte> Plain(const Buffer& packed);

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

/// Reads encoded forms. A resource like the encoder, with the same rules for moves and threads.
class TALVCS_KIT_API ObjectDecoder {
 public:
  ObjectDecoder();
  ObjectDecoder(ObjectDecoder&& other) noexcept;
  ObjectDecoder& operator=(ObjectDecoder&& other) noexcept;
  ~ObjectDecoder();

  /// Returns the packed form. For a difference, `base` must be the packed form of the object that
  /// the header names; for the others it isn't used and may be null.
  ///
  /// Whether the result fits an id isn't checked. Fails with `Damaged` for bytes that no encoder
  /// makes, as far as that can be seen, with `NotFound` if the base of a difference is null, and
  /// with `Unsupported` if this build can't decompress. Any bytes may come in: memory stays below
  /// 1,024 times their number plus the size of the base.
  Result<Buffer> Decode(std::span<const std::byte> encoded, const Buffer* base = nullptr);

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

}  // namespace TalVcs::Kit
