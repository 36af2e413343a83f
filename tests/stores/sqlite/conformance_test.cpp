#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/temporary_folder.h>

#include <chrono>
#include <memory>

namespace TalVcs::Kit {
namespace {

/// Opens a file in a folder of its own again and again.
StoreOpener MakeFile(SqliteOptions options) {
  auto folder = std::make_shared<Testing::TemporaryFolder>();
  options.busyTimeout = std::chrono::milliseconds(20);
  options.durable = false;
  return [folder, options] {
    return std::make_unique<SqliteStore>(
        SqliteStore::Open(folder->Path() / "document.tal", options).value());
  };
}

INSTANTIATE_TEST_SUITE_P(Sqlite, ObjectStoreSuite,
                         testing::Values(StoreKind{[] { return MakeFile({}); }, true}));

// Each object is in the file when its write returns.
INSTANTIATE_TEST_SUITE_P(SqliteWithoutBuffer, ObjectStoreSuite,
                         testing::Values(StoreKind{[] { return MakeFile({.bufferSizeBytes = 0}); },
                                                   true}));

}  // namespace
}  // namespace TalVcs::Kit
