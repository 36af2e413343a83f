#include <talvcs/foundation/internal/text_compare.h>

#include <talvcs/foundation/wide_char.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

using TalPlatform::CompareUnits;
using TalPlatform::FindMismatch;
using TalPlatform::WideChar;
using Units = std::basic_string<WideChar>;

int Sign(int order) { return order < 0 ? -1 : (order > 0 ? 1 : 0); }

int Compare(const Units& a, const Units& b) {
  return Sign(CompareUnits(a.data(), a.size(), b.data(), b.size()));
}

/// The plainest comparison, unit by unit.
int SlowCompare(const Units& a, const Units& b) {
  const auto unsigned_less = [](WideChar x, WideChar y) {
    return static_cast<std::uint16_t>(x) < static_cast<std::uint16_t>(y);
  };
  if (std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), unsigned_less))
    return -1;
  return a == b ? 0 : 1;
}

TEST(FindMismatch, GivesTheFirstDifferenceAtEachPlace) {
  for (std::size_t size = 0; size <= 20; ++size) {
    const Units a(size, WideChar{'x'});
    EXPECT_EQ(FindMismatch(a.data(), a.data(), size), size);
    for (std::size_t at = 0; at < size; ++at) {
      for (const WideChar other : {WideChar{'y'}, WideChar{0x178}, WideChar{0}}) {
        Units b = a;
        b[at] = other;
        b.back() = other;
        EXPECT_EQ(FindMismatch(a.data(), b.data(), size), at);
      }
    }
  }
}

TEST(FindMismatch, WorksOnBytes) {
  const std::string a = "0123456789abcdefghij";
  for (std::size_t at = 0; at < a.size(); ++at) {
    std::string b = a;
    b[at] = '\xFF';
    EXPECT_EQ(FindMismatch(a.data(), b.data(), a.size()), at);
  }
}

TEST(FindMismatch, WorksAtAnyAddress) {
  const Units text(32, WideChar{'q'});
  Units other = text;
  other[17] = WideChar{'r'};
  for (std::size_t start = 0; start < 9; ++start) {
    EXPECT_EQ(FindMismatch(text.data() + start, other.data() + start, 32 - start), 17 - start);
  }
}

TEST(CompareUnits, ReadsBytesAsUnsigned) {
  EXPECT_EQ(CompareUnits("a\x7F", 2, "a\x80", 2), -1);
  EXPECT_EQ(CompareUnits("\xFF", 1, "a", 1), 1);
}

TEST(CompareUnits, ComparesHighBytesBeforeLowOnes) {
  EXPECT_EQ(Compare(Units{0x00FF}, Units{0x0100}), -1);
  EXPECT_EQ(Compare(Units{0xFF00}, Units{0x00FF}), 1);
  EXPECT_EQ(Compare(Units{0x8000}, Units{0x7FFF}), 1);
}

TEST(CompareUnits, AgreesWithASlowComparison) {
  std::mt19937 random(1);
  const std::vector<WideChar> alphabet{0x0001, 0x0061, 0x0161, 0x7FFF, 0x8000, 0xD83D, 0xFFFF};
  const auto draw = [&] {
    Units units(random() % 12, WideChar{'a'});
    for (WideChar& unit : units) {
      if (random() % 4 == 0) unit = alphabet[random() % alphabet.size()];
    }
    return units;
  };
  for (int turn = 0; turn < 20'000; ++turn) {
    const Units a = draw();
    const Units b = draw();
    ASSERT_EQ(Compare(a, b), SlowCompare(a, b)) << turn;
  }
}

TEST(CompareUnits, PrefixStandsInFront) {
  for (std::size_t size = 0; size < 20; ++size) {
    EXPECT_EQ(Compare(Units(size, WideChar{'a'}), Units(size + 1, WideChar{'a'})), -1);
    EXPECT_EQ(Compare(Units(size + 1, WideChar{'a'}), Units(size, WideChar{'a'})), 1);
    EXPECT_EQ(Compare(Units(size, WideChar{'a'}), Units(size, WideChar{'a'})), 0);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
