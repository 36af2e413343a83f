#include <talvcs/foundation/internal/sha256.h>

#include <gtest/gtest.h>
#include <tests/support/digits.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Testing {
namespace {

using TalUtils::Sha256;

/// Bytes that repeat after 256: 3, 10, 17 and so on.
std::string Pattern(std::size_t size) {
  std::string bytes;
  for (std::size_t index = 0; index < size; ++index) bytes += static_cast<char>(index * 7 + 3);
  return bytes;
}

class Sha256OnEveryFunction : public ::testing::TestWithParam<Sha256::Implementation> {
 protected:
  static Sha256::Digest DigestOf(std::string_view bytes) {
    Sha256 hash(GetParam().function);
    hash.Update(bytes.data(), bytes.size());
    return hash.Finish();
  }
  static std::string Of(std::string_view bytes) { return Digits(DigestOf(bytes)); }

  /// The digest of the digests of the pattern in all these lengths.
  static std::string OfLengths(const std::vector<std::size_t>& lengths) {
    Sha256 all(GetParam().function);
    for (const std::size_t length : lengths) {
      const Sha256::Digest digest = DigestOf(Pattern(length));
      all.Update(digest.data(), digest.size());
    }
    return Digits(all.Finish());
  }
};

TEST_P(Sha256OnEveryFunction, GivesThePublishedDigests) {
  EXPECT_EQ(Of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(Of("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
               "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"),
            "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1");
  EXPECT_EQ(Of(std::string(1'000'000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST_P(Sha256OnEveryFunction, GivesTheDigestsOfLengthsUpTo300) {
  std::vector<std::size_t> lengths;
  for (std::size_t length = 0; length <= 300; ++length) lengths.push_back(length);
  EXPECT_EQ(OfLengths(lengths), "7d917fbd2cf49ddff9ad0a8706bba32d204e92e71d2e369c5a03d6af29278c9f");
}

TEST(Sha256Compute, GivesTheDigestsOfLengthsUpTo600InTwoRuns) {
  const std::string bytes = Pattern(600);
  const auto all = std::as_bytes(std::span(bytes));
  Sha256 of_all;
  for (std::size_t length = 0; length <= 600; ++length) {
    const std::size_t head = length % 11;
    const std::size_t cut = std::min(head, length);
    const auto digest = Sha256::Compute(all.first(cut), all.subspan(cut, length - cut));
    of_all.Update(digest.data(), digest.size());
  }
  EXPECT_EQ(Digits(of_all.Finish()),
            "448a2e99d04cb016dda62efeef7e56c480082770f464fc22b6675a3c509be2f6");
}

TEST_P(Sha256OnEveryFunction, GivesTheDigestsAroundBlockEnds) {
  std::vector<std::size_t> lengths;
  for (const std::size_t blocks : {1U, 2U, 3U, 4U, 5U, 8U, 16U, 64U, 65U, 1024U}) {
    for (const int off : {-9, -8, -1, 0, 1, 55, 56, 57}) {
      lengths.push_back(blocks * 64 + static_cast<std::size_t>(off));
    }
  }
  EXPECT_EQ(OfLengths(lengths), "0ea40878e7fd365c8b08c5d894abe0f79d50e2b20cdb2bb7bb4b69599e9f3bc1");
}

TEST_P(Sha256OnEveryFunction, DoesNotDependOnHowUpdatesCutTheBytes) {
  const std::string bytes = Pattern(300);
  const std::string whole = Of(bytes);
  for (std::size_t first = 0; first <= 130; ++first) {
    for (const std::size_t second : {0U, 1U, 63U, 64U, 65U, 128U}) {
      Sha256 hash(GetParam().function);
      hash.Update(bytes.data(), first);
      hash.Update(bytes.data() + first, second);
      hash.Update(bytes.data() + first + second, bytes.size() - first - second);
      ASSERT_EQ(Digits(hash.Finish()), whole) << first << " " << second;
    }
  }
  EXPECT_EQ(whole, "04773f8726c81cafcfa1a09a82664b98b00d2021031a1715bca1154f2dad3472");
}

TEST_P(Sha256OnEveryFunction, TakesBytesOneByOne) {
  Sha256 hash(GetParam().function);
  for (const char byte : Pattern(200)) hash.Update(&byte, 1);
  EXPECT_EQ(Digits(hash.Finish()),
            "2c7e18c942ef065b526a2d4e5546283749cd3ddfb51d8fc71f42717363685f46");
}

TEST_P(Sha256OnEveryFunction, TakesBytesAtAnyAddress) {
  const std::string bytes = Pattern(256);
  for (std::size_t offset = 0; offset < 20; ++offset) {
    const std::string moved = std::string(offset, '#') + bytes;
    ASSERT_EQ(Of(std::string_view(moved).substr(offset)),
              "d9c76fa34978cb9620dab8c3f46bbe075fddc145eb282b39009141f98d0cfe82");
  }
}

TEST_P(Sha256OnEveryFunction, MixesSeveralBlocksLikeOneAfterTheOther) {
  const std::string bytes = Pattern(64 * 9);
  const auto* blocks = static_cast<const std::uint8_t*>(static_cast<const void*>(bytes.data()));
  for (std::size_t count = 0; count <= 9; ++count) {
    Sha256::State together{1, 2, 3, 4, 5, 6, 7, 8};
    Sha256::State apart = together;
    GetParam().function(together, blocks, count);
    for (std::size_t block = 0; block < count; ++block) {
      TalUtils::Sha256BlocksPortable(apart, blocks + 64 * block, 1);
    }
    ASSERT_EQ(together, apart) << count;
  }
}

TEST_P(Sha256OnEveryFunction, TakesBuffersSegmentBySegment) {
  const std::string bytes = Pattern(300);
  TalUtils::Memory::Buffer buffer;
  for (const std::size_t cut : {0U, 10U, 64U, 150U}) {
    TalUtils::Memory::Buffer part;
    const std::size_t next = cut == 0 ? 10 : cut == 10 ? 64 : cut == 64 ? 150 : 300;
    part.Append(bytes.data() + cut, next - cut, 1);
    buffer.Append(part);
  }
  Sha256 hash(GetParam().function);
  hash.Update(buffer);
  EXPECT_EQ(Digits(hash.Finish()), Of(bytes));
}

INSTANTIATE_TEST_SUITE_P(OfThisMachine, Sha256OnEveryFunction,
                         ::testing::ValuesIn(Sha256::GetImplementations().begin(),
                                             Sha256::GetImplementations().end()),
                         [](const ::testing::TestParamInfo<Sha256::Implementation>& tested) {
                           std::string name;
                           for (const char letter : tested.param.name) {
                             if (letter != ' ') name += letter;
                           }
                           return name;
                         });

TEST(Sha256Implementations, LastIsThePortableOne) {
  const auto all = Sha256::GetImplementations();
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(all.back().name, "portable");
  EXPECT_EQ(all.back().function, &TalUtils::Sha256BlocksPortable);
}

TEST(Sha256Implementations, StayTheSame) {
  EXPECT_EQ(Sha256::GetImplementations().data(), Sha256::GetImplementations().data());
}

TEST(Sha256, UsesTheFirstImplementation) {
  Sha256 hash;
  hash.Update("abc", 3);
  EXPECT_EQ(Digits(hash.Finish()),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

}  // namespace
}  // namespace TalVcs::Testing
