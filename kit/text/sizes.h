#pragma once

#include <kit/export.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// Returns a number of bytes for people, such as "512 B" or "12.3 KiB": in the largest unit of
/// which it is at least one, up to TiB, with one digit after a point that doesn't depend on the
/// locale.
[[nodiscard]] TALVCS_KIT_API std::string FormatSize(std::uint64_t sizeBytes);

/// Reads a number of bytes such as "1000", "1000B", "50MB", "50M" or "2GiB". The units K, M, G and
/// T are powers of 1024, with or without "B" or "iB". Returns nothing for any other text, and for a
/// size of more than 64 bits.
[[nodiscard]] TALVCS_KIT_API std::optional<std::uint64_t> ParseSize(std::string_view text);

}  // namespace TalVcs::Kit
