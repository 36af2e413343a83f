#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <kit/store/directory_object_store.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/temporary_folder.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;
namespace fs = std::filesystem;

/// Opens the store in a folder of its own, or makes it.
template <bool durable>
StoreOpener MakeFolderPlace() {
  return [folder = std::make_shared<TemporaryFolder>()]() -> std::unique_ptr<IObjectStore> {
    const DirectoryObjectStoreOptions options{.durable = durable};
    Result<DirectoryObjectStore> store = DirectoryObjectStore::Open(folder->Path(), options);
    if (!store) store = DirectoryObjectStore::Create(folder->Path(), options);
    return std::make_unique<DirectoryObjectStore>(std::move(store).value());
  };
}

INSTANTIATE_TEST_SUITE_P(DurableDirectory, ObjectStoreSuite,
                         testing::Values(StoreKind{MakeFolderPlace<true>, true}));
INSTANTIATE_TEST_SUITE_P(Directory, ObjectStoreSuite,
                         testing::Values(StoreKind{MakeFolderPlace<false>, true}));

}  // namespace
}  // namespace TalVcs::Kit
