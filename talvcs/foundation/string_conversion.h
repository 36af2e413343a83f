#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/string.h>

#include <cstdint>

namespace TalUtils::String {

/// Reads a decimal number: optional blanks and sign, then digits up to the first other character.
///
/// No digit gives 0. A number out of range gives the nearest limit.
TALVCS_API int IntFromString(const TalPlatform::TalStringT<TalPlatform::WideChar>& text) noexcept;

/// Reads a number like `IntFromString`, with the limits of 64 bits.
TALVCS_API std::int64_t Int64FromString(
    const TalPlatform::TalStringT<TalPlatform::WideChar>& text) noexcept;

/// Decodes UTF-8 like the constructor of a wide string.
TALVCS_API TalPlatform::TalStringT<TalPlatform::WideChar> ToStringW(
    const TalPlatform::TalStringT<char>& utf8);

}  // namespace TalUtils::String
