#include <talvcs/foundation/data_encoding.h>

#include <gtest/gtest.h>
#include <tests/support/text.h>

#include <string>

namespace TalVcs::Testing {
namespace {

using TalUtils::DataEncoding::HexEncode;
using TalUtils::DataEncoding::Utf8Encode;

TEST(HexEncode, GivesTwoLowerCaseDigitsAByteHighDigitFirst) {
  EXPECT_EQ(Ascii(HexEncode("\x01\x23\xAB\xCD\xEF\x00\xFF", 7)), "0123abcdef00ff");
}

TEST(HexEncode, OfNoBytesIsEmpty) {
  EXPECT_TRUE(HexEncode("", 0).IsEmpty());
  EXPECT_TRUE(HexEncode(nullptr, 0).IsEmpty());
}

TEST(HexEncode, TakesMoreBytesThanADigest) {
  for (const std::size_t count : {31U, 32U, 33U, 100U}) {
    std::string expected;
    for (std::size_t index = 0; index < count; ++index) expected += "5a";
    EXPECT_EQ(Ascii(HexEncode(std::string(count, '\x5A').data(), count)), expected);
  }
}

TEST(Utf8Encode, WritesEachRangeInItsLength) {
  EXPECT_EQ(Hex(Bytes(Utf8Encode(TAL_WIDE("A\u007F")))), "41 7F");
  EXPECT_EQ(Hex(Bytes(Utf8Encode(TAL_WIDE("\u0080\u07FF")))), "C2 80 DF BF");
  EXPECT_EQ(Hex(Bytes(Utf8Encode(TAL_WIDE("\u0800\uFFFF")))), "E0 A0 80 EF BF BF");
  EXPECT_EQ(Hex(Bytes(Utf8Encode(TAL_WIDE("\U00010000\U0010FFFF")))), "F0 90 80 80 F4 8F BF BF");
}

TEST(Utf8Encode, EndsAtTheTerminator) {
  EXPECT_EQ(Bytes(Utf8Encode(TAL_WIDE("ab\0cd"))), "ab");
  EXPECT_TRUE(Utf8Encode(TAL_WIDE("")).IsEmpty());
  EXPECT_TRUE(Utf8Encode(nullptr).IsEmpty());
}

TEST(Utf8Encode, WritesLoneSurrogatesInTheirGeneralisedForm) {
  EXPECT_EQ(Hex(Bytes(Utf8Encode(TAL_WIDE("\xD800")))), "ED A0 80");
  EXPECT_EQ(Hex(Bytes(Utf8Encode(TAL_WIDE("\xDFFFx")))), "ED BF BF 78");
  // A low surrogate before a high one makes no pair.
  EXPECT_EQ(Hex(Bytes(Utf8Encode(TAL_WIDE("\xDC00\xD800")))), "ED B0 80 ED A0 80");
}

TEST(Utf8Encode, LongTextKeepsItsForm) {
  std::basic_string<WideChar> units;
  std::string expected;
  for (int turn = 0; turn < 500; ++turn) {
    units += TAL_WIDE("a\u20AC");
    expected += "a\xE2\x82\xAC";
  }
  EXPECT_EQ(Bytes(Utf8Encode(units.c_str())), expected);
}

}  // namespace
}  // namespace TalVcs::Testing
