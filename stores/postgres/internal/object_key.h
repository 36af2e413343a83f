#pragma once

#include <kit/store/object_store.h>
#include <talvcs/format/id_text.h>
#include <talvcs/foundation/data_encoding.h>

#include <cstddef>
#include <cstring>
#include <optional>
#include <span>

namespace TalVcs::Kit::Postgres {

/// The id of an object as bytes.
using ObjectKey = IdBytes;

struct ObjectKeyHash {
  std::size_t operator()(const ObjectKey& key) const noexcept {
    std::size_t hash = 0;
    std::memcpy(&hash, key.data(), sizeof(hash));
    return hash;
  }
};

/// Returns nothing for an id that isn't an object's.
inline std::optional<ObjectKey> KeyOf(const Id& id) noexcept { return BytesOfIdText(id.View()); }

inline Id IdOf(const ObjectKey& key) {
  return Id(TalUtils::DataEncoding::HexEncode(key.data(), key.size()));
}

/// Returns nothing for bytes that aren't as many as a key has.
inline std::optional<ObjectKey> KeyOf(std::span<const std::byte> bytes) noexcept {
  ObjectKey key;
  if (bytes.size() != key.size()) return std::nullopt;
  std::memcpy(key.data(), bytes.data(), key.size());
  return key;
}

}  // namespace TalVcs::Kit::Postgres
