#include <talvcs/foundation/internal/sha256.h>

#include <algorithm>
#include <cstring>

namespace TalUtils {

namespace {

constexpr std::size_t kLengthSize = 8;
constexpr std::size_t kMostShortBlocks = 8;

/// The block functions of this processor, found once.
struct Choice {
  std::array<Sha256::Implementation, 3> implementations;
  std::size_t count = 0;

  Choice() noexcept {
    Add("x86 SHA extensions", GetSha256BlocksX86());
    Add("ARMv8 cryptography extensions", GetSha256BlocksArm());
    Add("portable", &Sha256BlocksPortable);
  }

  void Add(std::string_view name, Sha256::BlockFunction function) noexcept {
    if (function != nullptr) implementations[count++] = {name, function};
  }
};

void PutBigEndian(std::uint8_t* out, std::uint64_t value, std::size_t bytes) noexcept {
  for (std::size_t index = bytes; index-- > 0; value >>= 8) {
    out[index] = static_cast<std::uint8_t>(value);
  }
}

}  // namespace

std::span<const Sha256::Implementation> Sha256::GetImplementations() noexcept {
  static const Choice choice;
  return {choice.implementations.data(), choice.count};
}

Sha256::Sha256() noexcept : Sha256(GetImplementations().front().function) {}

Sha256::Sha256(const Checkpoint& checkpoint) noexcept
    : m_function(GetImplementations().front().function),
      m_state(checkpoint.state),
      m_size(checkpoint.size) {}

Sha256::Sha256(BlockFunction function) noexcept : m_function(function), m_state(kInitialState) {}

void Sha256::Update(const void* data, std::size_t size) noexcept {
  if (size == 0) return;
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  const auto filled = static_cast<std::size_t>(m_size % kBlockSize);
  m_size += size;
  if (filled != 0) {
    const std::size_t taken = std::min(size, kBlockSize - filled);
    std::memcpy(m_block.data() + filled, bytes, taken);
    if (filled + taken < kBlockSize) return;
    m_function(m_state, m_block.data(), 1);
    bytes += taken;
    size -= taken;
  }
  const std::size_t blocks = size / kBlockSize;
  if (blocks != 0) m_function(m_state, bytes, blocks);
  const std::size_t left = size % kBlockSize;
  if (left != 0) std::memcpy(m_block.data(), bytes + blocks * kBlockSize, left);
}

void Sha256::Update(const Memory::Buffer& data) noexcept {
  const std::size_t count = data.GetSegmentCount();
  for (std::size_t index = 0; index < count; ++index) {
    const auto segment = data.GetSegment(index);
    Update(segment.data(), segment.size());
  }
}

Sha256::Digest Sha256::Finish() noexcept {
  auto filled = static_cast<std::size_t>(m_size % kBlockSize);
  m_block[filled++] = 0x80;
  if (filled > kBlockSize - kLengthSize) {
    std::memset(m_block.data() + filled, 0, kBlockSize - filled);
    m_function(m_state, m_block.data(), 1);
    filled = 0;
  }
  std::memset(m_block.data() + filled, 0, kBlockSize - kLengthSize - filled);
  PutLength(m_block.data() + kBlockSize, m_size);
  m_function(m_state, m_block.data(), 1);
  return DigestOf(m_state);
}

Sha256::Digest Sha256::Compute(std::span<const std::byte> head,
                               std::span<const std::byte> body) noexcept {
  const std::size_t size = head.size() + body.size();
  const std::size_t blocks = (size + 1 + kLengthSize + kBlockSize - 1) / kBlockSize;
  Sha256 hash;
  if (blocks > kMostShortBlocks) {
    hash.Update(head.data(), head.size());
    hash.Update(body.data(), body.size());
    return hash.Finish();
  }
  std::array<std::uint8_t, kMostShortBlocks * kBlockSize> bytes;
  if (!head.empty()) std::memcpy(bytes.data(), head.data(), head.size());
  if (!body.empty()) std::memcpy(bytes.data() + head.size(), body.data(), body.size());
  bytes[size] = 0x80;
  std::memset(bytes.data() + size + 1, 0, blocks * kBlockSize - size - 1);
  PutLength(bytes.data() + blocks * kBlockSize, size);
  hash.m_function(hash.m_state, bytes.data(), blocks);
  return DigestOf(hash.m_state);
}

void Sha256::PutLength(std::uint8_t* end, std::uint64_t size) noexcept {
  PutBigEndian(end - kLengthSize, size * 8, kLengthSize);
}

Sha256::Digest Sha256::DigestOf(const State& state) noexcept {
  Digest digest;
  for (std::size_t word = 0; word < state.size(); ++word) {
    PutBigEndian(digest.data() + 4 * word, state[word], 4);
  }
  return digest;
}

}  // namespace TalUtils
