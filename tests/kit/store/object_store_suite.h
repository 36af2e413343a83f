#pragma once

#include <gtest/gtest.h>
#include <kit/store/object_store.h>
#include <tests/support/text.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What every object store does. A store joins with a source that says how it is made:
///
///     INSTANTIATE_TEST_SUITE_P(Memory, ObjectStoreSuite, testing::Values(StoreKind{[] {
///                                return [] { return std::make_unique<MemoryObjectStore>(); };
///                              }}));
///
/// and with the target `talvcs_object_store_suite`, which brings the tests.
namespace TalVcs::Kit {

/// Opens the store of one place, which is made by the first call. Each call gives a store object of
/// its own, as another process would have it.
using StoreOpener = std::function<std::unique_ptr<IObjectStore>()>;

struct StoreKind {
  /// Makes a place where no store is yet.
  std::function<StoreOpener()> makePlace;
  /// Whether the store outlives its store objects, so that it can be opened again and several times
  /// at once. Without it one store object is used alone.
  bool durable = false;
  /// Whether the store can remove objects and keep values. One that can't fails with `Unsupported`.
  bool removes = true;
  bool keepsValues = true;
  /// Whether reads fail with `Damaged` for bytes that don't fit their id.
  bool checksIds = false;
  /// Whether an object of 0 bytes is there. To a store over streams it is missing.
  bool keepsEmptyObjects = true;

  friend std::ostream& operator<<(std::ostream& out, const StoreKind& kind) {
    return out << (kind.durable ? "durable" : "in memory");
  }
};

/// A packed form, with an id that was computed elsewhere.
inline StoredObject Stored(std::string_view id, std::string_view packed) {
  StoredObject object;
  object.id = Id(Testing::Wide(id));
  object.packed.Append(packed.data(), packed.size());
  return object;
}

/// A store of the kind under test, and steps that show what it did.
class ObjectStoreSuite : public testing::TestWithParam<StoreKind> {
 protected:
  /// Id and bytes, or the name of the error's code in angle brackets; sorted.
  using ReadObjects = std::vector<std::pair<std::string, std::string>>;

  IObjectStore& Store() { return *m_store; }
  /// Opens a durable store a second time.
  std::unique_ptr<IObjectStore> OpenAgain() { return m_open(); }
  /// Ends the store object and opens a durable store anew.
  void Reopen();

  /// Return true for a store without that ability, after checking what it does instead. A test that
  /// needs the ability then has nothing more to check.
  bool IsUsedAlone();
  bool RefusesRemovals();
  bool RefusesValues();

  /// Require that the operation succeeds, and show its result.
  static ReadObjects Read(IObjectStore& store, std::vector<Id> ids);
  static std::string ReadOne(IObjectStore& store, const Id& id);
  static std::vector<std::string> ReadHistory(IObjectStore& store, const Id& id,
                                              std::uint64_t most);
  static std::vector<Head> HeadsOf(IObjectStore& store);
  static std::vector<std::string> ListOf(IObjectStore& store);
  static void Write(IObjectStore& store, const std::vector<StoredObject>& objects);
  static void ExpectMoved(IObjectStore& store, const std::vector<HeadMove>& moves);

  /// Requires that a status or result is an error of that code, with a message.
  template <class AnyResult>
  static void ExpectFails(const AnyResult& result, ErrorCode code) {
    ASSERT_FALSE(result.ok());
    EXPECT_STREQ(ToString(result.error().code), ToString(code));
    EXPECT_FALSE(result.error().message.empty());
  }

  static Status Move(IObjectStore& store, const std::vector<HeadMove>& moves);
  static Result<RemovedObjects> RemoveAllBut(IObjectStore& store, std::vector<Id> kept);

  // The ids are the SHA-256 of these bytes, computed by another program.
  const StoredObject m_one = Stored(
      "437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3", {"blob 3\0one", 10});
  const StoredObject m_two = Stored(
      "9d500193ed108f2f3ad67e1870148696dce98f56644f500176a1dc1cf1634f64", {"blob 3\0two", 10});
  const StoredObject m_three = Stored(
      "b0784b7d2033618177b361977e0f1572f5d0d2a0d103cba0e6a56fe7412f9624", {"blob 5\0three", 12});
  // Commits of which each is the parent of the next.
  const StoredObject m_firstCommit =
      Stored("4b2c5f74a133b3ecaee8d2d9647ef0bf54f804aef9ea52fdb4b8f3693447b9b0",
             {"commit 58\0tree \nauthor A <a> 0 +0000\ncommitter A <a> 0 +0000\n\nfirst\n", 68});
  const StoredObject m_secondCommit =
      Stored("f3aa4a13a44b53ebdf33069aee6d81ff801b48d6937d0d1f7000c2b5374f1048",
             {"commit 131\0tree \n"
              "parent 4b2c5f74a133b3ecaee8d2d9647ef0bf54f804aef9ea52fdb4b8f3693447b9b0\n"
              "author A <a> 0 +0000\ncommitter A <a> 0 +0000\n\nsecond\n",
              142});
  const StoredObject m_thirdCommit =
      Stored("bad8f0b5ae7896da1e8b058b4103c9a84dd398dbf642bb4c0a453457ad0d052b",
             {"commit 130\0tree \n"
              "parent f3aa4a13a44b53ebdf33069aee6d81ff801b48d6937d0d1f7000c2b5374f1048\n"
              "author A <a> 0 +0000\ncommitter A <a> 0 +0000\n\nthird\n",
              141});

 private:
  static std::string Show(const Result<Buffer>& packed);

  StoreOpener m_open = GetParam().makePlace();
  std::unique_ptr<IObjectStore> m_store = m_open();
};

}  // namespace TalVcs::Kit
