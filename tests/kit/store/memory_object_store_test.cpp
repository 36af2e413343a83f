#include <gtest/gtest.h>
#include <kit/store/memory_object_store.h>
#include <tests/kit/store/object_store_suite.h>

#include <memory>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

INSTANTIATE_TEST_SUITE_P(Memory, ObjectStoreSuite, testing::Values(StoreKind{[] {
                           return [] { return std::make_unique<MemoryObjectStore>(); };
                         }}));

const StoredObject kOne =
    Stored("437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3", {"blob 3\0one", 10});

Buffer ReadOne(MemoryObjectStore& store) {
  Buffer bytes;
  EXPECT_TRUE(store
                  .Read({{kOne.id}},
                        [&](const Id& /*id*/, Result<Buffer> packed) { bytes = packed.value(); })
                  .ok());
  return bytes;
}

TEST(MemoryObjectStore, ObjectsShareTheBytesThatWereWritten) {
  MemoryObjectStore store;
  ASSERT_TRUE(store.Write({{kOne}}).ok());
  EXPECT_EQ(ReadOne(store).GetSegment(0).data(), kOne.packed.GetSegment(0).data());
}

TEST(MemoryObjectStore, CopyIsAStoreOfItsOwnThatSharesBytes) {
  MemoryObjectStore store;
  ASSERT_TRUE(store.Write({{kOne}}).ok());
  MemoryObjectStore copy = store;
  ASSERT_TRUE(copy.MoveHeads({{HeadMove{"master", Id(), kOne.id}}}).ok());
  EXPECT_EQ(store.Heads().value(), std::vector<Head>());
  EXPECT_EQ(ReadOne(copy).GetSegment(0).data(), ReadOne(store).GetSegment(0).data());
}

TEST(MemoryObjectStore, MovedFromStoreIsEmpty) {
  MemoryObjectStore store;
  ASSERT_TRUE(store.Write({{kOne}}).ok());
  ASSERT_TRUE(store.SetValue("name", "value").ok());
  ASSERT_TRUE(store.MoveHeads({{HeadMove{"master", Id(), kOne.id}}}).ok());
  const MemoryObjectStore taken = std::move(store);
  EXPECT_EQ(taken.GetCount(), 1U);
  EXPECT_EQ(taken.GetSizeInBytes(), 10U);
  EXPECT_EQ(store.GetCount(), 0U);
  EXPECT_TRUE(store.Heads().value().empty());
  EXPECT_FALSE(store.Value("name").value());
}

}  // namespace
}  // namespace TalVcs::Kit
