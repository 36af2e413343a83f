#include <kit/text/base64.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace TalVcs::Kit {

std::string EncodeBase64(std::string_view bytes) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 3))) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8U | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= bytes.size() ? kDigits[group >> (18 - 6 * i) & 63U] : '=';
    }
  }
  return text;
}

}  // namespace TalVcs::Kit
