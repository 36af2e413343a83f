#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/host_database.h>

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

/// Attaches stores to connections of a host, each to one of its own.
StoreOpener MakeHostDatabase(SqliteOptions options) {
  auto folder = std::make_shared<Testing::TemporaryFolder>();
  return [folder, options] {
    return std::make_unique<Testing::HostStore>(folder->Path() / "host.db", options);
  };
}

INSTANTIATE_TEST_SUITE_P(Sqlite, ObjectStoreSuite,
                         testing::Values(StoreKind{[] { return MakeFile({}); }, true}));

// Each object is in the file when its write returns.
INSTANTIATE_TEST_SUITE_P(SqliteWithoutBuffer, ObjectStoreSuite,
                         testing::Values(StoreKind{[] { return MakeFile({.bufferSizeBytes = 0}); },
                                                   true}));

INSTANTIATE_TEST_SUITE_P(
    SqliteWithLog, ObjectStoreSuite,
    testing::Values(StoreKind{
        [] { return MakeFile({.journalMode = SqliteJournalMode::WriteAheadLog}); }, true}));

INSTANTIATE_TEST_SUITE_P(SqliteInHostDatabase, ObjectStoreSuite,
                         testing::Values(StoreKind{[] { return MakeHostDatabase({}); }, true}));

}  // namespace
}  // namespace TalVcs::Kit
