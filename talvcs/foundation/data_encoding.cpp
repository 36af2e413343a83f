#include <talvcs/foundation/data_encoding.h>

#include <talvcs/foundation/internal/utf.h>

#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace TalUtils::DataEncoding {

using TalPlatform::TalStringT;
using TalPlatform::TalStringViewT;
using TalPlatform::WideChar;

namespace {

constexpr std::size_t kDigestBytes = 32;
constexpr std::size_t kStackBytes = 768;
constexpr std::size_t kMostCharacters = std::numeric_limits<int>::max();

struct DigitPair {
  WideChar digits[2];
};

// Both digits of each byte: looked up one by one they took a tenth of the time of a small id.
constexpr std::array<DigitPair, 256> kDigitPairs = [] {
  constexpr char kDigits[] = "0123456789abcdef";
  std::array<DigitPair, 256> pairs{};
  for (std::size_t byte = 0; byte < pairs.size(); ++byte) {
    pairs[byte] = {
        {static_cast<WideChar>(kDigits[byte >> 4]), static_cast<WideChar>(kDigits[byte & 0xF])}};
  }
  return pairs;
}();

void PutHexDigits(const unsigned char* bytes, std::size_t count, WideChar* out) noexcept {
  for (std::size_t index = 0; index < count; ++index) {
    std::memcpy(out + 2 * index, &kDigitPairs[bytes[index]], sizeof(DigitPair));
  }
}

}  // namespace

TalStringT<WideChar> HexEncode(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  if (size <= kDigestBytes) {
    WideChar digits[2 * kDigestBytes];
    PutHexDigits(bytes, size, digits);
    return TalStringT<WideChar>(TalStringViewT<WideChar>(digits, static_cast<int>(2 * size)));
  }
  if (size > kMostCharacters / 2) throw std::length_error("too many bytes for one text");
  std::basic_string<WideChar> digits(2 * size, WideChar());
  PutHexDigits(bytes, size, digits.data());
  return TalStringT<WideChar>(TalStringViewT<WideChar>(digits));
}

TalStringT<char> Utf8Encode(const WideChar* text) {
  const auto units = static_cast<std::size_t>(TalStringViewT<WideChar>(text).length);
  const std::size_t most = units * TalPlatform::kMaxUtf8BytesPerUnit;
  if (most <= kStackBytes) {
    char bytes[kStackBytes];
    const std::size_t written = TalPlatform::EncodeUtf8(text, units, bytes);
    return TalStringT<char>(bytes, static_cast<int>(written));
  }
  std::string bytes(most, '\0');
  const std::size_t written = TalPlatform::EncodeUtf8(text, units, bytes.data());
  if (written > kMostCharacters) TalPlatform::ThrowTextTooLong();
  return TalStringT<char>(bytes.data(), static_cast<int>(written));
}

}  // namespace TalUtils::DataEncoding
