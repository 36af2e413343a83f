// Documents of which any one byte is wrong or whose end is missing.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/stores/sqlite/simulated_disk.h>

#ifndef _WIN32
#include <unistd.h>
#endif

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

constexpr char kFile[] = "/document.tal";

class SqliteDamage : public testing::Test {
 protected:
  void SetUp() override {
    SqliteStore store = SqliteStore::Open(kFile).value();
    ASSERT_TRUE(SaveOldState(store).ok());
    ASSERT_TRUE(Save(store, {m_long, m_compressed, m_next}, {{"long", Id(), m_long.id}}).ok());
    ASSERT_TRUE(store.SetValue("current", "master").ok());
    m_heads = store.Heads().value();
    ASSERT_TRUE(store.Close().ok());
    m_bytes = m_disk.Content(kFile);
  }

  /// Reads all of a document and changes it. What is read has to be right, or an error, or bytes
  /// that don't fit their id.
  void CheckWith(const std::string& bytes, const std::string& what) {
    SCOPED_TRACE(what);
    m_disk.StartWith(kFile, bytes);
    Result<SqliteStore> store = SqliteStore::Open(kFile, {.create = false});
    if (!store) {
      ++m_counts[ToString(store.error().code)];
      return;
    }
    CheckHeads(*store);
    CheckObjects(*store);
    CheckValue(*store);
    CheckChanges(*store);
  }

  void CheckHeads(SqliteStore& store) {
    const Result<std::vector<Head>> heads = store.Heads();
    ++m_counts[heads ? "heads" : std::string("heads ") + ToString(heads.error().code)];
    if (heads) {
      EXPECT_EQ(*heads, m_heads);
    }
  }

  void CheckObjects(SqliteStore& store) {
    const std::map<std::string, Id> objects = {{"of the old state", kOld.id},
                                               {"shared by both states", kShared.id},
                                               {"3000 bytes", m_long.id},
                                               {"2000 bytes", m_compressed.id},
                                               {"3001 bytes", m_next.id}};
    for (const auto& [text, id] : objects) {
      const std::string found = DescribeObject(store, id);
      EXPECT_TRUE(found == text || found == "other bytes" || found == "NotFound" ||
                  found == "Damaged" || found == "Unavailable" || found == "Unsupported")
          << found;
      ++m_counts[found == text ? "objects" : "object " + found];
    }
    std::uint64_t listed = 0;
    const Status status = store.List([&](std::span<const Id> ids) {
      listed += ids.size();
      return true;
    });
    EXPECT_TRUE(!status || listed <= 100) << listed;
  }

  void CheckValue(SqliteStore& store) {
    const Result<std::optional<std::string>> value = store.Value("current");
    if (value && *value) {
      EXPECT_EQ(**value, "master");
    }
  }

  /// A change of a damaged document may fail, but the heads stay those of either state, or an
  /// error.
  void CheckChanges(SqliteStore& store) {
    const bool saved =
        Save(store, {kNew}, {{"master", kOld.id, kNew.id}, {"topic", kShared.id, Id()}}).ok();
    const Result<std::vector<Head>> heads = store.Heads();
    if (!heads) return;
    if (saved) {
      EXPECT_EQ(*heads, (std::vector<Head>{{"long", m_long.id}, {"master", kNew.id}}));
    } else {
      EXPECT_EQ(*heads, m_heads);
    }
  }

  // Random bytes stay plain. They go on in pages of their own.
  const StoredObject m_long = ObjectOf(RandomBytes(3000));
  const StoredObject m_compressed = ObjectOf(std::string(1000, 'a') + std::string(1000, 'b'));
  // A difference from the long one.
  const StoredObject m_next = NextVersion(m_long, "c");
  SimulatedDisk m_disk;
  std::string m_bytes;
  std::vector<Head> m_heads;
  std::map<std::string, std::uint64_t> m_counts;
};

TEST_F(SqliteDamage, AnyWrongByteGivesWhatWasSavedOrAnError) {
  for (std::size_t position = 0; position < m_bytes.size(); ++position) {
    for (const int change : {position % 2 == 0 ? 0x01 : 0xFF}) {
      std::string bytes = m_bytes;
      bytes[position] = static_cast<char>(bytes[position] ^ change);
      CheckWith(bytes, "byte " + std::to_string(position) + " xor " + std::to_string(change));
    }
  }
  EXPECT_GT(m_counts["Damaged"], 50U);
  EXPECT_GT(m_counts["heads Damaged"], 100U);
  EXPECT_GT(m_counts["object Damaged"], 100U);
  EXPECT_GT(m_counts["object other bytes"], 2500U);
}

TEST_F(SqliteDamage, AnyMissingEndGivesWhatWasSavedOrAnError) {
  for (std::size_t size = 1; size < m_bytes.size(); ++size) {
    CheckWith(m_bytes.substr(0, size), "the first " + std::to_string(size) + " bytes");
  }
  EXPECT_GT(m_counts["Damaged"] + m_counts["heads Damaged"] + m_counts["object Damaged"], 5000U);
}

#ifndef _WIN32
/// While this exists, the first read of a file by SQLite fails with EIO.
class FailingRead {
 public:
  FailingRead() {
    s_isFailing = true;
    Set("read", reinterpret_cast<sqlite3_syscall_ptr>(Read));
    Set("pread", reinterpret_cast<sqlite3_syscall_ptr>(ReadAt));
    Set("pread64", reinterpret_cast<sqlite3_syscall_ptr>(ReadAt));
  }
  FailingRead(const FailingRead&) = delete;
  FailingRead& operator=(const FailingRead&) = delete;
  ~FailingRead() {
    for (const char* name : {"read", "pread", "pread64"}) Set(name, nullptr);
  }

 private:
  static bool Fails() {
    errno = EIO;
    return std::exchange(s_isFailing, false);
  }
  static ssize_t Read(int file, void* bytes, std::size_t size) {
    return Fails() ? -1 : ::read(file, bytes, size);
  }
  static ssize_t ReadAt(int file, void* bytes, std::size_t size, sqlite3_int64 position) {
    return Fails() ? -1 : ::pread(file, bytes, size, static_cast<off_t>(position));
  }
  static void Set(const char* name, sqlite3_syscall_ptr call) {
    sqlite3_vfs* const system = sqlite3_vfs_find("unix");
    EXPECT_EQ(system->xSetSystemCall(system, name, call), SQLITE_OK);
  }

  inline static bool s_isFailing = false;
};

// SQLite keeps the number of a failed read; later damage counted as one more failed read.
TEST(SqliteFailedReads, AreNoDamageAndDoNotHideLaterDamage) {
  const TemporaryFolder folder;
  const std::filesystem::path path = folder.Path() / "document.tal";
  const StoredObject object = ObjectOf(RandomBytes(3000));
  {
    SqliteStore store = SqliteStore::Open(path).value();
    ASSERT_TRUE(Save(store, {object}, {{"master", Id(), object.id}}).ok());
    ASSERT_TRUE(store.Close().ok());
  }
  SqliteStore store = SqliteStore::Open(path, {.create = false}).value();
  {
    const FailingRead read;
    EXPECT_EQ(DescribeObject(store, object.id), "Unavailable");
  }
  constexpr std::size_t kFirstPage = 512;
  const std::string damage(std::filesystem::file_size(path) - kFirstPage, '\xff');
  // A new file in its place would be opened anew.
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(kFirstPage) << damage << std::flush;
  EXPECT_EQ(DescribeObject(store, object.id), "Damaged");
}
#endif

}  // namespace
}  // namespace TalVcs::Kit
