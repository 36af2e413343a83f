#pragma once

#include <gtest/gtest.h>
#include <kit/open/open.h>
#include <kit/open/save.h>
#include <kit/open/try.h>
#include <kit/open/verify.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/memory_object_store.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/support/bytes.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

/// What the tests of decorators over two stores share.
namespace TalVcs::Kit {

using namespace TalVcs::Testing;

/// Opens the store in a folder, which is made if it is missing.
inline std::shared_ptr<IObjectStore> OpenFolder(const std::filesystem::path& path) {
  const DirectoryObjectStoreOptions options{.durable = false,
                                            .busyTimeout = std::chrono::milliseconds(20)};
  Result<DirectoryObjectStore> store = std::filesystem::exists(path)
                                           ? DirectoryObjectStore::Open(path, options)
                                           : DirectoryObjectStore::Create(path, options);
  return std::make_shared<DirectoryObjectStore>(std::move(store).value());
}

inline const StoredObject kOne =
    Stored("437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3", {"blob 3\0one", 10});
inline const StoredObject kTwo =
    Stored("9d500193ed108f2f3ad67e1870148696dce98f56644f500176a1dc1cf1634f64", {"blob 3\0two", 10});
inline const StoredObject kThree = Stored(
    "b0784b7d2033618177b361977e0f1572f5d0d2a0d103cba0e6a56fe7412f9624", {"blob 5\0three", 12});

inline std::string ReadOne(IObjectStore& store, const Id& id) {
  std::string shown = "not passed";
  const Status status = store.Read({&id, 1}, [&](const Id&, Result<Buffer> packed) {
    shown = packed ? Bytes(*packed) : ToString(packed.error().code);
  });
  return status ? shown : std::string("failed: ") + ToString(status.error().code);
}

/// Two stores in memory whose calls can fail.
class TwoStores : public testing::Test {
 protected:
  std::shared_ptr<MemoryObjectStore> m_firstMemory = std::make_shared<MemoryObjectStore>();
  std::shared_ptr<MemoryObjectStore> m_secondMemory = std::make_shared<MemoryObjectStore>();
  std::shared_ptr<FaultInjectionStore> m_first =
      std::make_shared<FaultInjectionStore>(m_firstMemory);
  std::shared_ptr<FaultInjectionStore> m_second =
      std::make_shared<FaultInjectionStore>(m_secondMemory);
};

/// Opens a store, adds a commit and a branch to what it has, and saves.
inline Status EditAndSave(const std::shared_ptr<IObjectStore>& store, const std::string& text) {
  return Try([&] {
    OpenedRepository opened = Open(store).value();
    AddCommit(opened.GetRepository(), "master", {{"a/file", text}});
    AddCommit(opened.GetRepository(), text, {{"b/file", text}});
    Save(opened).value();
  });
}

/// Each branch of the store is whole.
inline void ExpectWhole(IObjectStore& store, const std::string& when) {
  const Result<VerifyReport> report = Verify(store);
  ASSERT_TRUE(report.ok()) << when;
  EXPECT_TRUE(report->IsWhole()) << when;
}

}  // namespace TalVcs::Kit
