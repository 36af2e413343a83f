#include <kit/store/internal/find_interface.h>
#include <kit/store/trimmable_store.h>

namespace TalVcs::Kit {

ITrimmableStore::~ITrimmableStore() = default;

void TrimStore(IObjectStore& store) noexcept {
  if (auto* const trimmable = FindInterface<ITrimmableStore>(store)) trimmable->Trim();
}

}  // namespace TalVcs::Kit
