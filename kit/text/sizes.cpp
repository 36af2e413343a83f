#include <kit/text/sizes.h>

#include <array>
#include <charconv>
#include <system_error>

namespace TalVcs::Kit {

std::string FormatSize(std::uint64_t sizeBytes) {
  constexpr std::array<const char*, 5> kUnits = {" B", " KiB", " MiB", " GiB", " TiB"};
  std::size_t unit = 0;
  while (unit + 1 < kUnits.size() && sizeBytes >> (10 * (unit + 1)) > 0) ++unit;
  if (unit == 0) return std::to_string(sizeBytes) + kUnits[0];
  const std::uint64_t one = std::uint64_t{1} << (10 * unit);
  const std::uint64_t rest = sizeBytes % one * 10;
  // Rounded to the nearest tenth, a half to the even one.
  std::uint64_t tenths = sizeBytes / one * 10 + rest / one;
  const std::uint64_t half = one / 2;
  if (rest % one > half || (rest % one == half && tenths % 2 == 1)) ++tenths;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + kUnits[unit];
}

std::optional<std::uint64_t> ParseSize(std::string_view text) {
  std::uint64_t size = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
  if (error != std::errc()) return std::nullopt;
  const std::string_view unit = text.substr(static_cast<std::size_t>(end - text.data()));
  if (unit.empty() || unit == "B") return size;
  const std::size_t power = std::string_view("KMGT").find(unit.front()) + 1;
  const std::string_view rest = unit.substr(1);
  if (power == 0 || (!rest.empty() && rest != "B" && rest != "iB")) return std::nullopt;
  if (size > UINT64_MAX >> (10 * power)) return std::nullopt;
  return size << (10 * power);
}

}  // namespace TalVcs::Kit
