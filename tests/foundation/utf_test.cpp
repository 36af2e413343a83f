#include <talvcs/foundation/internal/utf.h>

#include <gtest/gtest.h>
#include <talvcs/foundation/internal/sha256.h>
#include <tests/support/text.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Units = std::basic_string<WideChar>;

std::string Encode(const Units& units) {
  std::string bytes(units.size() * TalPlatform::kMaxUtf8BytesPerUnit, '\0');
  bytes.resize(TalPlatform::EncodeUtf8(units.data(), units.size(), bytes.data()));
  return bytes;
}

Units Decode(std::string_view bytes) {
  Units units(bytes.size(), WideChar());
  units.resize(TalPlatform::DecodeUtf8(bytes.data(), bytes.size(), units.data()));
  return units;
}

std::string Shown(std::string_view bytes) { return Ascii(TalStringViewT<WideChar>(Decode(bytes))); }

std::string HexDigest(TalUtils::Sha256& hash) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : hash.Finish()) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

void UpdateLittleEndian(TalUtils::Sha256& hash, const Units& units) {
  for (const WideChar unit : units) {
    const std::uint8_t bytes[] = {static_cast<std::uint8_t>(unit & 0xFF),
                                  static_cast<std::uint8_t>(unit >> 8)};
    hash.Update(bytes, 2);
  }
}

TEST(EncodeUtf8, WritesEachUnitAlone) {
  TalUtils::Sha256 hash;
  for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
    const std::string bytes = Encode(Units(1, static_cast<WideChar>(unit)));
    hash.Update(bytes.data(), bytes.size());
  }
  EXPECT_EQ(HexDigest(hash), "6ae0fff21c53cfa4aecb6e08854671dfb41433ba1839ff3878e86de65283bdf1");
}

TEST(EncodeUtf8, JoinsPairs) {
  TalUtils::Sha256 hash;
  for (std::uint32_t high = 0xD800; high < 0xDC00; high += 7) {
    for (std::uint32_t low = 0xDC00; low < 0xE000; low += 5) {
      const std::string bytes =
          Encode(Units{static_cast<WideChar>(high), static_cast<WideChar>(low)});
      hash.Update(bytes.data(), bytes.size());
    }
  }
  EXPECT_EQ(HexDigest(hash), "e9c59aa46c7122a591a51ce7cd6048649dca968a8d5227c1a0fa8454b77aed13");
}

TEST(EncodeUtf8, LeavesTornPairsApart) {
  EXPECT_EQ(Hex(Encode(Units{0xD83D})), "ED A0 BD");
  EXPECT_EQ(Hex(Encode(Units{0xDE00, 0xD83D})), "ED B8 80 ED A0 BD");
  EXPECT_EQ(Hex(Encode(Units{0xD83D, 0xD83D, 0xDE00})), "ED A0 BD F0 9F 98 80");
  EXPECT_EQ(Hex(Encode(Units{0xD83D, 'x'})), "ED A0 BD 78");
}

TEST(EncodeUtf8, KeepsZeros) { EXPECT_EQ(Hex(Encode(Units{'a', 0, 'b'})), "61 00 62"); }

TEST(EncodeUtf8, FindsOtherUnitsAtEachPlaceOfAsciiText) {
  for (std::size_t size = 0; size < 20; ++size) {
    for (std::size_t at = 0; at <= size; ++at) {
      Units units(size, WideChar{'a'});
      std::string expected(size, 'a');
      units.insert(at, 1, WideChar{0x20AC});
      expected.insert(at, "\xE2\x82\xAC");
      ASSERT_EQ(Encode(units), expected) << size << " " << at;
    }
  }
}

TEST(DecodeUtf8, ReplacesEachMaximalSubpartOnce) {
  EXPECT_EQ(Shown("\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64"),
            "a\\uFFFD\\uFFFD\\uFFFDb\\uFFFDc\\uFFFD\\uFFFDd");
}

TEST(DecodeUtf8, ReplacesEachByteOfLongerThanShortestForms) {
  EXPECT_EQ(Shown("\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41"),
            "\\uFFFD\\uFFFD\\uFFFD\\uFFFD\\uFFFD\\uFFFD\\uFFFD\\uFFFDA");
}

TEST(DecodeUtf8, ReplacesOtherIllFormedSequences) {
  EXPECT_EQ(Shown("\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42"),
            "\\uFFFD\\uFFFD\\uFFFD\\uFFFD\\uFFFDA\\uFFFD\\uFFFDB");
}

TEST(DecodeUtf8, ReplacesTruncatedSequencesOnceEach) {
  EXPECT_EQ(Shown("\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"), "\\uFFFD\\uFFFD\\uFFFD\\uFFFDA");
}

TEST(DecodeUtf8, TakesTheGeneralisedFormOfSurrogatesBack) {
  EXPECT_EQ(Shown("\xED\xA0\x80\xED\xBF\xBF"), "\\uD800\\uDFFF");
  EXPECT_EQ(Shown("\xED\xAF\x41"), "\\uFFFD\\uFFFDA");
  EXPECT_EQ(Shown("\xED\xA0"), "\\uFFFD\\uFFFD");
  EXPECT_EQ(Shown("\xED\x9F"), "\\uFFFD");
  EXPECT_EQ(Shown("\xED"), "\\uFFFD");
}

TEST(DecodeUtf8, TakesTheEdgesOfEachRange) {
  EXPECT_EQ(Shown("\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80"), "\\u007F\\u0080\\u07FF\\u0800");
  EXPECT_EQ(Shown("\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"), "\\uD7FF\\uE000\\uFFFF");
  EXPECT_EQ(Shown("\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"), "\\uD800\\uDC00\\uDBFF\\uDFFF");
}

// All sequences of four bytes out of those at which the rules change.
TEST(DecodeUtf8, TellsWhatAnIndependentDecoderTells) {
  constexpr std::array<unsigned char, 25> kBytes{
      0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF,
      0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF};
  TalUtils::Sha256 hash;
  for (std::size_t code = 0; code < kBytes.size() * kBytes.size() * kBytes.size() * kBytes.size();
       ++code) {
    std::string bytes(4, '\0');
    std::size_t rest = code;
    for (std::size_t index = 4; index-- > 0; rest /= kBytes.size()) {
      bytes[index] = static_cast<char>(kBytes[rest % kBytes.size()]);
    }
    const Units units = Decode(bytes);
    const auto count = static_cast<std::uint8_t>(units.size());
    hash.Update(&count, 1);
    UpdateLittleEndian(hash, units);
  }
  EXPECT_EQ(HexDigest(hash), "601f18d8110e24df7c9c49958fb3a604e4f95869a4e30133ccc1488f1428a10a");
}

TEST(DecodeUtf8, FindsOtherBytesAtEachPlaceOfAsciiText) {
  for (std::size_t size = 0; size < 30; ++size) {
    for (std::size_t at = 0; at <= size; ++at) {
      std::string bytes(size, 'a');
      Units expected(size, WideChar{'a'});
      bytes.insert(at, "\xF0\x9F\x98\x80\xFF");
      expected.insert(at, Units{0xD83D, 0xDE00, 0xFFFD});
      ASSERT_EQ(Decode(bytes), expected) << size << " " << at;
    }
  }
}

TEST(DecodeUtf8, GivesEveryTextBack) {
  Units all;
  for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
    const Units alone(1, static_cast<WideChar>(unit));
    ASSERT_EQ(Decode(Encode(alone)), alone) << unit;
    all += alone;
  }
  EXPECT_EQ(Decode(Encode(all)), all);
  const Units backwards(all.rbegin(), all.rend());
  EXPECT_EQ(Decode(Encode(backwards)), backwards);
}

TEST(IsExactUtf8, SaysWhetherDecodingAndEncodingGiveTheSameBytes) {
  constexpr std::string_view kBytes(
      "\0a\x80\x8F\x90\x9F\xA0\xB0\xBD\xBF\xC0\xC2\xE0\xE1\xED\xEF\xF0\xF4\xF5", 19);
  std::size_t exact = 0;
  for (std::size_t number = 0; number < 19 * 19 * 19 * 19; ++number) {
    std::string bytes;
    for (std::size_t rest = number; bytes.size() < 4; rest /= 19) bytes += kBytes[rest % 19];
    for (const std::string& text : {bytes, bytes + "\xED\xB0\x80", "\xED\xA0\x80" + bytes}) {
      const bool same = Encode(Decode(text)) == text;
      ASSERT_EQ(TalPlatform::IsExactUtf8(text.data(), text.size()), same) << Hex(text);
      if (same) ++exact;
    }
  }
  EXPECT_GT(exact, 100U);
}

TEST(IsExactUtf8, LooksAtEachPlaceOfAsciiText) {
  for (std::size_t size = 0; size < 30; ++size) {
    for (std::size_t at = 0; at <= size; ++at) {
      std::string bytes(size, 'a');
      bytes.insert(at, "\xF0\x9D\xA0\x80");  // U+1D800 isn't a surrogate
      EXPECT_TRUE(TalPlatform::IsExactUtf8(bytes.data(), bytes.size())) << size << " " << at;
      bytes.insert(at, "\xFF");
      EXPECT_FALSE(TalPlatform::IsExactUtf8(bytes.data(), bytes.size())) << size << " " << at;
    }
  }
}

}  // namespace
}  // namespace TalVcs::Testing
