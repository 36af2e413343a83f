#pragma once

#include <kit/store/object_store.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

namespace TalVcs::Kit::Sqlite {

/// The id of an object as bytes.
using ObjectKey = std::array<std::uint8_t, 32>;

struct ObjectKeyHash {
  std::size_t operator()(const ObjectKey& key) const noexcept {
    std::size_t hash = 0;
    std::memcpy(&hash, key.data(), sizeof(hash));
    return hash;
  }
};

/// Returns nothing for an id that isn't an object's.
inline std::optional<ObjectKey> KeyOf(const Id& id) noexcept {
  if (!IsObjectId(id)) return std::nullopt;
  const WideChar* digits = id.View().text;
  const auto value = [](WideChar digit) { return digit <= '9' ? digit - '0' : digit - 'a' + 10; };
  ObjectKey key;
  for (std::size_t index = 0; index < key.size(); ++index) {
    key[index] =
        static_cast<std::uint8_t>(value(digits[2 * index]) << 4 | value(digits[2 * index + 1]));
  }
  return key;
}

inline Id IdOf(const ObjectKey& key) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::array<WideChar, 64> digits;
  for (std::size_t index = 0; index < key.size(); ++index) {
    digits[2 * index] = static_cast<WideChar>(kDigits[key[index] >> 4]);
    digits[2 * index + 1] = static_cast<WideChar>(kDigits[key[index] & 15]);
  }
  return Id(TalStringViewT<WideChar>(std::basic_string_view(digits.data(), digits.size())));
}

/// Returns nothing for bytes that aren't as many as a key has.
inline std::optional<ObjectKey> KeyOf(std::span<const std::byte> bytes) noexcept {
  ObjectKey key;
  if (bytes.size() != key.size()) return std::nullopt;
  std::memcpy(key.data(), bytes.data(), key.size());
  return key;
}

}  // namespace TalVcs::Kit::Sqlite
