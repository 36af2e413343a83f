#include <talvcs/foundation/string_conversion.h>

#include <limits>

namespace TalUtils::String {

using TalPlatform::TalStringT;
using TalPlatform::WideChar;

namespace {

bool IsBlank(WideChar unit) noexcept {
  return unit == TAL_WIDE(' ') || (unit >= TAL_WIDE('\t') && unit <= TAL_WIDE('\r'));
}

// Collects the number as a negative one, since there is one more of those.
template <class Number>
Number ReadDecimal(const TalStringT<WideChar>& text) noexcept {
  using Limits = std::numeric_limits<Number>;
  const WideChar* at = text.GetString();
  const WideChar* const end = at + text.GetLength();
  while (at != end && IsBlank(*at)) ++at;
  const bool negative = at != end && *at == TAL_WIDE('-');
  if (at != end && (*at == TAL_WIDE('-') || *at == TAL_WIDE('+'))) ++at;
  Number value = 0;
  for (; at != end && *at >= TAL_WIDE('0') && *at <= TAL_WIDE('9'); ++at) {
    const auto digit = static_cast<Number>(*at - TAL_WIDE('0'));
    if (value < (Limits::min() + digit) / 10) return negative ? Limits::min() : Limits::max();
    value = static_cast<Number>(value * 10 - digit);
  }
  if (negative) return value;
  return value == Limits::min() ? Limits::max() : static_cast<Number>(-value);
}

}  // namespace

int IntFromString(const TalStringT<WideChar>& text) noexcept { return ReadDecimal<int>(text); }

std::int64_t Int64FromString(const TalStringT<WideChar>& text) noexcept {
  return ReadDecimal<std::int64_t>(text);
}

TalStringT<WideChar> ToStringW(const TalStringT<char>& utf8) { return TalStringT<WideChar>(utf8); }

}  // namespace TalUtils::String
