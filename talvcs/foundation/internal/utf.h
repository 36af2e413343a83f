#pragma once

#include <talvcs/foundation/wide_char.h>

#include <cstddef>

namespace TalPlatform {

/// The most UTF-8 bytes that one code unit can take: a pair of units takes four.
inline constexpr std::size_t kMaxUtf8BytesPerUnit = 3;

/// Writes `count` UTF-16 units as UTF-8 to `out`, which has room for `kMaxUtf8BytesPerUnit` bytes a
/// unit. A lone surrogate is written in its three-byte generalised form, so that every text comes
/// back unchanged. Zeros are written as they are. Returns the number of bytes written.
std::size_t EncodeUtf8(const WideChar* text, std::size_t count, char* out) noexcept;

/// Does the same up to the first zero, and returns the end of what was written. It may overwrite
/// all of the room that `EncodeUtf8` needs.
char* EncodeUtf8UpToZero(const WideChar* text, std::size_t count, char* out) noexcept;

/// Writes `count` bytes of UTF-8 as UTF-16 to `out`, which has room for one unit a byte. Each
/// maximal subpart of bytes that are no UTF-8 becomes U+FFFD; the generalised form of a surrogate
/// gives that surrogate. Returns the number of units written.
std::size_t DecodeUtf8(const char* text, std::size_t count, WideChar* out) noexcept;

/// True if decoding and encoding `count` bytes gives the same bytes: no byte becomes U+FFFD, and no
/// two generalised forms of surrogates make a pair, which has a form of four bytes.
bool IsExactUtf8(const char* text, std::size_t count) noexcept;

}  // namespace TalPlatform
