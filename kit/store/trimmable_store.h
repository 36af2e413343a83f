#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>

namespace TalVcs::Kit {

/// A store that holds memory only to be faster. Such a store implements this interface beside
/// `IObjectStore`; callers use the function `TrimStore`.
class TALVCS_KIT_API ITrimmableStore {
 public:
  virtual ~ITrimmableStore();

  /// Frees what can be read again from the medium or from the store below. The next reads take
  /// longer; their results are the same. A store over another one trims that one too.
  virtual void Trim() noexcept = 0;

 protected:
  ITrimmableStore() = default;
  ITrimmableStore(const ITrimmableStore&) = default;
  ITrimmableStore& operator=(const ITrimmableStore&) = default;
};

/// Calls `ITrimmableStore::Trim` of a store, or does nothing if it has none.
TALVCS_KIT_API void TrimStore(IObjectStore& store) noexcept;

}  // namespace TalVcs::Kit
