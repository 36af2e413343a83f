#include <talvcs/foundation/internal/sha256.h>

#if !defined(TALVCS_PORTABLE) && defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define TALVCS_SHA256_X86 1
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace TalUtils {

#ifdef TALVCS_SHA256_X86

namespace {

#define TALVCS_SHA_TARGET __attribute__((target("sha,sse4.1,ssse3")))

// The instructions keep the state as the words (A, B, E, F) and (C, D, G, H), highest first.
struct Lanes {
  __m128i abef;
  __m128i cdgh;
};

TALVCS_SHA_TARGET inline __m128i LoadVector(const void* from) noexcept {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

TALVCS_SHA_TARGET inline void FourRounds(Lanes& lanes, __m128i words, std::size_t round) noexcept {
  const __m128i sum = _mm_add_epi32(words, LoadVector(kSha256Constants.data() + round));
  lanes.cdgh = _mm_sha256rnds2_epu32(lanes.cdgh, lanes.abef, sum);
  lanes.abef = _mm_sha256rnds2_epu32(lanes.abef, lanes.cdgh, _mm_shuffle_epi32(sum, 0x0E));
}

// Returns the four schedule words that follow the sixteen words in a, b, c, d.
TALVCS_SHA_TARGET inline __m128i NextWords(__m128i a, __m128i b, __m128i c, __m128i d) noexcept {
  const __m128i partial = _mm_add_epi32(_mm_sha256msg1_epu32(a, b), _mm_alignr_epi8(d, c, 4));
  return _mm_sha256msg2_epu32(partial, d);
}

const auto kByteOrder = std::array<std::uint64_t, 2>{0x0405060700010203, 0x0C0D0E0F08090A0B};

TALVCS_SHA_TARGET inline Lanes LoadState(const Sha256::State& state) noexcept {
  const __m128i badc = _mm_shuffle_epi32(LoadVector(state.data()), 0xB1);
  const __m128i hgfe = _mm_shuffle_epi32(LoadVector(state.data() + 4), 0x1B);
  return {_mm_alignr_epi8(badc, hgfe, 8), _mm_blend_epi16(hgfe, badc, 0xF0)};
}

TALVCS_SHA_TARGET inline void StoreState(const Lanes& lanes, Sha256::State& state) noexcept {
  const __m128i feba = _mm_shuffle_epi32(lanes.abef, 0x1B);
  const __m128i dchg = _mm_shuffle_epi32(lanes.cdgh, 0xB1);
  auto* out = static_cast<__m128i*>(static_cast<void*>(state.data()));
  _mm_storeu_si128(out, _mm_blend_epi16(feba, dchg, 0xF0));
  _mm_storeu_si128(out + 1, _mm_alignr_epi8(dchg, feba, 8));
}

/// The sixteen latest words of the schedule.
struct Words {
  __m128i a, b, c, d;
};

TALVCS_SHA_TARGET inline Words LoadWords(const std::uint8_t* block) noexcept {
  const __m128i byte_order = LoadVector(kByteOrder.data());
  return {_mm_shuffle_epi8(LoadVector(block), byte_order),
          _mm_shuffle_epi8(LoadVector(block + 16), byte_order),
          _mm_shuffle_epi8(LoadVector(block + 32), byte_order),
          _mm_shuffle_epi8(LoadVector(block + 48), byte_order)};
}

// A block of one message, or of each of several at a time: rounds wait for each other, those of two
// messages don't, so that two together take three quarters of the time of one after the other.
template <std::size_t kMessages>
TALVCS_SHA_TARGET inline void MixBlock(Lanes (&lanes)[kMessages],
                                       const std::uint8_t* const (&blocks)[kMessages]) noexcept {
  Lanes before[kMessages];
  Words words[kMessages];
  for (std::size_t i = 0; i < kMessages; ++i) before[i] = lanes[i];
  for (std::size_t i = 0; i < kMessages; ++i) words[i] = LoadWords(blocks[i]);
  for (std::size_t i = 0; i < kMessages; ++i) FourRounds(lanes[i], words[i].a, 0);
  for (std::size_t i = 0; i < kMessages; ++i) FourRounds(lanes[i], words[i].b, 4);
  for (std::size_t i = 0; i < kMessages; ++i) FourRounds(lanes[i], words[i].c, 8);
  for (std::size_t i = 0; i < kMessages; ++i) FourRounds(lanes[i], words[i].d, 12);
#pragma GCC unroll 3
  for (std::size_t round = 16; round < 64; round += 16) {
    for (std::size_t i = 0; i < kMessages; ++i) {
      Words& w = words[i];
      w.a = NextWords(w.a, w.b, w.c, w.d);
      FourRounds(lanes[i], w.a, round);
    }
    for (std::size_t i = 0; i < kMessages; ++i) {
      Words& w = words[i];
      w.b = NextWords(w.b, w.c, w.d, w.a);
      FourRounds(lanes[i], w.b, round + 4);
    }
    for (std::size_t i = 0; i < kMessages; ++i) {
      Words& w = words[i];
      w.c = NextWords(w.c, w.d, w.a, w.b);
      FourRounds(lanes[i], w.c, round + 8);
    }
    for (std::size_t i = 0; i < kMessages; ++i) {
      Words& w = words[i];
      w.d = NextWords(w.d, w.a, w.b, w.c);
      FourRounds(lanes[i], w.d, round + 12);
    }
  }
  for (std::size_t i = 0; i < kMessages; ++i) {
    lanes[i].abef = _mm_add_epi32(lanes[i].abef, before[i].abef);
    lanes[i].cdgh = _mm_add_epi32(lanes[i].cdgh, before[i].cdgh);
  }
}

TALVCS_SHA_TARGET void MixBlocks(Sha256::State& state, const std::uint8_t* blocks,
                                 std::size_t count) {
  Lanes lanes[1] = {LoadState(state)};
  for (; count != 0; --count, blocks += Sha256::kBlockSize) MixBlock<1>(lanes, {blocks});
  StoreState(lanes[0], state);
}

TALVCS_SHA_TARGET void MixBlocksOfTwo(Sha256::State& state, const std::uint8_t* blocks,
                                      Sha256::State& otherState, const std::uint8_t* otherBlocks,
                                      std::size_t count) {
  Lanes lanes[2] = {LoadState(state), LoadState(otherState)};
  for (; count != 0; --count, blocks += Sha256::kBlockSize, otherBlocks += Sha256::kBlockSize) {
    MixBlock<2>(lanes, {blocks, otherBlocks});
  }
  StoreState(lanes[0], state);
  StoreState(lanes[1], otherState);
}

bool HasShaExtensions() noexcept {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0) return false;
  const bool shuffles = (c & bit_SSSE3) != 0 && (c & bit_SSE4_1) != 0;
  if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0) return false;
  constexpr unsigned kShaBit = 1U << 29;
  return shuffles && (b & kShaBit) != 0;
}

}  // namespace

Sha256::BlockFunction GetSha256BlocksX86() noexcept {
  return HasShaExtensions() ? &MixBlocks : nullptr;
}

Sha256::PairFunction GetSha256PairX86() noexcept {
  return HasShaExtensions() ? &MixBlocksOfTwo : nullptr;
}

#else

Sha256::BlockFunction GetSha256BlocksX86() noexcept { return nullptr; }
Sha256::PairFunction GetSha256PairX86() noexcept { return nullptr; }

#endif

}  // namespace TalUtils
