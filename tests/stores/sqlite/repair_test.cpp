// Repairs of a SQLite document, and clean-ups beside others who use it.

#include <gtest/gtest.h>
#include <kit/open/copy.h>
#include <kit/open/repair.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/open/clean_up_beside.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/support/bytes.h>

#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

class SqliteRepair : public testing::Test {
 protected:
  SqliteStore OpenStore() const {
    return SqliteStore::Open(m_folder.Path() / "document.tal", {.durable = false}).value();
  }

  const TemporaryFolder m_folder;
};

TEST_F(SqliteRepair, EachDamagedObjectIsRepaired) {
  const auto good = SmallStore();
  SqliteStore store = OpenStore();
  Copy(*good, store).value();
  for (const Id& id : ObjectsOf(*good)) {
    store.Replace(std::vector<StoredObject>{{id, BufferOf("wrong")}}).value();
    EXPECT_FALSE(Verify(store).value().IsWhole());
    const RepairReport report = Repair(store, *good).value();
    EXPECT_TRUE(report.IsWhole());
    EXPECT_GE(report.repairedObjects, 1u);
    EXPECT_TRUE(Verify(store).value().IsWhole());
  }
  EXPECT_EQ(ObjectsOf(store), ObjectsOf(*good));
}

// Versions of one file are kept as differences from each other.
TEST_F(SqliteRepair, ReplacedObjectStaysTheBaseOfDifferences) {
  const StoredObject first = ObjectOf(RandomBytes(5000));
  const StoredObject second = NextVersion(first, "second");
  const StoredObject third = NextVersion(second, "third");
  SqliteStore store = OpenStore();
  store.Write(std::vector<StoredObject>{first, second, third}).value();
  store.MoveHeads({}).value();
  store.Replace(std::vector<StoredObject>{{second.id, BufferOf("wrong")}}).value();
  EXPECT_EQ(DescribeObject(store, second.id), "other bytes");
  store.Replace(std::vector<StoredObject>{first, second}).value();
  SqliteStore again = OpenStore();
  for (const StoredObject& object : {first, second, third}) {
    EXPECT_EQ(DescribeObject(again, object.id), std::to_string(object.packed.GetSize()) + " bytes");
  }
  EXPECT_EQ(ObjectsOf(again).size(), 3u);
}

TEST_F(SqliteRepair, WhatIsNoIdIsRefused) {
  SqliteStore store = OpenStore();
  const std::vector<StoredObject> objects = {kOld, {Id(Wide("none")), BufferOf("x")}};
  EXPECT_EQ(CodeOf(store.Replace(objects)), "BadName");
  EXPECT_TRUE(ObjectsOf(store).empty());
}

TEST_F(SqliteRepair, CleanUpDisturbsNeitherReadersNorAWriter) {
  CleanUpBeside([this] { return std::make_shared<SqliteStore>(OpenStore()); }).Run(20);
}

}  // namespace
}  // namespace TalVcs::Kit
