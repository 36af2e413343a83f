#pragma once

#include <talvcs/foundation/names.h>

#include <unordered_map>

namespace TalVcs {

/// Returns the handle under `key`, or null.
template <class Key, class T>
cow_ptr<T> FindIn(const std::unordered_map<Key, cow_ptr<T>>& table, const Key& key) {
  const auto found = table.find(key);
  return found == table.end() ? nullptr : found->second;
}

}  // namespace TalVcs
