// Decodes the input as UTF-8 and encodes it as UTF-16, against the model's way, which asks for each
// prefix of a character whether some code point can still begin so.

#include "target.h"

#include <kit/text.h>
#include <talvcs/foundation/data_encoding.h>
#include <talvcs/foundation/string_conversion.h>
#include <tests/model/driver/twins.h>

#include <string>
#include <string_view>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using ModelTest::FromLib;
using ModelTest::LibText;
using ModelTest::ToLib;

void Decode(const std::string& bytes) {
  const Model::Text expected = Model::DecodeUtf8(bytes);
  const TalStringT<char> narrow(bytes.data(), static_cast<int>(bytes.size()));
  ModelTest::ExpectSame("decoded", FromLib(TalStringT<WideChar>(narrow)), expected);
  ModelTest::ExpectSame("ToStringW", FromLib(TalUtils::String::ToStringW(narrow)), expected);
  ModelTest::ExpectSame("ToWide", FromLib(Kit::ToWide(bytes)), expected);

  const std::optional<Kit::WideString> exactly = Kit::ToWideExactly(bytes);
  ModelTest::ExpectSameBool("ToWideExactly", exactly, Model::EncodeUtf8(expected) == bytes);
  if (exactly) ModelTest::ExpectSame("exactly", FromLib(*exactly), expected);
}

void Encode(const Model::Text& units) {
  const std::string expected = Model::EncodeUtf8(units);
  const LibText wide = ToLib(units);
  ModelTest::ExpectSame("ToUtf8", Kit::ToUtf8(wide), expected);
  const TalStringT<char> encoded = TalUtils::DataEncoding::Utf8Encode(wide.GetString());
  const std::string upToZero = Model::EncodeUtf8(units.substr(0, units.find(u'\0')));
  ModelTest::ExpectSame(
      "Utf8Encode", std::string(encoded.GetString(), static_cast<std::size_t>(encoded.GetLength())),
      upToZero);
  ModelTest::ExpectSame("there and back", FromLib(Kit::ToWide(expected)), units);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(data, data + size);
  Decode(bytes);
  Model::Text units;
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    units += static_cast<char16_t>(data[i] | data[i + 1] << 8);
  }
  Encode(units);
  Encode(Model::DecodeUtf8(bytes));
  return 0;
}
