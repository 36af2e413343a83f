#pragma once

#include <kit/store/opening_store.h>

#include <string_view>

namespace TalVcs::Kit {

/// Returns the store as one that reads an opening in one round trip; null if it isn't one.
IOpeningStore* FindOpening(IObjectStore& store) noexcept;

/// Reads an opening by `Heads` and `Value` of the store, without objects.
Result<StoreOpening> ReadOpeningInParts(IObjectStore& store, std::string_view valueName);

}  // namespace TalVcs::Kit
