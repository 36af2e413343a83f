#include <kit/internal/checksum.h>

#include <array>
#include <cstddef>

// Eight bytes a step: the table number n holds the checksums of a byte that n zeros follow, so that
// the checksums of the eight bytes can be looked up independently of each other.

namespace TalVcs::Kit {

namespace {

constexpr std::size_t kTables = 8;
using Tables = std::array<std::array<std::uint32_t, 256>, kTables>;

constexpr Tables MakeTables() {
  constexpr std::uint32_t kReversedPolynomial = 0xEDB88320U;
  Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t sum = byte;
    for (int bit = 0; bit < 8; ++bit) {
      sum = (sum & 1U) != 0 ? sum >> 1 ^ kReversedPolynomial : sum >> 1;
    }
    tables[0][byte] = sum;
  }
  for (std::size_t table = 1; table < kTables; ++table) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t sum = tables[table - 1][byte];
      tables[table][byte] = sum >> 8 ^ tables[0][sum & 0xFFU];
    }
  }
  return tables;
}

constexpr Tables kSums = MakeTables();

}  // namespace

std::uint32_t ChecksumOf(std::string_view bytes, std::uint32_t before) noexcept {
  const auto byte_at = [&bytes](std::size_t index) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[index]));
  };
  std::uint32_t sum = ~before;
  std::size_t at = 0;
  for (; at + kTables <= bytes.size(); at += kTables) {
    const std::uint32_t low =
        sum ^ (byte_at(at) | byte_at(at + 1) << 8 | byte_at(at + 2) << 16 | byte_at(at + 3) << 24);
    sum = kSums[7][low & 0xFFU] ^ kSums[6][low >> 8 & 0xFFU] ^ kSums[5][low >> 16 & 0xFFU] ^
          kSums[4][low >> 24] ^ kSums[3][byte_at(at + 4)] ^ kSums[2][byte_at(at + 5)] ^
          kSums[1][byte_at(at + 6)] ^ kSums[0][byte_at(at + 7)];
  }
  for (; at < bytes.size(); ++at) sum = sum >> 8 ^ kSums[0][(sum ^ byte_at(at)) & 0xFFU];
  return ~sum;
}

}  // namespace TalVcs::Kit
