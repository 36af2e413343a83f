#include <talvcs/foundation/internal/sha256.h>

#if !defined(TALVCS_PORTABLE) && defined(__GNUC__) && defined(__aarch64__) && \
    defined(__ARM_NEON) && defined(__AARCH64EL__)
#define TALVCS_SHA256_ARM 1
#include <arm_neon.h>
#if defined(__linux__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif
#endif

namespace TalUtils {

#ifdef TALVCS_SHA256_ARM

namespace {

#if defined(__clang__)
#define TALVCS_SHA_TARGET __attribute__((target("sha2")))
#else
#define TALVCS_SHA_TARGET __attribute__((target("+crypto")))
#endif

struct Lanes {
  uint32x4_t abcd;
  uint32x4_t efgh;
};

TALVCS_SHA_TARGET inline void FourRounds(Lanes& lanes, uint32x4_t words,
                                         std::size_t round) noexcept {
  const uint32x4_t sum = vaddq_u32(words, vld1q_u32(kSha256Constants.data() + round));
  const uint32x4_t abcd = lanes.abcd;
  lanes.abcd = vsha256hq_u32(abcd, lanes.efgh, sum);
  lanes.efgh = vsha256h2q_u32(lanes.efgh, abcd, sum);
}

// Returns the four schedule words that follow the sixteen words in a, b, c, d.
TALVCS_SHA_TARGET inline uint32x4_t NextWords(uint32x4_t a, uint32x4_t b, uint32x4_t c,
                                              uint32x4_t d) noexcept {
  return vsha256su1q_u32(vsha256su0q_u32(a, b), c, d);
}

TALVCS_SHA_TARGET inline uint32x4_t LoadWords(const std::uint8_t* bytes) noexcept {
  return vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(bytes)));
}

TALVCS_SHA_TARGET void MixBlocks(Sha256::State& state, const std::uint8_t* blocks,
                                 std::size_t count) {
  Lanes lanes{vld1q_u32(state.data()), vld1q_u32(state.data() + 4)};
  for (; count != 0; --count, blocks += Sha256::kBlockSize) {
    const Lanes before = lanes;
    uint32x4_t a = LoadWords(blocks);
    uint32x4_t b = LoadWords(blocks + 16);
    uint32x4_t c = LoadWords(blocks + 32);
    uint32x4_t d = LoadWords(blocks + 48);
    FourRounds(lanes, a, 0);
    FourRounds(lanes, b, 4);
    FourRounds(lanes, c, 8);
    FourRounds(lanes, d, 12);
    for (std::size_t round = 16; round < 64; round += 16) {
      a = NextWords(a, b, c, d);
      FourRounds(lanes, a, round);
      b = NextWords(b, c, d, a);
      FourRounds(lanes, b, round + 4);
      c = NextWords(c, d, a, b);
      FourRounds(lanes, c, round + 8);
      d = NextWords(d, a, b, c);
      FourRounds(lanes, d, round + 12);
    }
    lanes.abcd = vaddq_u32(lanes.abcd, before.abcd);
    lanes.efgh = vaddq_u32(lanes.efgh, before.efgh);
  }
  vst1q_u32(state.data(), lanes.abcd);
  vst1q_u32(state.data() + 4, lanes.efgh);
}

bool HasShaExtensions() noexcept {
#if defined(__linux__)
  return (getauxval(AT_HWCAP) & HWCAP_SHA2) != 0;
#elif defined(__APPLE__)
  return true;
#else
  return false;
#endif
}

}  // namespace

Sha256::BlockFunction GetSha256BlocksArm() noexcept {
  return HasShaExtensions() ? &MixBlocks : nullptr;
}

#else

Sha256::BlockFunction GetSha256BlocksArm() noexcept { return nullptr; }

#endif

}  // namespace TalUtils
