#include <talvcs/foundation/string_conversion.h>

#include <gtest/gtest.h>
#include <tests/support/text.h>

#include <cstdint>
#include <limits>
#include <string>

namespace TalVcs::Testing {
namespace {

using TalUtils::String::Int64FromString;
using TalUtils::String::IntFromString;
using TalUtils::String::ToStringW;

constexpr int kMostInt = std::numeric_limits<int>::max();
constexpr int kLeastInt = std::numeric_limits<int>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

TEST(IntFromString, ReadsPlainNumbers) {
  EXPECT_EQ(IntFromString(Wide("0")), 0);
  EXPECT_EQ(IntFromString(Wide("42")), 42);
  EXPECT_EQ(IntFromString(Wide("007")), 7);
}

TEST(IntFromString, ReadsBlanksAndSign) {
  EXPECT_EQ(IntFromString(Wide("  -12")), -12);
  EXPECT_EQ(IntFromString(Wide("\t\n+5")), 5);
  EXPECT_EQ(IntFromString(Wide("- 5")), 0);
  EXPECT_EQ(IntFromString(Wide("+-5")), 0);
  EXPECT_EQ(IntFromString(Wide("--5")), 0);
}

TEST(IntFromString, StopsAtTheFirstOtherCharacter) {
  EXPECT_EQ(IntFromString(Wide("12abc")), 12);
  EXPECT_EQ(IntFromString(Wide("1 2")), 1);
  EXPECT_EQ(IntFromString(Wide("0x10")), 0);
  EXPECT_EQ(IntFromString(Wide("3.7")), 3);
}

TEST(IntFromString, NoDigitsGiveZero) {
  EXPECT_EQ(IntFromString(Wide("")), 0);
  EXPECT_EQ(IntFromString(Wide("abc")), 0);
  EXPECT_EQ(IntFromString(Wide("-")), 0);
  EXPECT_EQ(IntFromString(Wide("   ")), 0);
}

TEST(IntFromString, OnlyAsciiDigitsCount) {
  EXPECT_EQ(IntFromString(TAL_WIDE("\uFF11\uFF12")), 0);
  EXPECT_EQ(IntFromString(TAL_WIDE("1\u0662")), 1);
}

TEST(IntFromString, StopsAtZeroCharacterInside) {
  EXPECT_EQ(IntFromString(TalStringViewT<WideChar>(TAL_WIDE("1\0002"), 3)), 1);
}

TEST(IntFromString, LimitsAreReadAndKept) {
  EXPECT_EQ(IntFromString(Wide("2147483646")), 2147483646);
  EXPECT_EQ(IntFromString(Wide("2147483647")), kMostInt);
  EXPECT_EQ(IntFromString(Wide("2147483648")), kMostInt);
  EXPECT_EQ(IntFromString(Wide("99999999999999999999999")), kMostInt);
  EXPECT_EQ(IntFromString(Wide("-2147483647")), -2147483647);
  EXPECT_EQ(IntFromString(Wide("-2147483648")), kLeastInt);
  EXPECT_EQ(IntFromString(Wide("-2147483649")), kLeastInt);
  EXPECT_EQ(IntFromString(Wide("-99999999999999999999999")), kLeastInt);
}

TEST(Int64FromString, LimitsAreReadAndKept) {
  EXPECT_EQ(Int64FromString(Wide("9223372036854775806")), kMost - 1);
  EXPECT_EQ(Int64FromString(Wide("9223372036854775807")), kMost);
  EXPECT_EQ(Int64FromString(Wide("9223372036854775808")), kMost);
  EXPECT_EQ(Int64FromString(Wide("92233720368547758070")), kMost);
  EXPECT_EQ(Int64FromString(Wide("-9223372036854775807")), -kMost);
  EXPECT_EQ(Int64FromString(Wide("-9223372036854775808")), kLeast);
  EXPECT_EQ(Int64FromString(Wide("-9223372036854775809")), kLeast);
}

TEST(Int64FromString, ReadsLikeIntFromString) {
  EXPECT_EQ(Int64FromString(Wide(" -4294967297 ")), -4294967297);
  EXPECT_EQ(Int64FromString(Wide("2147483648")), 2147483648);
  EXPECT_EQ(Int64FromString(Wide("x1")), 0);
}

TEST(ToStringW, DecodesUtf8) {
  EXPECT_EQ(Ascii(ToStringW(TalStringT<char>("Andr\xC3\xA9"))), "Andr\\u00E9");
  EXPECT_EQ(Ascii(ToStringW(TalStringT<char>("\xFF"))), "\\uFFFD");
  EXPECT_TRUE(ToStringW(TalStringT<char>()).IsEmpty());
}

}  // namespace
}  // namespace TalVcs::Testing
