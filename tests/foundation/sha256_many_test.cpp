#include <talvcs/foundation/internal/sha256_many.h>

#include <gtest/gtest.h>
#include <tests/support/digits.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Testing {
namespace {

using TalUtils::Sha256;
using TalUtils::Sha256Message;

/// Messages of bytes that repeat after 256, from 0 to 700 and some longer ones, cut anywhere.
class Messages {
 public:
  explicit Messages(std::size_t mostInHead) {
    for (std::size_t length = 0; length <= 700; ++length) m_lengths.push_back(length);
    for (const std::size_t length : {4095, 4096, 4097, 100000}) m_lengths.push_back(length);
    for (std::size_t index = 0; index < m_lengths.back(); ++index) {
      m_pattern += static_cast<char>(index * 7 + 3);
    }
    digests.resize(m_lengths.size());
    const auto bytes = std::as_bytes(std::span(m_pattern));
    for (std::size_t index = 0; index < m_lengths.size(); ++index) {
      const auto message = bytes.first(m_lengths[index]);
      const std::size_t cut = std::min(message.size(), mostInHead);
      all.push_back({message.first(cut), message.subspan(cut), &digests[index]});
    }
  }

  std::string DigestOfDigests() const {
    Sha256 hash;
    for (const Sha256::Digest& digest : digests) hash.Update(digest.data(), digest.size());
    return Digits(hash.Finish());
  }

  std::vector<Sha256Message> all;
  std::vector<Sha256::Digest> digests;

 private:
  std::vector<std::size_t> m_lengths;
  std::string m_pattern;
};

constexpr char kDigestOfDigests[] =
    "77d89633624e9411e575e62682e9d6b398d4b65dd6469ffc7186c380a7f10585";

/// The pair function of an obvious kind, for processors without one of their own.
void OneAfterTheOther(Sha256::State& state, const std::uint8_t* blocks, Sha256::State& otherState,
                      const std::uint8_t* otherBlocks, std::size_t count) {
  TalUtils::Sha256BlocksPortable(state, blocks, count);
  TalUtils::Sha256BlocksPortable(otherState, otherBlocks, count);
}

TEST(Sha256Many, GivesTheDigestsOfAllLengthsAndCuts) {
  for (const std::size_t most_in_head : {0U, 1U, 12U, 63U, 64U, 65U, 300U, 1000000U}) {
    Messages messages(most_in_head);
    TalUtils::ComputeSha256(messages.all);
    EXPECT_EQ(messages.DigestOfDigests(), kDigestOfDigests) << most_in_head;
  }
}

TEST(Sha256Many, ComputesDigestsInAnyOrder) {
  std::mt19937 random(1);
  for (int round = 0; round < 5; ++round) {
    Messages messages(12);
    std::shuffle(messages.all.begin(), messages.all.end(), random);
    TalUtils::ComputeSha256(messages.all);
    EXPECT_EQ(messages.DigestOfDigests(), kDigestOfDigests);
  }
}

TEST(Sha256Many, WorksWithAndWithoutAFunctionForPairs) {
  for (const Sha256::PairFunction function :
       {Sha256::PairFunction(nullptr), Sha256::PairFunction(&OneAfterTheOther)}) {
    Messages messages(12);
    TalUtils::ComputeSha256(messages.all, function);
    EXPECT_EQ(messages.DigestOfDigests(), kDigestOfDigests);
  }
}

TEST(Sha256Many, OfOneMessageIsItsDigest) {
  constexpr std::string_view kText = "abc";
  Sha256::Digest digest{};
  const Sha256Message message{std::as_bytes(std::span(kText)), {}, &digest};
  TalUtils::ComputeSha256(std::span(&message, 1));
  EXPECT_EQ(Digits(digest), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

}  // namespace
}  // namespace TalVcs::Testing
