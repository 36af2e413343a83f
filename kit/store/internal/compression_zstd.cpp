#include <kit/store/internal/compression.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <new>

// A zstd frame without its magic number, without a checksum and without the size of its content:
// the id of an object is its check, and the encoded form has the size.

namespace TalVcs::Kit {

namespace {

constexpr std::array<std::byte, 4> kMagic = {std::byte{0x28}, std::byte{0xB5}, std::byte{0x2F},
                                             std::byte{0xFD}};

/// Level 1 makes differences 5 % longer in nearly the same time; level 6 makes them 6 % shorter in
/// three times the time.
constexpr int kLevel = 3;

/// Makes trees 4 % shorter than level 3 in 60 % of the time: a longer search finds short matches in
/// ids, which take more room than the digits themselves.
constexpr int kLevelOfLessEffort = 1;

/// The window that the level has by itself. More is needed only where a prefix lies further back.
constexpr int kLevelWindowLog = 21;
constexpr int kMostWindowLog = 27;

/// Working memory that is larger isn't kept.
constexpr std::size_t kKeptBytes = std::size_t{1} << 20;

template <class Context>
Context* RequireContext(Context* context) {
  if (context == nullptr) throw std::bad_alloc();
  return context;
}

}  // namespace

bool HasCompression() noexcept { return true; }

struct Compressor::Context {
  Context() : zstd(RequireContext(ZSTD_createCCtx())) {
    ZSTD_CCtx_setParameter(zstd, ZSTD_c_contentSizeFlag, 0);
    ZSTD_CCtx_setParameter(zstd, ZSTD_c_checksumFlag, 0);
    ZSTD_CCtx_setParameter(zstd, ZSTD_c_dictIDFlag, 0);
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context() { ZSTD_freeCCtx(zstd); }

  ZSTD_CCtx* zstd;
};

Compressor::Compressor() = default;
Compressor::~Compressor() = default;

bool Compressor::Append(std::span<const std::byte> bytes, std::span<const std::byte> prefix,
                        std::vector<std::byte>& target, CompressionEffort effort) {
  if (!m_context) m_context = std::make_unique<Context>();
  ZSTD_CCtx* zstd = m_context->zstd;
  const int level = effort == CompressionEffort::Less ? kLevelOfLessEffort : kLevel;
  ZSTD_CCtx_setParameter(zstd, ZSTD_c_compressionLevel, level);
  // The start of the prefix has to be in reach from the end of the bytes.
  const int reach = static_cast<int>(std::bit_width(bytes.size() + prefix.size()));
  const bool is_far = !prefix.empty() && reach > kLevelWindowLog;
  ZSTD_CCtx_setParameter(zstd, ZSTD_c_windowLog, is_far ? std::min(reach, kMostWindowLog) : 0);
  ZSTD_CCtx_setParameter(zstd, ZSTD_c_enableLongDistanceMatching, is_far ? 1 : 0);
  ZSTD_CCtx_refPrefix(zstd, prefix.data(), prefix.size());

  const std::size_t before = target.size();
  target.resize(before + ZSTD_compressBound(bytes.size()));
  const std::size_t size = ZSTD_compress2(zstd, target.data() + before, target.size() - before,
                                          bytes.data(), bytes.size());
  const bool is_frame = ZSTD_isError(size) == 0U && size > kMagic.size();
  target.resize(is_frame ? before + size : before);
  if (is_frame) {
    const auto magic = target.begin() + static_cast<std::ptrdiff_t>(before);
    target.erase(magic, magic + kMagic.size());
  }
  return is_frame;
}

struct Decompressor::Context {
  Context() : zstd(RequireContext(ZSTD_createDCtx())) {}
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context() { ZSTD_freeDCtx(zstd); }

  ZSTD_DCtx* zstd;
  std::vector<std::byte> frame;
};

Decompressor::Decompressor() = default;
Decompressor::~Decompressor() = default;

bool Decompressor::Read(std::span<const std::byte> compressed, std::span<const std::byte> prefix,
                        std::span<std::byte> target) {
  if (!m_context) m_context = std::make_unique<Context>();
  std::vector<std::byte>& frame = m_context->frame;
  frame.assign(kMagic.begin(), kMagic.end());
  frame.insert(frame.end(), compressed.begin(), compressed.end());
  const std::size_t size = ZSTD_findFrameCompressedSize(frame.data(), frame.size());
  if (ZSTD_isError(size) != 0U || size > frame.size()) return false;
  const auto end = frame.begin() + static_cast<std::ptrdiff_t>(size);
  if (std::any_of(end, frame.end(), [](std::byte byte) { return byte != std::byte{0}; })) {
    return false;
  }
  ZSTD_DCtx_refPrefix(m_context->zstd, prefix.data(), prefix.size());
  const std::size_t read =
      ZSTD_decompressDCtx(m_context->zstd, target.data(), target.size(), frame.data(), size);
  if (frame.capacity() > kKeptBytes) std::vector<std::byte>().swap(frame);
  return read == target.size();
}

}  // namespace TalVcs::Kit
