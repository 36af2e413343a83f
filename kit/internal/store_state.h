#pragma once

#include <kit/store/object_key.h>
#include <kit/text.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// Returns the key whose digits are the text of an id, or nothing for any other text.
std::optional<ObjectKey> KeyFromHex(std::string_view digits);
std::string HexFromKey(const ObjectKey& key);

/// What a directory store holds at one moment: the content of its file "state".
struct StoreState {
  /// In order, each once.
  std::vector<ObjectKey> objects;
  /// Everything that isn't an object: path and bytes.
  std::map<WideString, Buffer> streams;

  bool IsEmpty() const noexcept { return objects.empty() && streams.empty(); }
  bool HasObject(const ObjectKey& key) const;

  /// Returns the bytes of the file, which end with a digest of all that stands before.
  Buffer Encode() const;

  /// Returns nothing for bytes that `Encode` didn't give.
  static std::optional<StoreState> Decode(const Buffer& bytes);

  /// Returns the digest with which such bytes end.
  static std::string DigestOf(const Buffer& bytes);
};

}  // namespace TalVcs::Kit
