#include <talvcs/foundation/internal/sha256.h>

#include <bit>

namespace TalUtils {

const std::array<std::uint32_t, 64> kSha256Constants = {
    0x428A2F98, 0x71374491, 0xB5C0FBCF, 0xE9B5DBA5, 0x3956C25B, 0x59F111F1, 0x923F82A4, 0xAB1C5ED5,
    0xD807AA98, 0x12835B01, 0x243185BE, 0x550C7DC3, 0x72BE5D74, 0x80DEB1FE, 0x9BDC06A7, 0xC19BF174,
    0xE49B69C1, 0xEFBE4786, 0x0FC19DC6, 0x240CA1CC, 0x2DE92C6F, 0x4A7484AA, 0x5CB0A9DC, 0x76F988DA,
    0x983E5152, 0xA831C66D, 0xB00327C8, 0xBF597FC7, 0xC6E00BF3, 0xD5A79147, 0x06CA6351, 0x14292967,
    0x27B70A85, 0x2E1B2138, 0x4D2C6DFC, 0x53380D13, 0x650A7354, 0x766A0ABB, 0x81C2C92E, 0x92722C85,
    0xA2BFE8A1, 0xA81A664B, 0xC24B8B70, 0xC76C51A3, 0xD192E819, 0xD6990624, 0xF40E3585, 0x106AA070,
    0x19A4C116, 0x1E376C08, 0x2748774C, 0x34B0BCB5, 0x391C0CB3, 0x4ED8AA4A, 0x5B9CCA4F, 0x682E6FF3,
    0x748F82EE, 0x78A5636F, 0x84C87814, 0x8CC70208, 0x90BEFFFA, 0xA4506CEB, 0xBEF9A3F7, 0xC67178F2};

namespace {

std::uint32_t LoadBigEndian(const std::uint8_t* bytes) noexcept {
  return (std::uint32_t{bytes[0]} << 24) | (std::uint32_t{bytes[1]} << 16) |
         (std::uint32_t{bytes[2]} << 8) | std::uint32_t{bytes[3]};
}

void MixBlock(Sha256::State& state, const std::uint8_t* block) noexcept {
  std::uint32_t schedule[64];
  for (std::size_t round = 0; round < 16; ++round) {
    schedule[round] = LoadBigEndian(block + 4 * round);
  }
  for (std::size_t round = 16; round < 64; ++round) {
    const std::uint32_t early = schedule[round - 15];
    const std::uint32_t late = schedule[round - 2];
    schedule[round] = schedule[round - 16] + schedule[round - 7] +
                      (std::rotr(early, 7) ^ std::rotr(early, 18) ^ (early >> 3)) +
                      (std::rotr(late, 17) ^ std::rotr(late, 19) ^ (late >> 10));
  }
  auto [a, b, c, d, e, f, g, h] = state;
  for (std::size_t round = 0; round < 64; ++round) {
    const std::uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                                ((e & f) ^ (~e & g)) + kSha256Constants[round] + schedule[round];
    const std::uint32_t second =
        (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + second;
  }
  const Sha256::State mixed = {a, b, c, d, e, f, g, h};
  for (std::size_t word = 0; word < state.size(); ++word) state[word] += mixed[word];
}

}  // namespace

void Sha256BlocksPortable(Sha256::State& state, const std::uint8_t* blocks,
                          std::size_t count) noexcept {
  for (std::size_t index = 0; index < count; ++index) {
    MixBlock(state, blocks + index * Sha256::kBlockSize);
  }
}

}  // namespace TalUtils
