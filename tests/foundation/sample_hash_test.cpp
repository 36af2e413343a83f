#include <talvcs/foundation/string.h>
#include <talvcs/objects/id.h>

#include <gtest/gtest.h>
#include <tests/support/text.h>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace TalVcs::Testing {
namespace {

using TalPlatform::SampleHash;

constexpr char kIdText[] = "8aec4e4876f854f688d0ebfc8f37598f38e5fd6903cccc850ca36591175aeb60";

/// Returns the hash, of which tables take as much as a size has bits.
std::uint64_t HashOf(TalStringViewT<WideChar> text) {
  const std::uint64_t hash = SampleHash(text);
  EXPECT_EQ(std::hash<TalStringT<WideChar>>()(TalStringT<WideChar>(text)),
            static_cast<std::size_t>(hash));
  return hash;
}

TEST(SampleHash, OfEmptyTextIsTheStartValue) {
  EXPECT_EQ(HashOf(TAL_WIDE("")), 0x42C52834B230EF45U);
  EXPECT_EQ(SampleHash(TalStringViewT<WideChar>()), 0x42C52834B230EF45U);
}

TEST(SampleHash, OfShortTextVisitsEveryUnit) {
  EXPECT_EQ(HashOf(TAL_WIDE("a")), 0x98ACBA0ED31EE418U);
  EXPECT_EQ(HashOf(TAL_WIDE("master")), 0xC748B7F064F54054U);
  EXPECT_EQ(HashOf(TAL_WIDE("ninechars")), 0x1F0E9CFEA677E3EBU);
}

TEST(SampleHash, OfTenUnitsVisitsEverySecond) {
  EXPECT_EQ(HashOf(TAL_WIDE("ten chars!")), 0x219B1EE80EC3B564U);
  EXPECT_EQ(HashOf(TAL_WIDE("tenXcXaXsX")), HashOf(TAL_WIDE("tYnYcYaYsY")));
  EXPECT_EQ(HashOf(TAL_WIDE("eleven char")), 0x7921D9EA8E1D33A0U);
}

TEST(SampleHash, CountsUnitsAtTheEdgesOfTheStep) {
  EXPECT_EQ(HashOf(TAL_WIDE("AAAAAAAAAAAAAAAAAAA")), 0x4C040C315B6F0BBDU);
  EXPECT_EQ(HashOf(TAL_WIDE("AAAAAAAAAAAAAAAAAAAA")), 0x24117A4FD4D84A3DU);
  EXPECT_EQ(HashOf(TAL_WIDE("abcdefghijklmnopqrstuvwxyz0123456789")), 0xDCEEF58AB9C0D195U);
}

TEST(SampleHash, TakesBothBytesOfAUnitLowByteFirst) {
  EXPECT_EQ(HashOf(TAL_WIDE("\u20AC")), 0x9991180ED3C5948FU);
  EXPECT_EQ(HashOf(TAL_WIDE("\U0001F600")), 0x9F7E5F37D161A0BAU);
  EXPECT_EQ(HashOf(TAL_WIDE("\uFFFF\u0100\u0001")), 0x9857D4A623EEAB11U);
}

TEST(SampleHash, OfIdIsThatOfItsText) {
  const TalStringT<WideChar> text = Wide(kIdText);
  EXPECT_EQ(std::hash<Id>()(Id(text)), static_cast<std::size_t>(0xE9487C803AEA4565U));
  EXPECT_EQ(HashOf(text), 0xE9487C803AEA4565U);
  EXPECT_EQ(std::hash<Id>()(Id()), static_cast<std::size_t>(0x42C52834B230EF45U));
}

}  // namespace
}  // namespace TalVcs::Testing
