// How objects are kept: compressed, as differences, in pieces; and in documents of older versions.

#include <gtest/gtest.h>
#include <kit/store/object_codec.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/stores/sqlite/raw_file.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

class SqliteObjects : public testing::Test {
 protected:
  SqliteStore Open(SqliteOptions options = {}) {
    options.busyTimeout = std::chrono::milliseconds(20);
    options.durable = false;
    return SqliteStore::Open(m_path, options).value();
  }
  void Write(const std::vector<StoredObject>& objects, const SqliteOptions& options = {}) {
    SqliteStore store = Open(options);
    ASSERT_TRUE(store.Write(objects).ok());
    ASSERT_TRUE(store.Close().ok());
  }
  std::string Query(const std::string& statement) { return RawFile(m_path).Query(statement); }

  static std::vector<StoredObject> Versions(int count) {
    std::vector<StoredObject> versions{ObjectOf(RandomBytes(3000))};
    while (static_cast<int>(versions.size()) < count) {
      versions.push_back(NextVersion(versions.back(), "more"));
    }
    return versions;
  }
  static std::string Read(IObjectStore& store, const StoredObject& object) {
    std::string bytes;
    const Status status = store.Read({{object.id}}, [&](const Id&, Result<Buffer> packed) {
      bytes = packed ? BytesFromBuffer(*packed) : ToString(packed.error().code);
    });
    return status ? bytes : ToString(status.error().code);
  }
  static void ExpectReads(IObjectStore& store, const StoredObject& object) {
    EXPECT_EQ(Read(store, object), BytesFromBuffer(object.packed));
  }

  const TemporaryFolder m_folder;
  const std::filesystem::path m_path = m_folder.Path() / "document.tal";
};

TEST_F(SqliteObjects, ObjectIsCompressedAndHasItsPlainSize) {
  ASSERT_TRUE(ObjectEncoder::CanCompress());
  Write({kLarge});
  EXPECT_EQ(Query("SELECT size, encoding, length(data) < 200 FROM objects"), "20000 -1 1");
  SqliteStore store = Open();
  ExpectReads(store, kLarge);
  EXPECT_EQ(store.Sizes({{kLarge.id}}).value()[0], 20000U);
}

TEST_F(SqliteObjects, NextVersionIsADifferenceFromThePreviousOne) {
  const std::vector<StoredObject> versions = Versions(2);
  Write({versions[0]});
  Write({versions[1]});
  EXPECT_EQ(Query("SELECT number, size, encoding, length(data) < 200 FROM objects"),
            "1 3000 0 0\n2 3004 1 1");
  SqliteStore store = Open();
  ExpectReads(store, versions[1]);
}

TEST_F(SqliteObjects, ManyVersionsTakeLittleSpaceAndEachCanBeRead) {
  const std::vector<StoredObject> versions = Versions(200);
  {
    SqliteStore store = Open();
    for (const StoredObject& version : versions) {
      ASSERT_TRUE(Save(store, {version}, {}).ok());
    }
  }
  EXPECT_LT(std::filesystem::file_size(m_path), 80000U);
  for (std::size_t number = 0; number < versions.size(); number += 7) {
    SqliteStore store = Open();
    ExpectReads(store, versions[number]);
  }
}

TEST_F(SqliteObjects, WithoutCompressionObjectsStayPlain) {
  const std::vector<StoredObject> versions = Versions(2);
  Write({kLarge, versions[0], versions[1]}, {.compress = false});
  EXPECT_EQ(Query("SELECT encoding, length(data) FROM objects"), "0 20000\n0 3000\n0 3004");
}

TEST_F(SqliteObjects, VersionsWhoseBasesAreRemovedAreKept) {
  const std::vector<StoredObject> versions = Versions(20);
  Write(versions);
  SqliteStore store = Open();
  const Result<RemovedObjects> removed = store.RemoveUnmarked([&](auto) -> Result<std::vector<Id>> {
    return std::vector<Id>{versions[3].id, versions[7].id, versions[19].id};
  });
  ASSERT_TRUE(removed.ok());
  EXPECT_EQ(removed->count, 17U);
  // 20 * 3000 + 4 * (0 + 1 + ... + 19), without 3012, 3028 and 3076.
  EXPECT_EQ(removed->sizeBytes, 60760U - 9116U);
  for (const int kept : {3, 7, 19}) ExpectReads(store, versions[static_cast<std::size_t>(kept)]);
  SqliteStore again = Open();
  for (const int kept : {3, 7, 19}) ExpectReads(again, versions[static_cast<std::size_t>(kept)]);
  EXPECT_EQ(Query("SELECT count(*) FROM objects WHERE encoding > 0"
                  " AND encoding NOT IN (SELECT number FROM objects)"),
            "0");
}

TEST_F(SqliteObjects, BaseThatAnotherStoreObjectRemovedIsNotUsed) {
  const std::vector<StoredObject> versions = Versions(2);
  SqliteStore store = Open();
  SqliteStore other = Open();
  ASSERT_TRUE(Save(store, {versions[0]}, {}).ok());
  ASSERT_EQ(other.RemoveUnmarked([](auto) { return std::vector<Id>(); }).value().count, 1U);
  ASSERT_TRUE(Save(store, {versions[1]}, {}).ok());
  ExpectReads(other, versions[1]);
}

// The first store object remembers a base that begins a group; in the document it is a difference
// itself by then.
TEST_F(SqliteObjects, BaseThatAnotherStoreObjectWroteAgainElsewhereIsNotUsedThere) {
  const std::vector<StoredObject> versions = Versions(4);
  StoredObject alone = versions[1];
  alone.previous = Id();
  SqliteStore store = Open();
  SqliteStore other = Open();
  ASSERT_TRUE(Save(store, {alone}, {}).ok());
  ASSERT_EQ(other.RemoveUnmarked([](auto) { return std::vector<Id>(); }).value().count, 1U);
  ASSERT_TRUE(Save(other, {versions[0], versions[1]}, {}).ok());
  ASSERT_TRUE(Save(store, {versions[2], versions[3]}, {}).ok());
  SqliteStore again = Open();
  for (const StoredObject& version : versions) ExpectReads(again, version);
  EXPECT_EQ(Query("SELECT count(*) FROM objects WHERE encoding > 0"), "2");
}

TEST_F(SqliteObjects, VersionAfterOneThatWasDamagedMeanwhileIsKeptByItself) {
  const std::vector<StoredObject> versions = Versions(2);
  SqliteStore store = Open();
  ASSERT_TRUE(Save(store, {versions[0]}, {}).ok());
  RawFile(m_path).Execute("UPDATE objects SET size = -1");
  ASSERT_TRUE(Save(store, {versions[1]}, {}).ok());
  SqliteStore again = Open();
  ExpectReads(again, versions[1]);
  EXPECT_EQ(Read(again, versions[0]), "Damaged");
}

TEST_F(SqliteObjects, DifferenceWithoutItsBaseIsDamaged) {
  const std::vector<StoredObject> versions = Versions(2);
  Write(versions);
  RawFile(m_path).Execute("DELETE FROM objects WHERE number = 1");
  SqliteStore store = Open();
  EXPECT_EQ(Read(store, versions[1]), "Damaged");
}

TEST_F(SqliteObjects, RowsThatNoStoreWritesAreDamaged) {
  Write({kOld});
  for (const char* change :
       {"encoding = -2", "encoding = 'x'", "size = -1", "size = 15", "data = 2", "data = 'text'",
        "data = X''", "encoding = -1", "encoding = 1", "encoding = 7"}) {
    RawFile file(m_path);
    const std::string before = file.Query("SELECT size, encoding, quote(data) FROM objects");
    file.Execute(("UPDATE objects SET " + std::string(change)).c_str());
    SqliteStore store = Open();
    const std::string found = Read(store, kOld);
    EXPECT_TRUE(found == "Damaged" || found == "Unsupported") << change << ": " << found;
    file.Execute(
        "UPDATE objects SET size = 16, encoding = 0,"
        " data = CAST('of the old state' AS BLOB)");
    EXPECT_EQ(file.Query("SELECT size, encoding, quote(data) FROM objects"), before);
  }
}

TEST_F(SqliteObjects, LongObjectIsInPieces) {
  const StoredObject object = ObjectOf(RandomBytes(9 << 20));
  Write({kOld, object});
  EXPECT_EQ(Query("SELECT size, encoding, data, typeof(data) FROM objects WHERE number = 2"),
            "9437184 0 3 integer");
  EXPECT_EQ(Query("SELECT object, piece, length(data) FROM pieces"),
            "2 0 4194304\n2 1 4194304\n2 2 1048576");
  SqliteStore store = Open();
  EXPECT_TRUE(Read(store, object) == BytesFromBuffer(object.packed));
  EXPECT_EQ(store.Sizes({{object.id}}).value()[0], std::uint64_t{9} << 20);
  RawFile(m_path).Execute("UPDATE pieces SET piece = 5 WHERE piece = 1");
  EXPECT_EQ(Read(store, object), "Damaged");
  ASSERT_TRUE(store.RemoveUnmarked([](auto) { return std::vector<Id>{kOld.id}; }).ok());
  EXPECT_EQ(Query("SELECT count(*) FROM pieces"), "0");
}

TEST_F(SqliteObjects, DocumentOfTheFirstVersionIsReadAndStaysAsItIs) {
  {
    RawFile file(m_path);
    MakeFirstVersion(file);
  }
  const std::string bytes = ReadWhole(m_path);
  for (const bool read_only : {true, false}) {
    SqliteStore store = Open({.readOnly = read_only});
    EXPECT_EQ(DescribeStore(store), kOldState);
    EXPECT_EQ(store.Value("current").value(), "master");
    EXPECT_EQ(store.Missing({{kOld.id, kNew.id}}).value(), std::vector<Id>{kNew.id});
  }
  EXPECT_TRUE(ReadWhole(m_path) == bytes);
}

TEST_F(SqliteObjects, FirstWriteUpdatesADocumentOfTheFirstVersion) {
  {
    RawFile file(m_path);
    MakeFirstVersion(file);
  }
  SqliteStore reader = Open();
  ASSERT_EQ(DescribeStore(reader), kOldState);
  {
    SqliteStore store = Open();
    ASSERT_TRUE(SaveNewState(store).ok());
  }
  EXPECT_EQ(Query("PRAGMA user_version"), "2");
  EXPECT_EQ(Query("SELECT encoding, size FROM objects"), "0 21\n0 16\n0 16\n-1 20000");
  EXPECT_EQ(DescribeStore(reader), kNewState);
  EXPECT_EQ(DescribeFile(m_path), kNewState);
  EXPECT_EQ(Open().Value("current").value(), "master");
}

TEST_F(SqliteObjects, StoreObjectThatWasOpenRefusesToWriteOnceTheVersionIsNewer) {
  SqliteStore store = Open();
  ASSERT_TRUE(SaveOldState(store).ok());
  RawFile(m_path).Execute("PRAGMA user_version = 3");
  const Status status = SaveNewState(store);
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().code, ErrorCode::Unsupported);
}

TEST_F(SqliteObjects, RemovedBytesAreOverwrittenOnRequest) {
  const StoredObject secret = ObjectOf(RandomBytes(5000, 7));
  for (const bool overwrites : {true, false}) {
    std::filesystem::remove(m_path);
    SqliteStore store = Open({.secureDelete = overwrites});
    ASSERT_TRUE(Save(store, {kOld, secret, kNew}, {}).ok());
    ASSERT_TRUE(store.RemoveUnmarked([](auto) { return std::vector<Id>{kOld.id, kNew.id}; }).ok());
    ASSERT_TRUE(store.Close().ok());
    const std::string file = ReadWhole(m_path);
    const std::string bytes = RandomBytes(5000, 7);
    int found = 0;
    for (std::size_t position = 0; position < bytes.size(); position += 50) {
      if (file.find(bytes.substr(position, 50)) != std::string::npos) ++found;
    }
    if (overwrites) {
      EXPECT_EQ(found, 0);
    } else {
      EXPECT_GT(found, 50);
    }
  }
}

}  // namespace
}  // namespace TalVcs::Kit
