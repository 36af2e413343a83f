#include <gtest/gtest.h>
#include <kit/store/memory_object_store.h>
#include <tests/kit/store/faulty_object_store.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/support/bytes.h>

#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::Bytes;
using Testing::FaultyObjectStore;

class FaultyObjectStoreTest : public testing::Test {
 protected:
  std::string ReadOne() {
    std::string shown;
    const Status status = m_faulty.Read({{m_one.id}}, [&](const Id& /*id*/, Result<Buffer> packed) {
      shown = packed ? Bytes(*packed) : ToString(packed.error().code);
    });
    return status ? shown : "failed";
  }

  const StoredObject m_one = Stored(
      "437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3", {"blob 3\0one", 10});
  MemoryObjectStore m_store;
  FaultyObjectStore m_faulty{m_store};
};

TEST_F(FaultyObjectStoreTest, FailsTheChosenCallsAndRecordsAll) {
  m_faulty.FailFrom(2, 2);
  m_faulty.FailWith(ErrorCode::Full);
  EXPECT_TRUE(m_faulty.Missing({{m_one.id}}).ok());
  EXPECT_FALSE(m_faulty.HasFailed());
  EXPECT_EQ(m_faulty.Write({{m_one}}).error().code, ErrorCode::Full);
  EXPECT_EQ(m_faulty.Heads().error().code, ErrorCode::Full);
  EXPECT_TRUE(m_faulty.SetValue("current", "master").ok());
  EXPECT_TRUE(m_faulty.HasFailed());
  EXPECT_EQ(m_faulty.Log(),
            (std::vector<std::string>{"Missing 1", "Write 1", "Heads", "SetValue current"}));
  EXPECT_EQ(m_faulty.CallsOf("Write"), 1);
  EXPECT_EQ(m_store.GetCount(), 0U);
}

TEST_F(FaultyObjectStoreTest, CallThatFailsAfterwardsHasDoneItsWork) {
  m_faulty.FailFrom(1);
  m_faulty.FailAfterwards();
  m_faulty.FailWith(ErrorCode::Unknown);
  EXPECT_EQ(m_faulty.Write({{m_one}}).error().code, ErrorCode::Unknown);
  EXPECT_EQ(m_store.GetCount(), 1U);
}

TEST_F(FaultyObjectStoreTest, ChosenObjectsFailUntilTheyAreHealed) {
  ASSERT_TRUE(m_store.Write({{m_one}}).ok());
  m_faulty.FailObject(m_one.id, ErrorCode::Damaged);
  EXPECT_EQ(ReadOne(), "Damaged");
  m_faulty.ReplaceObject(m_one.id, Testing::BufferOf("other"));
  EXPECT_EQ(ReadOne(), "other");
  m_faulty.Heal();
  EXPECT_EQ(ReadOne(), std::string("blob 3\0one", 10));
  EXPECT_EQ(m_faulty.ReadCount(), 3U);
}

TEST_F(FaultyObjectStoreTest, HistoryEndsAfterAChosenObject) {
  const StoredObject parent =
      Stored("4b2c5f74a133b3ecaee8d2d9647ef0bf54f804aef9ea52fdb4b8f3693447b9b0",
             {"commit 58\0tree \nauthor A <a> 0 +0000\ncommitter A <a> 0 +0000\n\nfirst\n", 68});
  const StoredObject commit =
      Stored("f3aa4a13a44b53ebdf33069aee6d81ff801b48d6937d0d1f7000c2b5374f1048",
             {"commit 131\0tree \n"
              "parent 4b2c5f74a133b3ecaee8d2d9647ef0bf54f804aef9ea52fdb4b8f3693447b9b0\n"
              "author A <a> 0 +0000\ncommitter A <a> 0 +0000\n\nsecond\n",
              142});
  ASSERT_TRUE(m_store.Write({{commit, parent}}).ok());
  m_faulty.FailObject(commit.id, ErrorCode::Damaged);
  std::vector<std::string> codes;
  ASSERT_TRUE(m_faulty
                  .ReadHistory(commit.id, 10,
                               [&](const Id& /*id*/, Result<Buffer> packed) {
                                 codes.emplace_back(packed ? "" : ToString(packed.error().code));
                               })
                  .ok());
  EXPECT_EQ(codes, std::vector<std::string>{"Damaged"});
}

TEST_F(FaultyObjectStoreTest, CallIsInterruptedBeforeItsWork) {
  m_faulty.InterruptAt(1, [&] { ASSERT_TRUE(m_store.Write({{m_one}}).ok()); });
  EXPECT_TRUE(m_faulty.Missing({{m_one.id}}).value().empty());
}

}  // namespace
}  // namespace TalVcs::Kit
