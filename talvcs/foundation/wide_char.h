#pragma once

#include <cwchar>

namespace TalPlatform {

/// The 16-bit code unit of which every wide string is made, on every platform.
///
/// The order of names, and with it every id, depends on the code units. A `wchar_t` of 32 bits
/// would sort names beyond U+FFFF elsewhere, so such platforms use `char16_t`.
#if WCHAR_MAX <= 0xFFFF
using WideChar = wchar_t;
#define TAL_WIDE(text) L##text
#else
using WideChar = char16_t;
/// Makes a wide literal: `TAL_WIDE("text")` is an array of `WideChar`.
#define TAL_WIDE(text) u##text
#endif

static_assert(sizeof(WideChar) == 2, "wide text is made of 16-bit code units");

}  // namespace TalPlatform
