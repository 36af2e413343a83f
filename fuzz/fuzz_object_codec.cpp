// Encodes and decodes objects, alone and along their bases.
//
// input := "b" base 0xFF encoded          decodes any bytes
//        | "e" position base 0xFF packed  encodes and decodes; position: 1 byte
//        | "c" form (0xFF form)*          decodes each form; the base that a form names is the one
//                                         whose number is the last digit of the id

#include "input.h"
#include "target.h"

#include <kit/store/encoded_objects.h>
#include <kit/text.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;
using Encoded = std::vector<std::byte>;

Encoded BytesOf(const std::string& text) {
  const auto* first = reinterpret_cast<const std::byte*>(text.data());
  return Encoded(first, first + text.size());
}

Buffer BufferOf(const std::string& text) {
  Buffer buffer;
  buffer.Append(text.data(), text.size());
  return buffer;
}

Id IdOfDigit(std::size_t digit) {
  return Id(Kit::ToWide(std::string(63, '0') + "0123456789abcdef"[digit]));
}

// One for all inputs, because making one takes longer than an input. It shows as well that no input
// disturbs the next.
Kit::ObjectEncoder& Encoder() {
  static Kit::ObjectEncoder encoder;
  return encoder;
}
Kit::ObjectDecoder& Decoder() {
  static Kit::ObjectDecoder decoder;
  return decoder;
}

/// What is encoded is decoded again.
void Encode(const Buffer& packed, const Kit::EncodingBase* base) {
  const Encoded encoded = Encoder().Encode(packed, base);
  const Kit::Result<Kit::EncodedHeader> header = Kit::ReadEncodedHeader(encoded);
  Require(header.ok() && header->sizeBytes == packed.GetSize() &&
              header->headerBytes <= Kit::kMostEncodedHeaderBytes,
          "an encoded form has a header");
  Require(header->encoding == Kit::ObjectEncoding::Difference
              ? base != nullptr && header->base == base->id && header->position == base->position
              : header->position == 0,
          "a difference has its base, and other forms have none");
  Require(encoded.size() <= packed.GetSize() + header->headerBytes, "nothing gets longer");
  const Kit::Result<Buffer> decoded =
      Decoder().Decode(encoded, base != nullptr ? &base->packed : nullptr);
  Require(decoded.ok() && Kit::BytesFromBuffer(*decoded) == Kit::BytesFromBuffer(packed),
          "what was encoded is decoded");
}

/// Any bytes are decoded or refused, and leave the decoder as it was.
void Decode(const Encoded& encoded, const Buffer& base) {
  const Kit::Result<Buffer> decoded = Decoder().Decode(encoded, &base);
  if (decoded) {
    Require(decoded->GetSize() == Kit::ReadEncodedHeader(encoded)->sizeBytes,
            "the size is that of the header");
    Require(decoded->GetSize() <= 1024 * encoded.size() + base.GetSize(), "sizes are bounded");
    Encode(*decoded, nullptr);
  }
  const Buffer text = BufferOf(std::string(200, 'a'));
  const Kit::Result<Buffer> again = Decoder().Decode(Encoder().Encode(text));
  Require(again.ok() && Kit::BytesFromBuffer(*again) == std::string(200, 'a'),
          "a decoder works on after any bytes");
}

/// Forms that name each other are decoded in a bounded number of reads, or refused.
void DecodeAlongBases(Fuzz::Input& input) {
  std::vector<Encoded> forms;
  while (!input.IsAtEnd() && forms.size() < 16) forms.push_back(BytesOf(input.Part()));
  std::uint32_t reads = 0;
  const Kit::ReadEncoded read = [&](const Id& id) -> Kit::Result<Encoded> {
    ++reads;
    const std::string digits = Kit::ToUtf8(id.View());
    const std::size_t number = std::string("0123456789abcdef").find(digits.back());
    if (number < forms.size()) return forms[number];
    Kit::Error error;
    error.code = Kit::ErrorCode::NotFound;
    return error;
  };
  static Kit::EncodedObjects objects(4096);
  for (std::size_t number = 0; number < forms.size(); ++number) {
    reads = 0;
    static_cast<void>(objects.Decode(IdOfDigit(number), forms[number], read).ok());
    Require(reads <= Kit::kMostDifferences, "few bases are read");
    reads = 0;
    const Kit::StoredObject next{IdOfDigit(15), BufferOf(std::string(300, 'n')), IdOfDigit(number)};
    const Kit::Result<Buffer> decoded = objects.Decode(next.id, objects.Encode(next, read), read);
    Require(decoded.ok() && Kit::BytesFromBuffer(*decoded) == std::string(300, 'n'),
            "no previous version hinders an encoding");
    Require(reads <= 3 * (Kit::kMostDifferences + 1), "few previous versions are read");
    objects.Clear();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  switch (input.Byte()) {
    case 'b': {
      const Buffer base = BufferOf(input.Part());
      Decode(BytesOf(input.Rest()), base);
      break;
    }
    case 'e': {
      Kit::EncodingBase base{IdOfDigit(0), Buffer(), input.Byte()};
      base.packed = BufferOf(input.Part());
      const Buffer packed = BufferOf(input.Rest());
      Encode(packed, nullptr);
      Encode(packed, &base);
      break;
    }
    case 'c':
      DecodeAlongBases(input);
      break;
    default:
      break;
  }
  return 0;
}
