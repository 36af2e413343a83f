#include <talvcs/foundation/internal/utf.h>

#include <cstdint>
#include <cstring>

namespace TalPlatform {

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr std::uint64_t kHighBitOfBytes = 0x8080808080808080;
constexpr std::uint64_t kNonAsciiBitsOfUnits = 0xFF80FF80FF80FF80;

std::uint64_t LoadWord(const void* from) noexcept {
  std::uint64_t word;
  std::memcpy(&word, from, sizeof(word));
  return word;
}

bool IsHighSurrogate(std::uint32_t unit) noexcept { return (unit & 0xFFFFFC00) == 0xD800; }
bool IsLowSurrogate(std::uint32_t unit) noexcept { return (unit & 0xFFFFFC00) == 0xDC00; }
bool IsContinuation(std::uint8_t byte) noexcept { return (byte & 0xC0) == 0x80; }

char* PutCodePoint(std::uint32_t code, char* out) noexcept {
  if (code < 0x80) {
    *out++ = static_cast<char>(code);
  } else if (code < 0x800) {
    *out++ = static_cast<char>(0xC0 | (code >> 6));
    *out++ = static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    *out++ = static_cast<char>(0xE0 | (code >> 12));
    *out++ = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (code & 0x3F));
  } else {
    *out++ = static_cast<char>(0xF0 | (code >> 18));
    *out++ = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    *out++ = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (code & 0x3F));
  }
  return out;
}

/// What one step of the decoder took: a code point and the bytes that it used up.
struct Decoded {
  std::uint32_t code;
  std::size_t used;
};

/// The range that a lead byte leaves to its first continuation byte, and how many follow.
struct LeadByte {
  std::uint8_t low;
  std::uint8_t high;
  int following;
};

LeadByte ClassifyLead(std::uint8_t lead) noexcept {
  if (lead >= 0xC2 && lead <= 0xDF) return {0x80, 0xBF, 1};
  if (lead == 0xE0) return {0xA0, 0xBF, 2};
  if (lead >= 0xE1 && lead <= 0xEF) return {0x80, 0xBF, 2};
  if (lead == 0xF0) return {0x90, 0xBF, 3};
  if (lead >= 0xF1 && lead <= 0xF3) return {0x80, 0xBF, 3};
  if (lead == 0xF4) return {0x80, 0x8F, 3};
  return {0, 0, 0};
}

/// Decodes one code point of more than one byte. A sequence that breaks off gives one replacement
/// for the part that could have begun a character.
Decoded DecodeOne(const std::uint8_t* text, std::size_t count) noexcept {
  const std::uint8_t lead = text[0];
  const LeadByte shape = ClassifyLead(lead);
  if (shape.following == 0) return {kReplacement, 1};
  if (count < 2 || text[1] < shape.low || text[1] > shape.high) return {kReplacement, 1};
  std::uint32_t code = lead & (0x3F >> shape.following);
  code = (code << 6) | (text[1] & 0x3F);
  for (int index = 2; index <= shape.following; ++index) {
    const auto at = static_cast<std::size_t>(index);
    if (at >= count || !IsContinuation(text[at])) {
      // The first two bytes of a surrogate's form begin no character, so each is one subpart.
      const bool surrogate = lead == 0xED && text[1] >= 0xA0;
      return {kReplacement, surrogate ? 1 : at};
    }
    code = (code << 6) | (text[at] & 0x3F);
  }
  return {code, static_cast<std::size_t>(shape.following) + 1};
}

Decoded DecodeAt(const char* text, std::size_t count) noexcept {
  std::uint8_t ahead[4] = {};
  const std::size_t available = count < sizeof(ahead) ? count : sizeof(ahead);
  std::memcpy(ahead, text, available);
  return DecodeOne(ahead, available);
}

/// Returns how many bytes of ASCII there are, in whole words, at the beginning of `text`.
std::size_t SkipAsciiWords(const char* text, std::size_t count) noexcept {
  std::size_t index = 0;
  while (index + 8 <= count && (LoadWord(text + index) & kHighBitOfBytes) == 0) index += 8;
  return index;
}

}  // namespace

char* EncodeUtf8UpToZero(const WideChar* text, std::size_t count, char* out) noexcept {
  const std::size_t size = EncodeUtf8(text, count, out);
  void* const zero = size == 0 ? nullptr : std::memchr(out, 0, size);
  return zero == nullptr ? out + size : static_cast<char*>(zero);
}

std::size_t EncodeUtf8(const WideChar* text, std::size_t count, char* out) noexcept {
  char* const start = out;
  std::size_t index = 0;
  while (index < count) {
    // Compilers narrow eight units in one step. An id has 64 of them.
    while (index + 8 <= count &&
           ((LoadWord(text + index) | LoadWord(text + index + 4)) & kNonAsciiBitsOfUnits) == 0) {
      for (std::size_t step = 0; step < 8; ++step)
        out[step] = static_cast<char>(text[index + step]);
      out += 8;
      index += 8;
    }
    while (index + 4 <= count && (LoadWord(text + index) & kNonAsciiBitsOfUnits) == 0) {
      for (std::size_t step = 0; step < 4; ++step)
        out[step] = static_cast<char>(text[index + step]);
      out += 4;
      index += 4;
    }
    if (index == count) break;
    std::uint32_t code = static_cast<std::uint16_t>(text[index++]);
    if (IsHighSurrogate(code) && index < count &&
        IsLowSurrogate(static_cast<std::uint16_t>(text[index]))) {
      const std::uint32_t low = static_cast<std::uint16_t>(text[index++]);
      code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
    }
    out = PutCodePoint(code, out);
  }
  return static_cast<std::size_t>(out - start);
}

std::size_t DecodeUtf8(const char* text, std::size_t count, WideChar* out) noexcept {
  WideChar* const start = out;
  std::size_t index = 0;
  while (index < count) {
    while (index + 8 <= count && (LoadWord(text + index) & kHighBitOfBytes) == 0) {
      for (std::size_t step = 0; step < 8; ++step) {
        out[step] = static_cast<WideChar>(text[index + step]);
      }
      out += 8;
      index += 8;
    }
    if (index == count) break;
    const auto byte = static_cast<std::uint8_t>(text[index]);
    if (byte < 0x80) {
      *out++ = static_cast<WideChar>(byte);
      ++index;
      continue;
    }
    const Decoded decoded = DecodeAt(text + index, count - index);
    index += decoded.used;
    if (decoded.code < 0x10000) {
      *out++ = static_cast<WideChar>(decoded.code);
    } else {
      *out++ = static_cast<WideChar>(0xD800 + ((decoded.code - 0x10000) >> 10));
      *out++ = static_cast<WideChar>(0xDC00 + ((decoded.code - 0x10000) & 0x3FF));
    }
  }
  return static_cast<std::size_t>(out - start);
}

bool IsExactUtf8(const char* text, std::size_t count) noexcept {
  constexpr std::uint8_t kLeadOfReplacement = 0xEF;
  bool after_high = false;
  std::size_t index = SkipAsciiWords(text, count);
  while (index < count) {
    const auto byte = static_cast<std::uint8_t>(text[index]);
    if (byte < 0x80) {
      after_high = false;
      ++index;
      index += SkipAsciiWords(text + index, count - index);
      continue;
    }
    const Decoded decoded = DecodeAt(text + index, count - index);
    if (decoded.code == kReplacement && byte != kLeadOfReplacement) return false;
    if (decoded.code == kReplacement && decoded.used != 3) return false;
    if (after_high && IsLowSurrogate(decoded.code)) return false;
    after_high = IsHighSurrogate(decoded.code);
    index += decoded.used;
  }
  return true;
}

}  // namespace TalPlatform
