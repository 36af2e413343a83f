#include "text.h"

#include <algorithm>
#include <array>
#include <bit>

namespace Model {
namespace {

constexpr std::array<std::uint32_t, 64> kRoundConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

using State = std::array<std::uint32_t, 8>;

void AddBlock(State& state, std::string_view block) {
  std::array<std::uint32_t, 64> w{};
  for (std::size_t i = 0; i < 64; ++i) {
    w[i / 4] = w[i / 4] << 8 | static_cast<unsigned char>(block[i]);
  }
  for (std::size_t i = 16; i < 64; ++i) {
    const auto s0 = std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
    const auto s1 = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
    w[i] = w[i - 16] + s0 + w[i - 7] + s1;
  }
  auto [a, b, c, d, e, f, g, h] = state;
  for (std::size_t i = 0; i < 64; ++i) {
    const auto s1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
    const auto t1 = h + s1 + ((e & f) ^ (~e & g)) + kRoundConstants[i] + w[i];
    const auto s0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
    const auto t2 = s0 + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + t1;
    d = c;
    c = b;
    b = a;
    a = t1 + t2;
  }
  const State change = {a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < 8; ++i) state[i] += change[i];
}

bool IsHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool IsLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

void AppendUtf8(Bytes& bytes, char32_t c) {
  const auto more = [&](int shift) { bytes += static_cast<char>(0x80 | ((c >> shift) & 0x3F)); };
  if (c < 0x80) {
    bytes += static_cast<char>(c);
  } else if (c < 0x800) {
    bytes += static_cast<char>(0xC0 | c >> 6);
    more(0);
  } else if (c < 0x10000) {
    bytes += static_cast<char>(0xE0 | c >> 12);
    more(6);
    more(0);
  } else {
    bytes += static_cast<char>(0xF0 | c >> 18);
    more(12);
    more(6);
    more(0);
  }
}

// How many bytes the form of a character has that begins with `lead`; 1 if there is none.
std::size_t SizeByLead(unsigned lead) {
  if (lead < 0xC0 || lead >= 0xF8) return 1;
  return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

// True if a character of `size` bytes, the first `taken` of which are known, can be one between
// `lowest` and what the unknown bits make of it.
bool BeginsCharacter(char32_t lowest, std::size_t size, std::size_t taken) {
  constexpr std::array<char32_t, 5> limits = {0, 0x80, 0x800, 0x10000, 0x110000};
  const char32_t highest = lowest | ((1U << 6 * (size - taken)) - 1);
  return highest >= limits[size - 1] && lowest < limits[size];
}

void AppendCodePoint(Text& text, char32_t c) {
  if (c >= 0x10000) {
    text += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
    text += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  } else {
    text += static_cast<char16_t>(c);
  }
}

}  // namespace

std::string Sha256Hex(std::string_view data) {
  State state = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::string message(data);
  message += '\x80';
  while (message.size() % 64 != 56) message += '\0';
  const std::uint64_t bits = std::uint64_t{data.size()} * 8;
  for (int shift = 56; shift >= 0; shift -= 8) message += static_cast<char>(bits >> shift);
  for (std::size_t i = 0; i < message.size(); i += 64) {
    AddBlock(state, std::string_view(message).substr(i, 64));
  }
  std::string hex;
  for (const std::uint32_t word : state) {
    for (int shift = 28; shift >= 0; shift -= 4) hex += "0123456789abcdef"[word >> shift & 15];
  }
  return hex;
}

Bytes EncodeUtf8(const Text& text) {
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (IsHighSurrogate(c) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00U);
    }
    AppendUtf8(bytes, c);
  }
  return bytes;
}

Bytes EncodeTerminated(const Text& text) { return EncodeUtf8(text.substr(0, text.find(u'\0'))); }

Text DecodeUtf8(const Bytes& bytes) {
  Text text;
  for (std::size_t i = 0; i < bytes.size();) {
    const auto lead = static_cast<unsigned char>(bytes[i]);
    const std::size_t size = SizeByLead(lead);
    // The code points that the bytes so far leave possible.
    char32_t lowest = size == 1 ? lead : lead & (0x7FU >> size);
    lowest <<= 6 * (size - 1);
    std::size_t taken = 1;
    bool possible = BeginsCharacter(lowest, size, taken);
    while (possible && taken < size && i + taken < bytes.size()) {
      const auto next = static_cast<unsigned char>(bytes[i + taken]);
      const char32_t further = lowest | (next & 0x3FU) << 6 * (size - taken - 1);
      if ((next & 0xC0) != 0x80 || !BeginsCharacter(further, size, taken + 1)) break;
      lowest = further;
      ++taken;
    }
    // The form of a surrogate counts as a whole or not at all.
    const bool surrogate = lowest >= 0xD800 && lowest < 0xE000;
    if (taken < size && surrogate && taken > 1) taken = 1;
    possible = possible && taken == size;
    AppendCodePoint(text, possible ? lowest : 0xFFFD);
    i += taken;
  }
  return text;
}

Id ReadId(const Bytes& bytes) { return EncodeUtf8(DecodeUtf8(bytes)); }

Components SplitPath(const Text& path) {
  Components components;
  Text component;
  for (const char16_t unit : path + u'/') {
    if (unit != u'/') {
      component += unit;
      continue;
    }
    if (!component.empty()) components.push_back(component);
    component.clear();
  }
  return components;
}

Text JoinPath(const Text& path, const Text& name) {
  return path.ends_with(u'/') ? path + name : path + u"/" + name;
}

std::int64_t ReadNumber(const Text& text, std::int64_t lowest, std::int64_t highest) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == u' ' || (text[i] >= u'\t' && text[i] <= u'\r'))) ++i;
  const bool negative = i < text.size() && text[i] == u'-';
  if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) ++i;
  std::int64_t value = 0;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
    const int digit = text[i] - u'0';
    if (negative) {
      value = value < (lowest + digit) / 10 ? lowest : value * 10 - digit;
    } else {
      value = value > (highest - digit) / 10 ? highest : value * 10 + digit;
    }
  }
  return value;
}

Bytes Mid(const Bytes& text, std::int64_t start, std::int64_t count) {
  const auto size = static_cast<std::int64_t>(text.size());
  const std::int64_t from = std::clamp<std::int64_t>(start, 0, size);
  const std::int64_t kept = std::clamp<std::int64_t>(count, 0, size - from);
  return text.substr(static_cast<std::size_t>(from), static_cast<std::size_t>(kept));
}

std::int64_t Find(const Bytes& text, const Bytes& pattern, std::int64_t start) {
  const auto from = static_cast<std::size_t>(std::max<std::int64_t>(start, 0));
  const std::size_t found = text.find(pattern, from);
  return found == Bytes::npos ? -1 : static_cast<std::int64_t>(found);
}

}  // namespace Model
