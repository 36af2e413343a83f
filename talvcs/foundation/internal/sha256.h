#pragma once

#include <talvcs/foundation/buffer.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace TalUtils {

/// One SHA-256 computation: any number of updates, then `Finish` once.
class Sha256 {
 public:
  using Digest = std::array<std::uint8_t, 32>;
  using State = std::array<std::uint32_t, 8>;
  static constexpr std::size_t kBlockSize = 64;
  static constexpr State kInitialState = {0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A,
                                          0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19};

  /// Mixes `count` blocks of 64 bytes into `state`.
  using BlockFunction = void (*)(State& state, const std::uint8_t* blocks, std::size_t count);

  /// Mixes `count` blocks into each of two states.
  using PairFunction = void (*)(State& state, const std::uint8_t* blocks, State& otherState,
                                const std::uint8_t* otherBlocks, std::size_t count);

  /// A block function and the name of the instructions that it is made of.
  struct Implementation {
    std::string_view name;
    BlockFunction function;
  };

  /// What is known after a number of whole blocks.
  struct Checkpoint {
    State state;
    std::uint64_t size;  // bytes so far, a multiple of `kBlockSize`
  };

  /// Uses the fastest block function that the processor has.
  Sha256() noexcept;
  /// Goes on after the bytes that led to `checkpoint`.
  explicit Sha256(const Checkpoint& checkpoint) noexcept;
  explicit Sha256(BlockFunction function) noexcept;

  void Update(const void* data, std::size_t size) noexcept;
  void Update(const Memory::Buffer& data) noexcept;
  Digest Finish() noexcept;

  /// Returns the digest of the bytes of `head` followed by those of `body`. For a short message
  /// this takes less time than two updates, because all of its blocks lie in one piece.
  static Digest Compute(std::span<const std::byte> head, std::span<const std::byte> body) noexcept;

  /// Returns what is known after the last whole block of the bytes so far.
  Checkpoint GetCheckpoint() const noexcept { return {m_state, m_size / kBlockSize * kBlockSize}; }

  /// Returns the block functions that this processor can run, the fastest first, the portable one
  /// last.
  static std::span<const Implementation> GetImplementations() noexcept;

  /// Writes the length of a message of `size` bytes, with which its last block ends, before `end`.
  static void PutLength(std::uint8_t* end, std::uint64_t size) noexcept;
  /// Returns the digest of the state after the last block.
  static Digest DigestOf(const State& state) noexcept;

 private:
  BlockFunction m_function;
  State m_state;
  std::uint64_t m_size = 0;  // bytes so far
  std::array<std::uint8_t, kBlockSize> m_block;
};

/// The round constants.
extern const std::array<std::uint32_t, 64> kSha256Constants;

void Sha256BlocksPortable(Sha256::State& state, const std::uint8_t* blocks,
                          std::size_t count) noexcept;

/// Return the block function for the processor's own instructions, or null if it has none.
Sha256::BlockFunction GetSha256BlocksX86() noexcept;
Sha256::BlockFunction GetSha256BlocksArm() noexcept;

/// Returns the function that mixes the blocks of two messages at once, or null if the processor has
/// nothing that makes it faster than one after the other.
Sha256::PairFunction GetSha256PairX86() noexcept;

}  // namespace TalUtils
