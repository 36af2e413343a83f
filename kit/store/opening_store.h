#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// What opening a repository asks a store for.
struct StoreOpening {
  std::vector<Head> heads;           ///< As `IObjectStore::Heads` returns them.
  std::optional<std::string> value;  ///< As `IObjectStore::Value` returns it.
  /// Objects that the caller is likely to read next. They needn't fit their ids.
  std::vector<StoredObject> objects;
};

/// A store that returns in one round trip what opening a repository asks for. Far stores, and
/// stores over another one, implement this interface beside `IObjectStore`; callers use the
/// function `ReadOpening`.
class TALVCS_KIT_API IOpeningStore {
 public:
  virtual ~IOpeningStore();

  /// Returns the heads, the value under `valueName`, and the head commit and root tree of a branch
  /// if they cost no further round trip. The branch is `branch`, or if that is empty the one that
  /// the value names, or without a value `otherwise`. Fails as `Heads` and `Value` do.
  virtual Result<StoreOpening> ReadOpening(std::string_view branch, std::string_view valueName,
                                           std::string_view otherwise) = 0;

 protected:
  IOpeningStore() = default;
  IOpeningStore(const IOpeningStore&) = default;
  IOpeningStore& operator=(const IOpeningStore&) = default;
};

/// Calls `ReadOpening` of a store; without that interface, `Heads` and `Value`, whose damage counts
/// as no value.
TALVCS_KIT_API Result<StoreOpening> ReadOpening(IObjectStore& store, std::string_view branch,
                                                std::string_view valueName,
                                                std::string_view otherwise);

}  // namespace TalVcs::Kit
