#include <kit/store/object_store.h>
#include <kit/text.h>
#include <stores/encryption/internal/id_bytes.h>

#include <algorithm>

namespace TalVcs::Kit::Encryption {

namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

}  // namespace

std::optional<IdBytes> BytesOf(const Id& id) {
  if (!IsObjectId(id)) return std::nullopt;
  const std::optional<std::string> decoded = FromHex(ToUtf8(id.View()));
  IdBytes bytes;
  std::copy(decoded->begin(), decoded->end(), bytes.begin());
  return bytes;
}

Id IdOf(const IdBytes& bytes) {
  return Id(ToWide(ToHex({reinterpret_cast<const char*>(bytes.data()), bytes.size()})));
}

std::string ToHex(std::string_view bytes) {
  std::string digits;
  digits.reserve(2 * bytes.size());
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    digits += kDigits[value >> 4];
    digits += kDigits[value & 15];
  }
  return digits;
}

std::optional<std::string> FromHex(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  bytes.reserve(digits.size() / 2);
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    const std::size_t high = kDigits.find(digits[at]);
    const std::size_t low = kDigits.find(digits[at + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    bytes += static_cast<char>(high << 4 | low);
  }
  return bytes;
}

}  // namespace TalVcs::Kit::Encryption
