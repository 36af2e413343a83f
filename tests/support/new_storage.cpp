#include <tests/support/new_storage.h>

#include <talvcs/storage/mem_objects_storage.h>
#include <talvcs/storage/on_demand_storage.h>
#include <tests/support/map_object_reader.h>

#include <cstdlib>
#include <string_view>
#include <vector>

namespace TalVcs::Testing {

std::unique_ptr<IObjectsStorage> NewStorage(
    std::initializer_list<TalStringViewT<WideChar>> branches) {
  const char* chosen = std::getenv("TALVCS_TEST_STORAGE");
  if (chosen == nullptr || std::string_view(chosen) != "on_demand") {
    return std::make_unique<MemObjectsStorage>(branches);
  }
  std::vector<OnDemandStorage::BranchHead> heads;
  for (const auto& name : branches) heads.emplace_back(name, Id());
  return std::make_unique<OnDemandStorage>(std::make_shared<MapObjectReader>(), heads);
}

}  // namespace TalVcs::Testing
