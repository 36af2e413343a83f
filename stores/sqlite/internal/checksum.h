#pragma once

#include <talvcs/objects/id.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace TalVcs::Kit::Sqlite {

/// Returns the first 8 bytes, most significant first, of the SHA-256 of the name, a zero byte and
/// the value.
std::uint64_t Checksum(std::string_view name, std::span<const std::byte> value);

/// Returns the share of one head in the sum of all; 0 for the empty id.
std::uint64_t ChecksumOfHead(std::string_view name, const Id& id);

}  // namespace TalVcs::Kit::Sqlite
