#include <gtest/gtest.h>
#include <kit/store/object_codec.h>
#include <tests/support/bytes.h>

#include <array>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

// The id is the SHA-256 of the bytes, and the frames of zstd are made of them by its own program.
const std::string kBase("blob 62\0The first line stays. The second one of them is about apples.\n",
                        70);
const std::string kNext("blob 61\0The first line stays. The second one of them is about pears.\n",
                        69);
constexpr std::string_view kBaseId =
    "65d568c7796816ae706facebd175fd2b1df0e0fdfcda165f6a73cff5e6c6ef62";
constexpr std::string_view kDifference = "2045AD000070626C6F6220363170656172732E0A01004CCE6004";
constexpr std::string_view kCompressed =
    "0058FD010052C40E15B03707709AEC345963885176539F015CD54D27511B41793B1F4D04CFF5AA86"
    "531661CDB00543C2AF93697972F99AA9D57C53A84E0610861E5C2700";

std::vector<std::byte> FromHex(std::string_view digits) {
  std::vector<std::byte> bytes;
  for (std::size_t index = 0; index + 1 < digits.size(); index += 2) {
    bytes.push_back(
        static_cast<std::byte>(std::stoi(std::string(digits.substr(index, 2)), nullptr, 16)));
  }
  return bytes;
}

std::string NoiseOf(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string noise;
  for (std::size_t index = 0; index < size; ++index) noise += static_cast<char>(random());
  return noise;
}

/// A text that compresses, of lines that differ.
std::string TextOf(int lines) {
  std::string text;
  for (int line = 0; line < lines; ++line) {
    text += "line " + std::to_string(line * 7919 % 10007) + " of the document\n";
  }
  return text;
}

EncodingBase BaseOf(const std::string& packed, std::uint32_t position = 1) {
  return {Id(Wide(kBaseId)), BufferOf(packed), position};
}

std::string Decoded(const std::vector<std::byte>& encoded, const Buffer* base = nullptr) {
  ObjectDecoder decoder;
  const Result<Buffer> packed = decoder.Decode(encoded, base);
  return packed ? Bytes(*packed) : std::string("<") + ToString(packed.error().code) + ">";
}

ObjectEncoding EncodingOf(const std::vector<std::byte>& encoded) {
  return ReadEncodedHeader(encoded).value().encoding;
}

/// Returns `encoding` where this build compresses, and else what it makes in its place.
ObjectEncoding IfCompressed(ObjectEncoding encoding) {
  return ObjectEncoder::CanCompress() ? encoding : ObjectEncoding::Plain;
}

TEST(ReadEncodedHeader, ReadsAPlainOne) {
  const EncodedHeader header = ReadEncodedHeader(FromHex("00AC0261")).value();
  EXPECT_EQ(header.encoding, ObjectEncoding::Plain);
  EXPECT_EQ(header.sizeBytes, 300U);
  EXPECT_EQ(header.headerBytes, 3U);
  EXPECT_EQ(header.position, 0U);
  EXPECT_EQ(header.base, Id());
}

TEST(ReadEncodedHeader, ReadsThatOfADifference) {
  const EncodedHeader header =
      ReadEncodedHeader(FromHex("0245" + std::string(kBaseId) + "07FF")).value();
  EXPECT_EQ(header.encoding, ObjectEncoding::Difference);
  EXPECT_EQ(header.sizeBytes, 69U);
  EXPECT_EQ(header.headerBytes, 35U);
  EXPECT_EQ(header.position, 7U);
  EXPECT_EQ(Ascii(header.base), kBaseId);
}

TEST(ReadEncodedHeader, RefusesWhatNoEncoderMakes) {
  const std::string id(kBaseId);
  for (const std::string& digits :
       std::vector<std::string>{"", "00", "0080", "008000", "00FFFFFFFFFFFFFFFFFF", "0245" + id,
                                "0245" + id.substr(2), "0245" + id + "00", "0245" + id + "40"}) {
    EXPECT_EQ(ReadEncodedHeader(FromHex(digits)).error().code, ErrorCode::Damaged) << digits;
  }
  EXPECT_EQ(ReadEncodedHeader(FromHex("030161")).error().code, ErrorCode::Unsupported);
}

TEST(ObjectCodec, PlainFormsAreTheHeaderAndTheBytes) {
  EXPECT_EQ(ObjectEncoder().Encode(BufferOf("blob 1\n")), FromHex("0007626C6F6220310A"));
  EXPECT_EQ(Decoded(FromHex("0007626C6F6220310A")), "blob 1\n");
  EXPECT_EQ(Decoded(FromHex("0000")), "");
}

TEST(ObjectDecoder, ReadsFramesOfAnotherProgram) {
  const Buffer base = BufferOf(kBase);
  const std::vector<std::byte> compressed = FromHex("0145" + std::string(kCompressed));
  const std::vector<std::byte> difference =
      FromHex("0245" + std::string(kBaseId) + "01" + std::string(kDifference));
  const bool reads = ObjectEncoder::CanCompress();
  EXPECT_EQ(Decoded(compressed), reads ? kNext : "<Unsupported>");
  EXPECT_EQ(Decoded(difference, &base), reads ? kNext : "<Unsupported>");
  EXPECT_EQ(Decoded(difference), reads ? "<NotFound>" : "<Unsupported>");
}

TEST(ObjectCodec, TextIsCompressedAndNoiseIsNot) {
  ObjectEncoder encoder;
  const std::string text = TextOf(1000);
  const std::string noise = NoiseOf(10000, 1);
  const std::vector<std::byte> of_text = encoder.Encode(BufferOf(text));
  const std::vector<std::byte> of_noise = encoder.Encode(BufferOf(noise));
  EXPECT_EQ(EncodingOf(of_text), IfCompressed(ObjectEncoding::Compressed));
  EXPECT_EQ(EncodingOf(of_noise), ObjectEncoding::Plain);
  EXPECT_EQ(Decoded(of_text), text);
  EXPECT_EQ(Decoded(of_noise), noise);
}

TEST(ObjectCodec, NoiseWithASmallEditIsADifference) {
  const std::string before = NoiseOf(10000, 1);
  std::string after = before;
  after.replace(5000, 170, NoiseOf(170, 2));
  const EncodingBase base = BaseOf(before, 4);
  const std::vector<std::byte> encoded = ObjectEncoder().Encode(BufferOf(after), &base);
  const EncodedHeader header = ReadEncodedHeader(encoded).value();
  ASSERT_EQ(header.encoding, IfCompressed(ObjectEncoding::Difference));
  EXPECT_EQ(Decoded(encoded, &base.packed), after);
  if (header.encoding != ObjectEncoding::Difference) return;
  EXPECT_LT(encoded.size(), 300U);
  EXPECT_EQ(header.position, 4U);
  EXPECT_EQ(Ascii(header.base), kBaseId);
}

TEST(ObjectCodec, DifferencesReachTheStartOfALargeBase) {
  const std::string before = NoiseOf(5 << 20, 1);
  const std::string after = before.substr(0, 1 << 20) + "inserted" + before.substr(1 << 20);
  const EncodingBase base = BaseOf(before);
  const std::vector<std::byte> encoded = ObjectEncoder().Encode(BufferOf(after), &base);
  EXPECT_EQ(EncodingOf(encoded), IfCompressed(ObjectEncoding::Difference));
  EXPECT_EQ(Decoded(encoded, &base.packed), after);
}

TEST(ObjectCodec, UnrelatedBaseIsNotUsed) {
  const EncodingBase base = BaseOf(NoiseOf(3000, 1));
  EXPECT_EQ(EncodingOf(ObjectEncoder().Encode(BufferOf(TextOf(100)), &base)),
            IfCompressed(ObjectEncoding::Compressed));
  EXPECT_EQ(EncodingOf(ObjectEncoder().Encode(BufferOf(NoiseOf(3000, 2)), &base)),
            ObjectEncoding::Plain);
}

TEST(ObjectCodec, BaseIsUsedForPositionsInAGroup) {
  const std::string noise = NoiseOf(3000, 1);
  for (const std::uint32_t position : {0U, kVersionsInGroup}) {
    const EncodingBase base = BaseOf(noise, position);
    EXPECT_EQ(EncodingOf(ObjectEncoder().Encode(BufferOf(noise), &base)), ObjectEncoding::Plain);
  }
  for (const std::uint32_t position : {1U, kVersionsInGroup - 1}) {
    const EncodingBase base = BaseOf(noise, position);
    EXPECT_EQ(EncodingOf(ObjectEncoder().Encode(BufferOf(noise), &base)),
              IfCompressed(ObjectEncoding::Difference));
  }
}

TEST(DepthOf, CountsTheBitsOfThePosition) {
  EXPECT_EQ(DepthOf(0), 0U);
  EXPECT_EQ(DepthOf(32), 1U);
  EXPECT_EQ(DepthOf(45), 4U);
  EXPECT_EQ(DepthOf(kVersionsInGroup - 1), kMostDifferences);
}

TEST(ObjectCodec, BaseWithoutAnObjectsIdIsNotUsed) {
  EncodingBase base = BaseOf(NoiseOf(3000, 1));
  base.id = Id();
  EXPECT_EQ(EncodingOf(ObjectEncoder().Encode(base.packed, &base)), ObjectEncoding::Plain);
}

TEST(ObjectCodec, BytesInSeveralSegmentsComeBack) {
  const std::string text = TextOf(100);
  const Buffer parts = BufferOfParts({text.substr(0, 700), text.substr(700)});
  const EncodingBase base = {Id(Wide(kBaseId)), parts, 1};
  const std::string longer = text + "one more line\n";
  const Buffer longer_parts = BufferOfParts({longer.substr(0, 9), longer.substr(9)});
  EXPECT_EQ(Decoded(ObjectEncoder().Encode(parts)), text);
  EXPECT_EQ(Decoded(ObjectEncoder().Encode(longer_parts, &base), &base.packed), longer);
}

TEST(ObjectCodec, ManyZerosComeBackAndKeepAShareOfTheirSize) {
  const std::string zeros(3 << 20, '\0');
  const std::vector<std::byte> encoded = ObjectEncoder().Encode(BufferOf(zeros));
  EXPECT_GE(encoded.size(), zeros.size() / 1024);
  EXPECT_EQ(Decoded(encoded), zeros);
  const EncodingBase base = BaseOf("blob 0");
  const std::vector<std::byte> difference = ObjectEncoder().Encode(BufferOf(zeros), &base);
  EXPECT_GE(difference.size(), zeros.size() / 1024);
  EXPECT_EQ(Decoded(difference, &base.packed), zeros);
}

TEST(ObjectCodec, EncoderAndDecoderWorkOnAfterTheyWereMoved) {
  ObjectEncoder encoder;
  ObjectDecoder decoder;
  const Buffer text = BufferOf(TextOf(50));
  const std::vector<std::byte> before = encoder.Encode(text);
  ObjectEncoder moved_encoder = std::move(encoder);
  ASSERT_TRUE(decoder.Decode(before).ok());
  ObjectDecoder moved_decoder = std::move(decoder);
  EXPECT_EQ(moved_encoder.Encode(text), before);
  EXPECT_EQ(Bytes(moved_decoder.Decode(before).value()), Bytes(text));
}

TEST(ObjectDecoder, RefusesSizesThatTheBytesCannotHave) {
  const std::string frame(kCompressed);
  for (const char* size : {"44", "46", "FFFFFFFFFFFFFFFF7F"}) {
    const std::string refused = Decoded(FromHex("01" + std::string(size) + frame));
    EXPECT_EQ(refused, ObjectEncoder::CanCompress() ? "<Damaged>" : "<Unsupported>") << size;
  }
  EXPECT_EQ(Decoded(FromHex("000361")), "<Damaged>");
  EXPECT_EQ(Decoded(FromHex("00016161")), "<Damaged>");
}

TEST(ObjectDecoder, ZerosMayFollowTheFrameAndOtherBytesMayNot) {
  const std::string encoded = "0145" + std::string(kCompressed);
  const bool reads = ObjectEncoder::CanCompress();
  EXPECT_EQ(Decoded(FromHex(encoded + "0000")), reads ? kNext : "<Unsupported>");
  EXPECT_EQ(Decoded(FromHex(encoded + "0001")), reads ? "<Damaged>" : "<Unsupported>");
}

// Every prefix is refused. A changed byte is refused or gives other bytes of the same size, which
// the id will not fit.
TEST(ObjectDecoder, DamageIsRefusedOrKeepsTheSize) {
  const Buffer base = BufferOf(kBase);
  for (const std::string& digits :
       {"0145" + std::string(kCompressed),
        "0245" + std::string(kBaseId) + "01" + std::string(kDifference)}) {
    const std::vector<std::byte> encoded = FromHex(digits);
    for (std::size_t size = 0; size < encoded.size(); ++size) {
      const std::string read = Decoded({encoded.begin(), encoded.begin() + size}, &base);
      EXPECT_EQ(read.substr(0, 1), "<") << size;
    }
    for (std::size_t index = 2; index < encoded.size(); ++index) {
      for (int bit = 0; bit < 8; ++bit) {
        std::vector<std::byte> damaged = encoded;
        damaged[index] ^= std::byte{1} << bit;
        const std::string read = Decoded(damaged, &base);
        EXPECT_TRUE(read.starts_with("<") || read.size() == kNext.size()) << index;
      }
    }
  }
}

}  // namespace
}  // namespace TalVcs::Kit
