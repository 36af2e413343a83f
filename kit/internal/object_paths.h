#pragma once

#include <kit/internal/store_paths.h>
#include <kit/internal/store_state.h>
#include <kit/text.h>
#include <talvcs/persistence/path_builder.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// The paths of objects below their folder, as `PathBuilder` makes them.
class ObjectPaths {
 public:
  explicit ObjectPaths(const WideString& objectsPath) : m_prefix(PrefixBelow(objectsPath)) {}

  std::optional<ObjectKey> KeyOf(const WideString& path) const {
    const int split = m_prefix.GetLength() + kFolderDigits;
    if (path.GetLength() != split + 1 + kFileDigits || !path.StartsWith(m_prefix) ||
        path[split] != '/') {
      return std::nullopt;
    }
    return KeyFromHex(ToUtf8(path.Mid(m_prefix.GetLength(), kFolderDigits)) +
                      ToUtf8(path.Mid(split + 1)));
  }

  WideString PathOf(const ObjectKey& key) const {
    const std::string digits = HexFromKey(key);
    return m_prefix + ToWide(digits.substr(0, kFolderDigits) + '/' + digits.substr(kFolderDigits));
  }

  /// Removes the keys of all objects below `directory`.
  void EraseBelow(std::vector<ObjectKey>& keys, const WideString& directory) const {
    const WideString prefix = PrefixBelow(directory);
    if (m_prefix.StartsWith(prefix)) {
      keys.clear();
    } else if (prefix.StartsWith(m_prefix)) {
      std::erase_if(keys, [&](const ObjectKey& key) { return PathOf(key).StartsWith(prefix); });
    }
  }

  /// Appends the names of the objects directly below `directory`, which are in order.
  void AppendNames(const std::vector<ObjectKey>& keys, const WideString& directory,
                   std::vector<WideString>& names) const {
    const WideString prefix = PrefixBelow(directory);
    if (prefix.GetLength() != m_prefix.GetLength() + kFolderDigits + 1 ||
        !prefix.StartsWith(m_prefix)) {
      return;
    }
    const std::string first = ToUtf8(prefix.Mid(m_prefix.GetLength(), kFolderDigits));
    const std::optional<ObjectKey> from = KeyFromHex(first + std::string(kFileDigits, '0'));
    if (!from) return;
    auto at = std::lower_bound(keys.begin(), keys.end(), *from);
    for (; at != keys.end() && at->front() == from->front(); ++at) {
      names.push_back(ToWide(HexFromKey(*at).substr(kFolderDigits)));
    }
  }

 private:
  static constexpr int kFolderDigits = PathBuilder::kFolderDigits;
  static constexpr int kFileDigits = static_cast<int>(kIdLength) - kFolderDigits;

  WideString m_prefix;
};

}  // namespace TalVcs::Kit
