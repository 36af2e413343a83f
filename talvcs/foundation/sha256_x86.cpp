#include <talvcs/foundation/sha256.h>

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

TALVCS_SHA_TARGET void MixBlocks(Sha256::State& state, const std::uint8_t* blocks,
                                 std::size_t count) {
  const __m128i byte_order = _mm_set_epi64x(0x0C0D0E0F08090A0B, 0x0405060700010203);
  const __m128i badc = _mm_shuffle_epi32(LoadVector(state.data()), 0xB1);
  const __m128i hgfe = _mm_shuffle_epi32(LoadVector(state.data() + 4), 0x1B);
  Lanes lanes{_mm_alignr_epi8(badc, hgfe, 8), _mm_blend_epi16(hgfe, badc, 0xF0)};
  for (; count != 0; --count, blocks += Sha256::kBlockSize) {
    const Lanes before = lanes;
    __m128i a = _mm_shuffle_epi8(LoadVector(blocks), byte_order);
    __m128i b = _mm_shuffle_epi8(LoadVector(blocks + 16), byte_order);
    __m128i c = _mm_shuffle_epi8(LoadVector(blocks + 32), byte_order);
    __m128i d = _mm_shuffle_epi8(LoadVector(blocks + 48), byte_order);
    FourRounds(lanes, a, 0);
    FourRounds(lanes, b, 4);
    FourRounds(lanes, c, 8);
    FourRounds(lanes, d, 12);
#pragma GCC unroll 3
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
    lanes.abef = _mm_add_epi32(lanes.abef, before.abef);
    lanes.cdgh = _mm_add_epi32(lanes.cdgh, before.cdgh);
  }
  const __m128i feba = _mm_shuffle_epi32(lanes.abef, 0x1B);
  const __m128i dchg = _mm_shuffle_epi32(lanes.cdgh, 0xB1);
  auto* out = static_cast<__m128i*>(static_cast<void*>(state.data()));
  _mm_storeu_si128(out, _mm_blend_epi16(feba, dchg, 0xF0));
  _mm_storeu_si128(out + 1, _mm_alignr_epi8(dchg, feba, 8));
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

#else

Sha256::BlockFunction GetSha256BlocksX86() noexcept { return nullptr; }

#endif

}  // namespace TalUtils
