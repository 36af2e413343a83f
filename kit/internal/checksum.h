#pragma once

#include <cstdint>
#include <string_view>

namespace TalVcs::Kit {

/// Returns the CRC-32 of `bytes` with the polynomial 0x04C11DB7, as zip and Ethernet use it.
///
/// `before` is the checksum of the bytes before these, so that a text can be summed in pieces.
std::uint32_t ChecksumOf(std::string_view bytes, std::uint32_t before = 0) noexcept;

}  // namespace TalVcs::Kit
