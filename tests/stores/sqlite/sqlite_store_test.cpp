#include <gtest/gtest.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/stores/sqlite/raw_file.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

/// A file that doesn't exist yet, and stores on it.
class SqliteStoreTest : public testing::Test {
 protected:
  SqliteStore Open(SqliteOptions options = {}) {
    options.busyTimeout = std::chrono::milliseconds(20);
    options.durable = false;
    return SqliteStore::Open(m_path, options).value();
  }

  const TemporaryFolder m_folder;
  const std::filesystem::path m_path = m_folder.Path() / "document.tal";
};

TEST_F(SqliteStoreTest, WrittenObjectIsInTheFileOnceHeadsHaveMoved) {
  SqliteStore store = Open();
  SqliteStore other = Open();
  ASSERT_TRUE(store.Write({{kOld}}).ok());
  EXPECT_EQ(DescribeObject(store, kOld.id), "of the old state");
  EXPECT_EQ(DescribeObject(other, kOld.id), "NotFound");
  ASSERT_TRUE(store.MoveHeads({}).ok());
  EXPECT_EQ(DescribeObject(other, kOld.id), "of the old state");
}

TEST_F(SqliteStoreTest, WrittenObjectIsInTheFileOnceTheStoreIsClosed) {
  SqliteStore store = Open();
  ASSERT_TRUE(store.Write({{kOld}}).ok());
  ASSERT_TRUE(store.Close().ok());
  SqliteStore again = Open();
  EXPECT_EQ(DescribeObject(again, kOld.id), "of the old state");
}

TEST_F(SqliteStoreTest, WrittenObjectIsInTheFileOnceTheStoreObjectEnds) {
  ASSERT_TRUE(Open().Write({{kOld}}).ok());
  SqliteStore again = Open();
  EXPECT_EQ(DescribeObject(again, kOld.id), "of the old state");
}

TEST_F(SqliteStoreTest, ObjectsThatExceedTheBufferAreInTheFileAtOnce) {
  SqliteStore store = Open({.bufferSizeBytes = 1000});
  SqliteStore other = Open();
  ASSERT_TRUE(store.Write({{kOld, kLarge, kNew}}).ok());
  EXPECT_EQ(DescribeObject(other, kOld.id), "of the old state");
  EXPECT_EQ(DescribeObject(other, kLarge.id), "20000 bytes");
  EXPECT_EQ(DescribeObject(other, kNew.id), "NotFound");
  EXPECT_EQ(DescribeObject(store, kNew.id), "of the new state");
}

TEST_F(SqliteStoreTest, ConflictKeepsWrittenObjectsForTheNextMove) {
  SqliteStore store = Open();
  SqliteStore other = Open();
  ASSERT_TRUE(SaveOldState(other).ok());
  ASSERT_TRUE(store.Write({{kNew}}).ok());
  const Status conflict = store.MoveHeads({{HeadMove{"master", Id(), kNew.id}}});
  ASSERT_FALSE(conflict.ok());
  EXPECT_EQ(conflict.error().code, ErrorCode::Conflict);
  EXPECT_EQ(DescribeObject(other, kNew.id), "NotFound");
  ASSERT_TRUE(store.MoveHeads({{HeadMove{"master", kOld.id, kNew.id}}}).ok());
  EXPECT_EQ(DescribeStore(other), "master: of the new state\ntopic: shared by both states\n");
}

TEST_F(SqliteStoreTest, NoLockIsHeldBetweenWriteAndMove) {
  SqliteStore store = Open();
  SqliteStore other = Open();
  ASSERT_TRUE(store.Write({{kNew}}).ok());
  EXPECT_TRUE(SaveOldState(other).ok());
  EXPECT_TRUE(store.MoveHeads({{HeadMove{"new", Id(), kNew.id}}}).ok());
  EXPECT_EQ(DescribeStore(other),
            "master: of the old state\nnew: of the new state\ntopic: shared by both states\n");
}

TEST_F(SqliteStoreTest, ListPassesWrittenObjectsOnce) {
  SqliteStore store = Open();
  SqliteStore other = Open();
  ASSERT_TRUE(SaveOldState(other).ok());
  ASSERT_TRUE(store.Write({{kOld, kNew}}).ok());
  std::multiset<std::string> listed;
  ASSERT_TRUE(store
                  .List([&](std::span<const Id> ids) {
                    for (const Id& id : ids) listed.insert(ToUtf8(id.View()));
                    return true;
                  })
                  .ok());
  EXPECT_EQ(listed, (std::multiset<std::string>{ToUtf8(kOld.id.View()), ToUtf8(kNew.id.View()),
                                                ToUtf8(kShared.id.View())}));
}

TEST_F(SqliteStoreTest, ReadOfManyIdsPassesEach) {
  SqliteStore store = Open();
  std::vector<StoredObject> objects;
  std::vector<Id> ids;
  for (int number = 0; number < 3000; ++number) {
    objects.push_back(ObjectOf(std::to_string(number) + std::string(1000, 'x')));
    ids.push_back(objects.back().id);
  }
  ASSERT_TRUE(store.Write(objects).ok());
  ASSERT_TRUE(store.MoveHeads({}).ok());
  std::vector<Id> passed;
  ASSERT_TRUE(store
                  .Read(ids,
                        [&](const Id& id, Result<Buffer> packed) {
                          ASSERT_TRUE(packed.ok());
                          EXPECT_EQ(Id(*packed), id);
                          passed.push_back(id);
                        })
                  .ok());
  EXPECT_EQ(passed, ids);
}

TEST_F(SqliteStoreTest, BytesInSeveralSegmentsAreStoredInOrder) {
  StoredObject object = ObjectOf("one");
  object.packed.Append(ObjectOf("two").packed);
  object.packed.Append(ObjectOf("three").packed);
  ASSERT_GT(object.packed.GetSegmentCount(), 1U);
  object.id = Id(object.packed);
  ASSERT_TRUE(Open().Write({{object}}).ok());
  SqliteStore again = Open();
  EXPECT_EQ(DescribeObject(again, object.id), "onetwothree");
}

TEST_F(SqliteStoreTest, IdsWithEqualBeginningsAreDistinguished) {
  const std::string beginning(16, 'a');
  const Id first(ToWide(beginning + std::string(48, '1')));
  const Id second(ToWide(beginning + std::string(48, '2')));
  SqliteStore store = Open();
  ASSERT_TRUE(store.Write({{StoredObject{first, kOld.packed}}}).ok());
  ASSERT_TRUE(store.MoveHeads({}).ok());
  EXPECT_EQ(store.Missing({{first, second}}).value(), std::vector<Id>{second});
  ASSERT_TRUE(store.Write({{StoredObject{second, kLarge.packed}}}).ok());
  ASSERT_TRUE(store.MoveHeads({}).ok());
  const std::vector<std::optional<std::uint64_t>> sizes = store.Sizes({{second, first}}).value();
  EXPECT_EQ(sizes, (std::vector<std::optional<std::uint64_t>>{20000, 16}));
}

TEST_F(SqliteStoreTest, MovedFromAndClosedStoreFails) {
  SqliteStore store = Open();
  ASSERT_TRUE(SaveOldState(store).ok());
  SqliteStore taken = std::move(store);
  EXPECT_EQ(DescribeStore(taken), kOldState);
  EXPECT_EQ(DescribeStore(store), "Unavailable");
  EXPECT_EQ(store.Write({{kNew}}).error().code, ErrorCode::Unavailable);
  EXPECT_EQ(store.MoveHeads({}).error().code, ErrorCode::Unavailable);
  store = std::move(taken);
  EXPECT_EQ(DescribeStore(store), kOldState);
  EXPECT_TRUE(store.Close().ok());
  EXPECT_TRUE(store.Close().ok());
  EXPECT_EQ(DescribeStore(store), "Unavailable");
}

TEST_F(SqliteStoreTest, NothingStandsBesideAClosedDocument) {
  SqliteStore store = Open();
  ASSERT_TRUE(SaveOldState(store).ok());
  ASSERT_TRUE(store.Close().ok());
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
}

TEST_F(SqliteStoreTest, RemovalInsideAMarkIsBusy) {
  SqliteStore store = Open();
  ASSERT_TRUE(SaveOldState(store).ok());
  const Result<RemovedObjects> removed =
      store.RemoveUnmarked([&](std::span<const Head> heads) -> Result<std::vector<Id>> {
        EXPECT_EQ(DescribeStore(store), kOldState);
        EXPECT_EQ(store.SetValue("name", "value").error().code, ErrorCode::Busy);
        return std::vector<Id>{heads[0].id, heads[1].id};
      });
  ASSERT_TRUE(removed.ok());
  EXPECT_EQ(removed->count, 0U);
}

TEST_F(SqliteStoreTest, ExceptionOfACallbackLeavesTheStoreUsable) {
  SqliteStore store = Open();
  SqliteStore other = Open();
  ASSERT_TRUE(SaveOldState(store).ok());
  EXPECT_THROW(
      {
        const auto ignored =
            store.RemoveUnmarked([](std::span<const Head>) -> Result<std::vector<Id>> { throw 1; });
      },
      int);
  EXPECT_THROW(
      {
        const Status ignored =
            store.Read({{kOld.id}}, [](const Id&, const Result<Buffer>&) { throw 2; });
      },
      int);
  EXPECT_TRUE(SaveNewState(other).ok());
  EXPECT_EQ(DescribeStore(store), kNewState);
}

TEST_F(SqliteStoreTest, WriterThatDoesNotEndMakesOthersBusyAfterTheTimeout) {
  SqliteStore store = Open();
  ASSERT_TRUE(SaveOldState(store).ok());
  RawFile writer(m_path);
  writer.Execute("BEGIN IMMEDIATE");
  const Status status = SaveNewState(store);
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().code, ErrorCode::Busy);
  EXPECT_EQ(DescribeStore(store), kOldState);
  writer.Execute("ROLLBACK");
  EXPECT_TRUE(SaveNewState(store).ok());
}

TEST_F(SqliteStoreTest, ReaderThatDoesNotEndMakesASaveBusyAndLosesNothing) {
  SqliteStore store = Open();
  ASSERT_TRUE(SaveOldState(store).ok());
  RawFile reader(m_path);
  reader.Execute("BEGIN; SELECT * FROM heads");
  const Status status = SaveNewState(store);
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().code, ErrorCode::Busy);
  EXPECT_EQ(DescribeStore(store), kOldState);
  reader.Execute("COMMIT");
  EXPECT_TRUE(SaveNewState(store).ok());
  EXPECT_EQ(DescribeStore(store), kNewState);
}

TEST_F(SqliteStoreTest, HeadThatChangedOutsideTheStoreIsDamage) {
  SqliteStore store = Open();
  ASSERT_TRUE(SaveOldState(store).ok());
  RawFile(m_path).Execute("DELETE FROM heads WHERE name = 'topic'");
  const Result<std::vector<Head>> heads = store.Heads();
  ASSERT_FALSE(heads.ok());
  EXPECT_EQ(heads.error().code, ErrorCode::Damaged);
  EXPECT_EQ(heads.error().heads, (std::vector<Head>{{"master", kOld.id}}));
}

TEST_F(SqliteStoreTest, ValueThatChangedOutsideTheStoreIsDamage) {
  SqliteStore store = Open();
  ASSERT_TRUE(store.SetValue("current", "master").ok());
  RawFile(m_path).Execute("UPDATE host_values SET value = CAST('topic' AS BLOB)");
  const Result<std::optional<std::string>> value = store.Value("current");
  ASSERT_FALSE(value.ok());
  EXPECT_EQ(value.error().code, ErrorCode::Damaged);
  EXPECT_EQ(value.error().subject, "current");
}

}  // namespace
}  // namespace TalVcs::Kit
