#include <kit/store/repairable_store.h>

namespace TalVcs::Kit {

IRepairableStore::~IRepairableStore() = default;

Status ReplaceObjects(IObjectStore& store, std::span<const StoredObject> objects) {
#ifdef __cpp_rtti
  if (auto* repairable = dynamic_cast<IRepairableStore*>(&store)) {
    return repairable->Replace(objects);
  }
#else
  // Without type information no store is known to be repairable.
  static_cast<void>(store);
  static_cast<void>(objects);
#endif
  Error error;
  error.code = ErrorCode::Unsupported;
  error.message = "the store can't replace objects";
  return error;
}

}  // namespace TalVcs::Kit
