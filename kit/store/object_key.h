#pragma once

#include <talvcs/format/id_text.h>
#include <talvcs/foundation/data_encoding.h>
#include <talvcs/objects/id.h>

#include <cstddef>
#include <cstring>
#include <optional>
#include <span>

namespace TalVcs::Kit {

/// The id of an object as the 32 bytes of its digest. Keys have the same order as the texts of the
/// ids.
using ObjectKey = IdBytes;

/// Hashes a key by its first bytes. A hostile store can choose ids that have these in common, so it
/// is for keys that one's own side has chosen.
struct ObjectKeyHash {
  /// Returns the hash of a key.
  std::size_t operator()(const ObjectKey& key) const noexcept {
    std::size_t hash = 0;
    std::memcpy(&hash, key.data(), sizeof(hash));
    return hash;
  }
};

/// Returns the key of an id; nothing for a text that no object can have as its id.
inline std::optional<ObjectKey> KeyOf(const Id& id) noexcept { return BytesOfIdText(id.View()); }

/// Returns the key that these bytes are; nothing if they aren't as many as a key has.
inline std::optional<ObjectKey> KeyOf(std::span<const std::byte> bytes) noexcept {
  ObjectKey key;
  if (bytes.size() != key.size()) return std::nullopt;
  std::memcpy(key.data(), bytes.data(), key.size());
  return key;
}

/// Returns the id of a key.
inline Id IdOf(const ObjectKey& key) {
  return Id(TalUtils::DataEncoding::HexEncode(key.data(), key.size()));
}

}  // namespace TalVcs::Kit
