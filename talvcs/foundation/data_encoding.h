#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/string.h>

#include <cstddef>

namespace TalUtils::DataEncoding {

/// Returns two lower-case hexadecimal digits a byte, the high digit first.
TALVCS_API TalPlatform::TalStringT<TalPlatform::WideChar> HexEncode(const void* data,
                                                                    std::size_t size);

/// Returns the UTF-8 form of `text` up to its terminator; null gives an empty text.
///
/// A lone surrogate is written in its three-byte generalised form, so that decoding gives it back.
TALVCS_API TalPlatform::TalStringT<char> Utf8Encode(const TalPlatform::WideChar* text);

}  // namespace TalUtils::DataEncoding
