#pragma once

#include <talvcs/objects/id.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace TalVcs::Kit::Encryption {

/// The digits of an id as bytes.
using IdBytes = std::array<unsigned char, 32>;

/// Returns none for an id that isn't an object's.
std::optional<IdBytes> BytesOf(const Id& id);
Id IdOf(const IdBytes& bytes);

/// Returns two lower-case hexadecimal digits for each byte.
std::string ToHex(std::string_view bytes);
/// Returns the bytes that `ToHex` made the digits of, or none.
std::optional<std::string> FromHex(std::string_view digits);

}  // namespace TalVcs::Kit::Encryption
