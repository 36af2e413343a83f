#pragma once

#include <talvcs/objects/id.h>

#include <cstddef>
#include <functional>
#include <string_view>
#include <unordered_map>

namespace TalVcs {

/// Hashes all of an id. The ids in a damaged or hostile store can be any text, among them many that
/// the hash of `Id`, which samples a few characters, cannot distinguish.
struct WholeIdHash {
  std::size_t operator()(const Id& id) const noexcept {
    const TalStringViewT<WideChar> text = id.View();
    const auto length = static_cast<std::size_t>(text.length);
    return std::hash<std::basic_string_view<WideChar>>()({text.text, length});
  }
};

/// A table by ids that come from a store.
template <class T>
using IdMap = std::unordered_map<Id, T, WholeIdHash>;

}  // namespace TalVcs
