#include <talvcs/storage/objects_storage.h>

namespace TalVcs {

IObjectsStorage::~IObjectsStorage() = default;

}  // namespace TalVcs
