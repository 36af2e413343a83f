#include <kit/store/internal/find_interface.h>
#include <kit/store/repairable_store.h>

namespace TalVcs::Kit {

IRepairableStore::~IRepairableStore() = default;

Status ReplaceObjects(IObjectStore& store, std::span<const StoredObject> objects) {
  if (auto* const repairable = FindInterface<IRepairableStore>(store)) {
    return repairable->Replace(objects);
  }
  Error error;
  error.code = ErrorCode::Unsupported;
  error.message = "the store can't replace objects";
  return error;
}

}  // namespace TalVcs::Kit
