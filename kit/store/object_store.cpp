#include <kit/store/object_store.h>

namespace TalVcs::Kit {

IObjectStore::~IObjectStore() = default;

}  // namespace TalVcs::Kit
