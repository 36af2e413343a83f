#pragma once

#include <kit/store/object_store.h>

#include <optional>
#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// Returns the value under `name` as `IObjectStore::Value` does, except that a damaged value counts
/// as none. It is for values that are no part of a history and are written again anyway.
inline Result<std::optional<std::string>> ReadSoundValue(IObjectStore& store,
                                                         std::string_view name) {
  Result<std::optional<std::string>> value = store.Value(name);
  if (!value && value.error().code == ErrorCode::Damaged) return std::optional<std::string>();
  return value;
}

}  // namespace TalVcs::Kit
