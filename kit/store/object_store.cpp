#include <kit/store/object_store.h>
#include <talvcs/format/id_text.h>

namespace TalVcs::Kit {

IObjectStore::~IObjectStore() = default;

bool IsObjectId(const Id& id) noexcept { return IsIdText(id.View()); }

}  // namespace TalVcs::Kit
