#include <kit/store/repairable_store.h>

namespace TalVcs::Kit {

IRepairableStore::~IRepairableStore() = default;

}  // namespace TalVcs::Kit
