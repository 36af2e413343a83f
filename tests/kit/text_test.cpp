#include <gtest/gtest.h>
#include <kit/text.h>
#include <tests/support/bytes.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

WideString Units(std::initializer_list<int> units) {
  std::basic_string<WideChar> text;
  for (const int unit : units) text.push_back(static_cast<WideChar>(unit));
  return WideString(WideView(text));
}

TEST(ToWide, DecodesAllLengths) {
  EXPECT_EQ(Ascii(ToWide("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80")),
            "a\\u00E4\\u20AC\\uD83D\\uDE00");
}

TEST(ToWide, KeepsZeros) { EXPECT_EQ(Ascii(ToWide(std::string_view("a\0b", 3))), "a\\u0000b"); }

TEST(ToWide, ReplacesBytesThatAreNotUtf8) { EXPECT_EQ(Ascii(ToWide("a\xFF")), "a\\uFFFD"); }

TEST(ToWideExactly, DecodesTextThatEncodesToTheSameBytes) {
  const std::optional<WideString> text = ToWideExactly("\xC3\xA4\xED\xA0\x80");
  ASSERT_TRUE(text);
  EXPECT_EQ(Ascii(*text), "\\u00E4\\uD800");
}

TEST(ToWideExactly, ReturnsNothingForOtherBytes) {
  EXPECT_FALSE(ToWideExactly("a\xFF"));
  EXPECT_FALSE(ToWideExactly("\xC0\x80"));                  // an overlong zero
  EXPECT_FALSE(ToWideExactly("\xED\xA0\xBD\xED\xB8\x80"));  // a pair written as two surrogates
  EXPECT_FALSE(ToWideExactly("\xE2\x82"));
}

TEST(ToUtf8, EncodesZerosAndLoneSurrogates) {
  EXPECT_EQ(Hex(ToUtf8(Units({'a', 0, 0xE4, 0}))), "61 00 C3 A4 00");
  EXPECT_EQ(Hex(ToUtf8(Units({0xD800}))), "ED A0 80");
  EXPECT_EQ(Hex(ToUtf8(Units({0xD83D, 0xDE00}))), "F0 9F 98 80");
  EXPECT_EQ(ToUtf8(WideView()), "");
}

TEST(ToUtf8, EveryCodeUnitComesBack) {
  for (int unit = 0; unit < 0x10000; ++unit) {
    const WideString text = Units({'x', unit, 'y'});
    ASSERT_EQ(Ascii(ToWide(ToUtf8(text))), Ascii(text));
  }
}

TEST(WideFromPath, ComesBack) {
  const std::filesystem::path path = std::filesystem::path("folder") / u8"f\u00E4";
  const std::optional<WideString> text = WideFromPath(path);
  ASSERT_TRUE(text);
  EXPECT_EQ(Ascii(*text), "folder/f\\u00E4");
  EXPECT_EQ(PathFromWide(*text), path);
}

#ifndef _WIN32
TEST(WideFromPath, RefusesNamesThatAreNotUtf8) {
  EXPECT_FALSE(WideFromPath(std::filesystem::path("folder") / "latin-\xE4"));
}
#endif

TEST(PathFromWide, ZeroIsRefused) { EXPECT_FALSE(PathFromWide(Units({'a', 0, 'b'}))); }

TEST(BlobFromBytes, HoldsTheBytes) {
  const std::string bytes("a\0b", 3);
  EXPECT_EQ(BytesFromBlob(BlobFromBytes(bytes)), bytes);
  EXPECT_EQ(BytesFromBlob(BlobFromBytes(std::as_bytes(std::span(bytes)))), bytes);
  EXPECT_EQ(BytesFromBlob(BlobFromBytes("")), "");
}

TEST(BytesFromBuffer, JoinsSegments) {
  EXPECT_EQ(BytesFromBuffer(BufferOfParts({"one", "two", "three"})), "onetwothree");
}

}  // namespace
}  // namespace TalVcs::Kit
