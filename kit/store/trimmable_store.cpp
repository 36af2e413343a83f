#include <kit/store/trimmable_store.h>

namespace TalVcs::Kit {

ITrimmableStore::~ITrimmableStore() = default;

void TrimStore(IObjectStore& store) noexcept {
#ifdef __cpp_rtti
  if (auto* trimmable = dynamic_cast<ITrimmableStore*>(&store)) trimmable->Trim();
#else
  // Without type information no store is known to be trimmable.
  static_cast<void>(store);
#endif
}

}  // namespace TalVcs::Kit
