// Documents that come from a stranger or a file synchroniser, with what lies beside them.

#include <gtest/gtest.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/stores/sqlite/raw_file.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#ifndef _WIN32
#include <sys/stat.h>
#include <tests/support/child_process.h>
#endif

namespace TalVcs::Kit {
namespace {

using namespace Testing;
namespace fs = std::filesystem;

constexpr SqliteOptions kQuick{.durable = false, .busyTimeout = std::chrono::milliseconds(20)};
constexpr SqliteOptions kWithLog{.durable = false,
                                 .busyTimeout = std::chrono::milliseconds(20),
                                 .journalMode = SqliteJournalMode::WriteAheadLog};

class SqliteStrangers : public testing::Test {
 protected:
  void SetUp() override {
    SqliteStore store = SqliteStore::Open(m_path, kQuick).value();
    ASSERT_TRUE(SaveOldState(store).ok());
  }
  fs::path Beside(const char* ending) const { return m_path.string() + ending; }
  void ExpectFails(ErrorCode code, std::string_view reason) {
    const Result<SqliteStore> store = SqliteStore::Open(m_path, kQuick);
    ASSERT_FALSE(store.ok());
    EXPECT_EQ(store.error().code, code) << Describe(store.error());
    EXPECT_NE(store.error().message.find(reason), std::string::npos) << store.error().message;
  }

  const TemporaryFolder m_folder;
  const fs::path m_path = m_folder.Path() / "document.tal";
};

std::string BytesOf(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}

const std::string kMagic = "\xD9\xD5\x05\xF9\x20\xA1\x63\xD7";

/// Returns a journal without pages, of a file of so many pages of 512 bytes.
std::string JournalOf(std::uint32_t pages) {
  std::string journal =
      kMagic + BytesOf(0) + BytesOf(0) + BytesOf(pages) + BytesOf(512) + BytesOf(512);
  journal.resize(512);
  return journal;
}

/// Returns the end of a journal of a change of several files.
std::string EndNaming(const std::string& name) {
  std::uint32_t sum = 0;
  for (const char character : name) sum += static_cast<std::uint32_t>(character);
  return BytesOf((1U << 30) / 512 + 1) + name + BytesOf(static_cast<std::uint32_t>(name.size())) +
         BytesOf(sum) + kMagic;
}

// SQLite removes the file that the journal names.
TEST_F(SqliteStrangers, JournalThatNamesAnotherFileIsRefused) {
  const fs::path other = m_folder.Path() / "letter.txt";
  WriteWhole(other, "of the user");
  const std::string document = ReadWhole(m_path);
  const auto pages = static_cast<std::uint32_t>(document.size() / 512);
  const std::string journal = JournalOf(pages) + EndNaming(other.string());
  WriteWhole(Beside("-journal"), journal);
  ExpectFails(ErrorCode::Damaged, "belongs to a change of several files");
  EXPECT_EQ(ReadWhole(other), "of the user");
  EXPECT_EQ(ReadWhole(m_path), document);
  EXPECT_EQ(ReadWhole(Beside("-journal")), journal);
}

TEST_F(SqliteStrangers, JournalThatMakesTheFileLongIsRefused) {
  const std::string document = ReadWhole(m_path);
  WriteWhole(Beside("-journal"), JournalOf(1U << 22));
  ExpectFails(ErrorCode::Damaged, "the journal beside it is damaged");
  EXPECT_EQ(ReadWhole(m_path), document);
}

TEST_F(SqliteStrangers, JournalWithoutPagesIsUndone) {
  const auto pages = static_cast<std::uint32_t>(fs::file_size(m_path) / 512);
  WriteWhole(Beside("-journal"), JournalOf(pages));
  EXPECT_EQ(DescribeFile(m_path, kQuick), kOldState);
  EXPECT_FALSE(fs::exists(Beside("-journal")));
}

TEST_F(SqliteStrangers, FurtherIndexOfATableIsRefused) {
  RawFile(m_path).Execute("CREATE INDEX other ON Objects(hex(size))");
  ExpectFails(ErrorCode::Damaged, "its tables have indexes of others");
}

TEST_F(SqliteStrangers, TableWithAGeneratedColumnIsRefused) {
  RawFile(m_path).Execute("ALTER TABLE heads ADD COLUMN more AS (hex(zeroblob(100000000)))");
  ExpectFails(ErrorCode::Damaged, "its tables aren't those of a document");
}

TEST_F(SqliteStrangers, TextInPlaceOfANumberIsDamage) {
  RawFile(m_path).Execute(
      "UPDATE meta SET value = 'x' || hex(zeroblob(5000000)) WHERE name = 'heads'");
  EXPECT_EQ(DescribeFile(m_path, kQuick), "Damaged");
  RawFile(m_path).Execute("UPDATE meta SET value = 'x' WHERE name = 'removals'");
  SqliteStore store = SqliteStore::Open(m_path, kQuick).value();
  EXPECT_EQ(store.Write({{kNew}}).error().code, ErrorCode::Damaged);
}

// Three equal rows have the sum of one.
TEST_F(SqliteStrangers, BranchThatComesThreeTimesIsDamage) {
  RawFile(m_path).Execute(
      "CREATE TABLE others(name TEXT, id BLOB); CREATE INDEX by_name ON others(name, id);"
      "INSERT INTO others SELECT h.name, h.id FROM heads AS h, (VALUES(1), (2), (3));"
      "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET rootpage ="
      " (SELECT rootpage FROM sqlite_schema WHERE name = 'by_name') WHERE name = 'heads'");
  SqliteStore store = SqliteStore::Open(m_path, kQuick).value();
  const Result<std::vector<Head>> heads = store.Heads();
  ASSERT_FALSE(heads.ok());
  EXPECT_EQ(heads.error().code, ErrorCode::Damaged);
  EXPECT_EQ(heads.error().heads, (std::vector<Head>{{"master", kOld.id}}));
}

TEST_F(SqliteStrangers, RowsThatDoNotAscendEndAListingAndARemoval) {
  std::string document = ReadWhole(m_path);
  // The row of 55 bytes with the number 2, and the types of its columns.
  const std::string_view cell("\x37\x02\x06\x00\x4C\x01\x08\x2C", 8);
  const std::size_t place = document.find(cell);
  ASSERT_NE(place, document.npos);
  document[place + 1] = 1;
  WriteWhole(m_path, document);
  SqliteStore store = SqliteStore::Open(m_path, kQuick).value();
  EXPECT_EQ(store.List([](std::span<const Id>) { return true; }).error().code, ErrorCode::Damaged);
  EXPECT_EQ(store.RemoveUnmarked([](auto) { return std::vector<Id>(); }).error().code,
            ErrorCode::Damaged);
}

#ifndef _WIN32
// SQLite would write to the file that the link names, or read from it.
TEST_F(SqliteStrangers, LinkBesideTheDocumentIsRefusedAndItsTargetStays) {
  const fs::path target = m_folder.Path() / "letter.txt";
  for (const char* ending : {"-journal", "-wal", "-shm"}) {
    fs::create_symlink(target, Beside(ending));
    ExpectFails(ErrorCode::Damaged, "beside it is not a file");
    EXPECT_FALSE(fs::exists(target));
    WriteWhole(target, "of the user");
    ExpectFails(ErrorCode::Damaged, "beside it is not a file");
    EXPECT_EQ(ReadWhole(target), "of the user");
    fs::remove(target);
    fs::remove(Beside(ending));
  }
  EXPECT_EQ(DescribeFile(m_path, kQuick), kOldState);
}

TEST_F(SqliteStrangers, PipeDoesNotWait) {
  for (const char* ending : {"-journal", "-wal"}) {
    ASSERT_EQ(::mkfifo(Beside(ending).c_str(), 0600), 0);
    ExpectFails(ErrorCode::Damaged, "beside it is not a file");
    fs::remove(Beside(ending));
  }
  fs::remove(m_path);
  ASSERT_EQ(::mkfifo(m_path.c_str(), 0600), 0);
  ExpectFails(ErrorCode::Unsupported, "it is not a file");
  EXPECT_EQ(DescribeFile(m_path, {.readOnly = true}), "Unsupported");
}

/// A document in use: the file, and the log beside it.
struct InUse {
  std::string file;
  std::string log;
};

class SqliteMoments : public SqliteStrangers {
 protected:
  /// Lets a process use the document, which ends before it closes it. Returns what is there then.
  InUse UseAndDie(const std::function<bool(SqliteStore&)>& use) {
    const int code = InChild([&] {
      auto store = std::make_unique<SqliteStore>(SqliteStore::Open(m_path, kWithLog).value());
      return use(*store.release()) ? 0 : 1;
    });
    EXPECT_EQ(code, 0);
    return {ReadWhole(m_path), ReadWhole(Beside("-wal"))};
  }
  void Put(const std::string& file, const std::string& log) {
    fs::remove(Beside("-shm"));
    WriteWhole(m_path, file);
    WriteWhole(Beside("-wal"), log);
  }
  void CopyLogToFile() const { RawFile(m_path).Execute("PRAGMA wal_checkpoint(FULL)"); }
  void ExpectRefused(const std::string& file, const std::string& log) {
    Put(file, log);
    ExpectFails(ErrorCode::Damaged, "document.tal-wal\" belongs to another version");
    EXPECT_TRUE(ReadWhole(m_path) == file);
    EXPECT_TRUE(ReadWhole(Beside("-wal")) == log);
  }
};

TEST_F(SqliteMoments, LogOfAnotherMomentOfADocumentInUseIsRefused) {
  const InUse first = UseAndDie([](SqliteStore& store) { return SaveNewState(store).ok(); });
  const InUse second = UseAndDie([this](SqliteStore& store) {
    const bool is_set = store.SetValue("current", "master").ok();
    CopyLogToFile();
    return is_set && store.SetValue("current", "large").ok();
  });
  ASSERT_EQ(first.file.substr(18, 2), "\x02\x02");
  ASSERT_EQ(second.file.substr(18, 2), "\x02\x02");
  ExpectRefused(first.file, second.log);
  ExpectRefused(second.file, first.log);
  Put(first.file, first.log);
  EXPECT_EQ(DescribeFile(m_path), kNewState);
  Put(second.file, second.log);
  SqliteStore store = SqliteStore::Open(m_path, kQuick).value();
  EXPECT_EQ(DescribeStore(store), kNewState);
  EXPECT_EQ(store.Value("current").value(), "large");
}

// Both computers began with the same closed document.
TEST_F(SqliteMoments, LogOfAnotherComputerIsRefused) {
  const std::string closed = ReadWhole(m_path);
  const auto save = [](SqliteStore& store) { return SaveNewState(store).ok(); };
  const InUse here = UseAndDie(save);
  Put(closed, "");
  const InUse there = UseAndDie(save);
  ExpectRefused(here.file, there.log);
  ExpectRefused(there.file, here.log);
}

TEST_F(SqliteMoments, LogBelongsToTheDocumentHoweverMuchOfItIsInTheFile) {
  const InUse before = UseAndDie([](SqliteStore& store) { return SaveNewState(store).ok(); });
  const InUse after = UseAndDie([this](SqliteStore& store) {
    CopyLogToFile();
    return DescribeStore(store) == kNewState;
  });
  for (const std::string& file : {before.file, after.file}) {
    Put(file, after.log);
    EXPECT_EQ(DescribeFile(m_path), kNewState);
  }
}

TEST_F(SqliteMoments, DocumentInUseOpensThroughALinkInAnotherFolder) {
  UseAndDie([](SqliteStore& store) { return SaveNewState(store).ok(); });
  const TemporaryFolder elsewhere;
  const fs::path link = elsewhere.Path() / "link.tal";
  fs::create_symlink(m_path, link);
  EXPECT_EQ(DescribeFile(link), kNewState);
}
#endif

}  // namespace
}  // namespace TalVcs::Kit
