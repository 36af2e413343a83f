#include <stores/zip/zip_store.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/temporary_folder.h>

#include <chrono>
#include <memory>

namespace TalVcs::Kit {
namespace {

/// Opens a file in a folder of its own again and again.
StoreOpener MakeFile(ZipOptions options) {
  auto folder = std::make_shared<Testing::TemporaryFolder>();
  options.busyTimeout = std::chrono::milliseconds(20);
  options.durable = false;
  return [folder, options] {
    return std::make_unique<ZipStore>(
        ZipStore::Open(folder->Path() / "document.zip", options).value());
  };
}

INSTANTIATE_TEST_SUITE_P(Zip, ObjectStoreSuite,
                         testing::Values(StoreKind{[] { return MakeFile({}); }, true}));

// Each object goes into an archive without a name when it is written.
INSTANTIATE_TEST_SUITE_P(ZipWithoutBuffer, ObjectStoreSuite,
                         testing::Values(StoreKind{[] { return MakeFile({.bufferSizeBytes = 0}); },
                                                   true}));

}  // namespace
}  // namespace TalVcs::Kit
