// The file of a document: its write-ahead log, its size, its compaction, places that lack
// something.

#include <gtest/gtest.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/stores/sqlite/raw_file.h>
#include <tests/stores/sqlite/simulated_disk.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#ifndef _WIN32
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace TalVcs::Kit {
namespace {

using namespace Testing;

constexpr SqliteOptions kWithLog{.durable = false,
                                 .busyTimeout = std::chrono::milliseconds(20),
                                 .journalMode = SqliteJournalMode::WriteAheadLog};
constexpr SqliteOptions kWithoutLog{.durable = false, .busyTimeout = std::chrono::milliseconds(20)};

class SqliteFile : public testing::Test {
 protected:
  SqliteStore Open(const SqliteOptions& options = kWithoutLog) {
    return SqliteStore::Open(m_path, options).value();
  }
  void SaveDocument() {
    SqliteStore store = Open();
    ASSERT_TRUE(SaveOldState(store).ok());
  }
  std::filesystem::path Beside(const char* ending) const { return m_path.string() + ending; }
  /// Writes two megabytes that no head names.
  void WriteMuch() {
    SqliteStore store = Open();
    for (unsigned seed = 0; seed < 200; ++seed) {
      ASSERT_TRUE(store.Write({{ObjectOf(RandomBytes(10000, seed))}}).ok());
    }
    ASSERT_TRUE(store.Close().ok());
  }
  static void RemoveUnnamed(SqliteStore& store) {
    const Result<RemovedObjects> removed =
        store.RemoveUnmarked([](std::span<const Head> heads) -> Result<std::vector<Id>> {
          std::vector<Id> marked;
          for (const Head& head : heads) marked.push_back(head.id);
          return marked;
        });
    ASSERT_TRUE(removed.ok());
  }
#ifndef _WIN32
  /// Saves the new state with a log in a process that ends before it closes the store.
  void SaveNewStateAndDie(bool isInFile) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      SqliteStore store = Open(kWithLog);
      const bool saved = SaveNewState(store).ok();
      if (isInFile) RawFile(m_path).Execute("PRAGMA wal_checkpoint(FULL)");
      ::_exit(saved ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
  }
#endif

  const TemporaryFolder m_folder;
  const std::filesystem::path m_path = m_folder.Path() / "document.tal";
};

using SqliteLog = SqliteFile;

void PutNumber(std::string& bytes, std::size_t position, std::uint32_t number) {
  for (std::size_t index = 0; index < 4; ++index) {
    bytes[position + index] = static_cast<char>(number >> (24 - 8 * index));
  }
}

/// Adds bytes to the two sums of a log, whose words have their lowest byte first.
void AddToSums(const std::string& bytes, std::size_t from, std::size_t size,
               std::array<std::uint32_t, 2>& sums) {
  for (std::size_t word = 0; word < size / 4; ++word) {
    std::uint32_t number = 0;
    for (std::size_t index = 4; index-- > 0;) {
      number = number << 8 | static_cast<unsigned char>(bytes[from + 4 * word + index]);
    }
    sums[word % 2] += number + sums[1 - word % 2];
  }
}

/// Returns a log of pages of 512 bytes in which each transaction says that the file has so many
/// pages at its end, with the sums that fit.
std::string LogWithPageCount(std::string log, std::uint32_t count) {
  constexpr std::size_t kFrame = 24 + 512;
  std::array<std::uint32_t, 2> sums{};
  AddToSums(log, 0, 24, sums);
  for (std::size_t at = 32; at + kFrame <= log.size(); at += kFrame) {
    if (log.substr(at + 4, 4) != std::string(4, '\0')) PutNumber(log, at + 4, count);
    AddToSums(log, at, 8, sums);
    AddToSums(log, at + 24, 512, sums);
    PutNumber(log, at + 16, sums[0]);
    PutNumber(log, at + 20, sums[1]);
  }
  return log;
}

TEST_F(SqliteLog, NothingIsBesideAClosedDocument) {
  SqliteStore store = Open(kWithLog);
  ASSERT_TRUE(SaveOldState(store).ok());
  EXPECT_TRUE(std::filesystem::exists(Beside("-wal")));
  ASSERT_TRUE(store.Close().ok());
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
  // The file says that it has no log, so that programs that only read can open it.
  EXPECT_EQ(ReadWhole(m_path).substr(18, 2), "\x01\x01");
  EXPECT_EQ(DescribeFile(m_path, {.readOnly = true}), kOldState);
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
}

TEST_F(SqliteLog, ReadersAndAWriterDoNotWaitForEachOther) {
  SaveDocument();
  SqliteStore store = Open(kWithLog);
  {
    RawFile reader(m_path);
    reader.Execute("BEGIN; SELECT * FROM heads");
    ASSERT_TRUE(SaveNewState(store).ok());
    EXPECT_EQ(reader.Query("SELECT name FROM heads"), "master\ntopic");
    reader.Execute("COMMIT");
    RawFile writer(m_path);
    writer.Execute("BEGIN IMMEDIATE");
    EXPECT_EQ(DescribeStore(store), kNewState);
  }
  ASSERT_TRUE(store.Close().ok());
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
}

TEST_F(SqliteLog, LastStoreObjectThatClosesRemovesTheLog) {
  SqliteStore first = Open(kWithLog);
  SqliteStore second = Open(kWithoutLog);
  ASSERT_TRUE(SaveOldState(first).ok());
  ASSERT_TRUE(first.Close().ok());
  EXPECT_TRUE(std::filesystem::exists(Beside("-wal")));
  ASSERT_TRUE(SaveNewState(second).ok());
  ASSERT_TRUE(second.Close().ok());
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
  EXPECT_EQ(DescribeFile(m_path), kNewState);
}

TEST_F(SqliteLog, StaysShortDuringALongImport) {
  SqliteOptions options = kWithLog;
  options.bufferSizeBytes = 1 << 20;
  SqliteStore store = Open(options);
  const std::string block = RandomBytes(100000);
  std::uintmax_t longest = 0;
  for (int number = 0; number < 200; ++number) {
    ASSERT_TRUE(store.Write({{ObjectOf(std::to_string(number) + block)}}).ok());
    if (std::filesystem::exists(Beside("-wal"))) {
      longest = std::max(longest, std::filesystem::file_size(Beside("-wal")));
    }
  }
  EXPECT_GT(longest, 1U << 20);
  EXPECT_LT(longest, 4U << 20);
  EXPECT_GT(std::filesystem::file_size(m_path), 15U << 20);
}

#ifndef _WIN32
TEST_F(SqliteLog, LogOfAProgramThatDiedIsReadAndRemoved) {
  SaveDocument();
  SaveNewStateAndDie(false);
  EXPECT_GT(CountFiles(m_folder.Path()), 1);
  EXPECT_EQ(DescribeFile(m_path), kNewState);
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
}

TEST_F(SqliteLog, DocumentWithoutItsLogIsRefusedUntilTheLogIsBack) {
  for (const bool is_in_file : {false, true}) {
    std::filesystem::remove(m_path);
    SaveDocument();
    SaveNewStateAndDie(is_in_file);
    const std::filesystem::path elsewhere = m_folder.Path() / "elsewhere";
    std::filesystem::rename(Beside("-wal"), elsewhere);
    SqliteOptions only_read = kWithoutLog;
    only_read.readOnly = true;
    // An empty log that an opening leaves would be taken for the missing one by the next.
    for (const SqliteOptions& options : {kWithoutLog, only_read, kWithLog, kWithoutLog}) {
      const Result<SqliteStore> store = SqliteStore::Open(m_path, options);
      ASSERT_FALSE(store.ok());
      EXPECT_EQ(store.error().code, ErrorCode::Damaged);
      EXPECT_NE(store.error().message.find("document.tal-wal\", is missing"), std::string::npos);
      EXPECT_EQ(CountFiles(m_folder.Path()), 2);
    }
    std::filesystem::rename(elsewhere, Beside("-wal"));
    EXPECT_EQ(DescribeFile(m_path), kNewState);
    EXPECT_EQ(CountFiles(m_folder.Path()), 1);
  }
}

// A file synchroniser has put another version in the place of the document and left the log.
TEST_F(SqliteLog, LogOfAnotherVersionIsRefusedAndStays) {
  SaveDocument();
  const std::string other = ReadWhole(m_path);
  SaveNewStateAndDie(false);
  const std::string log = ReadWhole(Beside("-wal"));
  WriteWhole(m_path, other);
  const Result<SqliteStore> store = SqliteStore::Open(m_path);
  ASSERT_FALSE(store.ok());
  EXPECT_EQ(store.error().code, ErrorCode::Damaged);
  EXPECT_NE(store.error().message.find("document.tal-wal\" belongs to another version"),
            std::string::npos);
  EXPECT_EQ(ReadWhole(m_path), other);
  EXPECT_EQ(ReadWhole(Beside("-wal")), log);
  std::filesystem::remove(Beside("-wal"));
  std::filesystem::remove(Beside("-shm"));
  EXPECT_EQ(DescribeFile(m_path), kOldState);
}

// After a loss of power the file may say that it has no log although the log is still there.
TEST_F(SqliteLog, LogWithoutNewsIsNoHarm) {
  SaveDocument();
  SaveNewStateAndDie(true);
  std::string file = ReadWhole(m_path);
  ASSERT_EQ(file.substr(18, 2), "\x02\x02");
  WriteWhole(m_path, file.replace(18, 2, "\x01\x01"));
  EXPECT_EQ(DescribeFile(m_path), kNewState);
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
}

TEST_F(SqliteLog, IncompleteLogOfAnotherVersionIsNoHarm) {
  SaveDocument();
  const std::string other = ReadWhole(m_path);
  SaveNewStateAndDie(false);
  const std::string log = ReadWhole(Beside("-wal"));
  for (const std::size_t size : {std::size_t{1}, std::size_t{32}, std::size_t{32 + 24 + 512 - 1}}) {
    std::filesystem::remove(Beside("-shm"));
    WriteWhole(m_path, other);
    WriteWhole(Beside("-wal"), log.substr(0, size));
    EXPECT_EQ(DescribeFile(m_path), kOldState) << size;
  }
}

TEST_F(SqliteLog, LogThatMakesTheFileLongIsRefused) {
  SaveDocument();
  SaveNewStateAndDie(false);
  constexpr std::uint32_t kPages = 1U << 30;
  std::string document = ReadWhole(m_path);
  PutNumber(document, 28, kPages);
  WriteWhole(m_path, document);
  WriteWhole(Beside("-wal"), LogWithPageCount(ReadWhole(Beside("-wal")), kPages));
  std::filesystem::remove(Beside("-shm"));
  const Result<SqliteStore> store = SqliteStore::Open(m_path);
  ASSERT_FALSE(store.ok());
  EXPECT_EQ(store.error().code, ErrorCode::Damaged);
  EXPECT_EQ(ReadWhole(m_path), document);
}

TEST_F(SqliteLog, DocumentWhoseLogAnotherProgramRemovedOpensOnRequest) {
  SaveDocument();
  SaveNewStateAndDie(false);
  EXPECT_EQ(RawFile(m_path).Query("SELECT name FROM heads"), "large\nmaster");
  ASSERT_FALSE(std::filesystem::exists(Beside("-wal")));
  EXPECT_EQ(DescribeFile(m_path), "Damaged");
  EXPECT_EQ(DescribeFile(m_path, {.acceptMissingLog = true}), kNewState);
  EXPECT_EQ(DescribeFile(m_path), kNewState);
}

TEST_F(SqliteLog, ProgramThatDiedBeforeItsFirstSaveLeavesADocument) {
  SaveDocument();
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    SqliteStore store = Open(kWithLog);
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  SqliteStore second = Open(kWithLog);
  EXPECT_EQ(DescribeStore(second), kOldState);
}
#endif

using SqliteSize = SqliteFile;

TEST_F(SqliteSize, RemovalGivesSpaceBack) {
  SaveDocument();
  WriteMuch();
  EXPECT_GT(std::filesystem::file_size(m_path), 2000000U);
  SqliteStore store = Open();
  RemoveUnnamed(store);
  EXPECT_LT(std::filesystem::file_size(m_path), 20000U);
  EXPECT_EQ(DescribeStore(store), kOldState);
}

TEST_F(SqliteSize, CompactionMakesADocumentOfTheFirstVersionSmall) {
  {
    RawFile file(m_path);
    MakeFirstVersion(file);
  }
  WriteMuch();
  SqliteStore store = Open();
  RemoveUnnamed(store);
  EXPECT_GT(std::filesystem::file_size(m_path), 2000000U);
  std::filesystem::permissions(m_path, std::filesystem::perms::owner_all);
  std::uint64_t objects = 0;
  ASSERT_TRUE(SqliteStore::Compact(m_path, kWithoutLog, [&](const ProgressStep& step) {
                EXPECT_EQ(step.phase, "copy");
                EXPECT_EQ(step.total, 2U);
                objects = step.done;
                return true;
              }).ok());
  EXPECT_EQ(objects, 2U);
  EXPECT_LT(std::filesystem::file_size(m_path), 20000U);
  EXPECT_EQ(std::filesystem::status(m_path).permissions(), std::filesystem::perms::owner_all);
  EXPECT_EQ(DescribeFile(m_path), kOldState);
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
}

TEST_F(SqliteSize, CompactionKeepsObjectsHeadsAndValues) {
  const StoredObject first = ObjectOf(RandomBytes(5 << 20));
  const StoredObject second = NextVersion(first, "more");
  SaveDocument();
  {
    SqliteStore store = Open();
    ASSERT_TRUE(store.SetValue("current", "master").ok());
    ASSERT_TRUE(Save(store, {first, second, kLarge}, {}).ok());
  }
  ASSERT_TRUE(SqliteStore::Compact(m_path, kWithoutLog).ok());
  SqliteStore store = Open();
  EXPECT_EQ(DescribeStore(store), kOldState);
  EXPECT_EQ(store.Value("current").value(), "master");
  EXPECT_EQ(DescribeObject(store, first.id), "5242880 bytes");
  EXPECT_EQ(DescribeObject(store, second.id), "5242884 bytes");
  EXPECT_EQ(DescribeObject(store, kLarge.id), "20000 bytes");
}

TEST_F(SqliteSize, CancelledCompactionLeavesNoTrace) {
  SaveDocument();
  WriteMuch();
  const std::string before = ReadWhole(m_path);
  int calls = 2;
  for (int cancelled = 0; cancelled < calls; ++cancelled) {
    int call = 0;
    const Status status = SqliteStore::Compact(
        m_path, kWithoutLog, [&](const ProgressStep&) { return call++ != cancelled; });
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().code, ErrorCode::Cancelled);
    EXPECT_TRUE(ReadWhole(m_path) == before);
    EXPECT_EQ(CountFiles(m_folder.Path()), 1);
  }
}

TEST_F(SqliteSize, OpenStoreObjectsUseTheNewFileAfterACompaction) {
  SaveDocument();
  SqliteStore reader = Open();
  SqliteStore writer = Open();
  ASSERT_EQ(DescribeStore(reader), kOldState);
  ASSERT_TRUE(writer.Write({{kNew}}).ok());
  ASSERT_TRUE(SqliteStore::Compact(m_path, kWithoutLog).ok());
  ASSERT_TRUE(SaveNewState(writer).ok());
  EXPECT_EQ(DescribeStore(reader), kNewState);
  EXPECT_EQ(DescribeFile(m_path), kNewState);
}

TEST_F(SqliteSize, CompactionWaitsForAWriterAndALog) {
  SaveDocument();
  {
    RawFile writer(m_path);
    writer.Execute("BEGIN IMMEDIATE");
    EXPECT_EQ(SqliteStore::Compact(m_path, kWithoutLog).error().code, ErrorCode::Busy);
  }
  {
    SqliteStore store = Open(kWithLog);
    ASSERT_TRUE(SaveNewState(store).ok());
    EXPECT_EQ(SqliteStore::Compact(m_path, kWithoutLog).error().code, ErrorCode::Busy);
    EXPECT_EQ(DescribeStore(store), kNewState);
  }
  EXPECT_TRUE(SqliteStore::Compact(m_path, kWithoutLog).ok());
  EXPECT_EQ(DescribeFile(m_path), kNewState);
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
}

TEST_F(SqliteSize, CompactionRefusesWhatItWouldLoseOrCanNotRead) {
  EXPECT_EQ(SqliteStore::Compact(m_path, kWithoutLog).error().code, ErrorCode::NotFound);
  SaveDocument();
  RawFile(m_path).Execute("CREATE TABLE notes(text)");
  EXPECT_EQ(SqliteStore::Compact(m_path, kWithoutLog).error().code, ErrorCode::Unsupported);
  RawFile(m_path).Execute("DROP TABLE notes; DELETE FROM heads WHERE name = 'topic'");
  EXPECT_EQ(SqliteStore::Compact(m_path, kWithoutLog).error().code, ErrorCode::Damaged);
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
}

TEST_F(SqliteSize, CopyIsMadeWhereThereIsNoFile) {
  SaveDocument();
  const std::filesystem::path target = m_folder.Path() / "copy.tal";
  SqliteStore store = Open({.readOnly = true});
  ASSERT_TRUE(store.CompactInto(target).ok());
  EXPECT_EQ(DescribeFile(target), kOldState);
  EXPECT_EQ(store.CompactInto(target).error().code, ErrorCode::Denied);
  EXPECT_EQ(CountFiles(m_folder.Path()), 2);
}

// An index whose pages are in it many times over: to count its rows would have taken years.
TEST_F(SqliteSize, CompactionOfADamagedIndexEnds) {
  SaveDocument();
  std::size_t page_size = 0;
  std::size_t root = 0;
  {
    RawFile file(m_path);
    page_size = std::stoul(file.Query("PRAGMA page_size"));
    root =
        std::stoul(file.Query("SELECT rootpage FROM sqlite_schema WHERE name = 'objects_by_id'"));
  }
  std::string bytes = ReadWhole(m_path);
  const auto number = [](std::size_t value, int count) {
    std::string text;
    while (count-- > 0) text += static_cast<char>(value >> (8 * count));
    return text;
  };
  const std::string leaf = bytes.substr((root - 1) * page_size, page_size);
  const std::size_t first = bytes.size() / page_size + 1;
  // A page of the index all of whose children are one page. An entry has a record of 12 bytes: its
  // header, the first eight bytes of an id, and the number of the row.
  const auto page_above = [&](std::size_t child) {
    const std::size_t count = (page_size - 12) / 19;
    std::string page = '\2' + number(0, 2) + number(count, 2) + number(page_size - 17 * count, 2) +
                       '\0' + number(child, 4);
    for (std::size_t at = 0; at < count; ++at) page += number(page_size - 17 * (at + 1), 2);
    page.resize(page_size - 17 * count);
    const std::string record = "\3\34\1" + std::string(8, 'x') + '\1';
    for (std::size_t at = 0; at < count; ++at) {
      page += number(child, 4) + static_cast<char>(record.size()) + record;
    }
    return page;
  };
  constexpr std::size_t kLevels = 8;
  bytes += leaf;
  for (std::size_t level = 1; level < kLevels; ++level) bytes += page_above(first + level - 1);
  bytes.replace((root - 1) * page_size, page_size, page_above(first + kLevels - 1));
  bytes.replace(28, 4, number(bytes.size() / page_size, 4));
  WriteWhole(m_path, bytes);
  std::uint64_t total = 0;
  const auto cancel = [&total](const ProgressStep& step) {
    total = step.total.value_or(0);
    return false;
  };
  EXPECT_EQ(SqliteStore::Compact(m_path, {}, cancel).error().code, ErrorCode::Cancelled);
  EXPECT_EQ(total, bytes.size() / 32);
  SqliteStore::Compact(m_path, {}).value();
  EXPECT_EQ(DescribeFile(m_path), kOldState);
  EXPECT_LT(ReadWhole(m_path).size(), bytes.size());
}

#ifndef _WIN32
TEST_F(SqliteSize, LinkToADocumentStaysALinkAfterACompaction) {
  SaveDocument();
  const std::filesystem::path link = m_folder.Path() / "link.tal";
  std::filesystem::create_symlink(m_path, link);
  ASSERT_TRUE(SqliteStore::Compact(link, kWithoutLog).ok());
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(DescribeFile(m_path), kOldState);
}

TEST_F(SqliteSize, CopyDoesNotReplaceADanglingLink) {
  SaveDocument();
  const std::filesystem::path link = m_folder.Path() / "link.tal";
  std::filesystem::create_symlink("missing.tal", link);
  EXPECT_EQ(Open({.readOnly = true}).CompactInto(link).error().code, ErrorCode::Denied);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(SqliteSize, DocumentIsMadeWhereADanglingLinkLeads) {
  const std::filesystem::path file = m_folder.Path() / "away" / "document.tal";
  std::filesystem::create_directory(file.parent_path());
  std::filesystem::create_symlink("away/document.tal", m_path);
  // What is beside the file counts, and not what is beside the link.
  std::filesystem::create_directory(m_path.string() + "-wal");
  SaveDocument();
  EXPECT_TRUE(std::filesystem::is_symlink(m_path));
  EXPECT_EQ(DescribeFile(file), kOldState);
  std::filesystem::remove(file);
  std::filesystem::create_directory(file.string() + "-wal");
  EXPECT_EQ(SqliteStore::Open(m_path).error().code, ErrorCode::Damaged);
  std::filesystem::remove(m_path);
  std::filesystem::create_symlink(m_path.filename(), m_path);
  EXPECT_FALSE(SqliteStore::Open(m_path).ok()) << "a link to itself";
  EXPECT_TRUE(std::filesystem::is_symlink(m_path));
}

/// Files can't get longer than a number of bytes while this exists.
class ShortFiles {
 public:
  explicit ShortFiles(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &m_former);
    const rlimit limit{bytes, m_former.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    m_handler = ::signal(SIGXFSZ, SIG_IGN);
  }
  ShortFiles(const ShortFiles&) = delete;
  ShortFiles& operator=(const ShortFiles&) = delete;
  ~ShortFiles() {
    ::setrlimit(RLIMIT_FSIZE, &m_former);
    ::signal(SIGXFSZ, m_handler);
  }

 private:
  rlimit m_former{};
  void (*m_handler)(int) = nullptr;
};

TEST_F(SqliteSize, WriteThatDoesNotFitLeavesTheDocumentAndNothingBesideIt) {
  SaveDocument();
  WriteMuch();
  const std::string before = ReadWhole(m_path);
  {
    const ShortFiles limit(1000000);
    EXPECT_EQ(SqliteStore::Compact(m_path, kWithoutLog).error().code, ErrorCode::Full);
    EXPECT_EQ(SqliteStore::Salvage(m_path, m_folder.Path() / "rescued.tal").error().code,
              ErrorCode::Full);
  }
  {
    const ShortFiles limit(before.size() + 5000);
    SqliteStore store = Open();
    EXPECT_EQ(Save(store, {ObjectOf(RandomBytes(20000, 999))}, {}).error().code,
              ErrorCode::Unknown);
    EXPECT_EQ(DescribeStore(store), kOldState);
    EXPECT_FALSE(store.Close().ok());
  }
  EXPECT_TRUE(ReadWhole(m_path) == before);
  EXPECT_EQ(CountFiles(m_folder.Path()), 1);
}
#endif

TEST(SqlitePlaces, FolderWithoutLocksIsNamedAsTheReason) {
  SimulatedDisk disk;
  {
    SqliteStore store = SqliteStore::Open("/document.tal").value();
    ASSERT_TRUE(SaveOldState(store).ok());
  }
  disk.SetLocks(false);
  const Result<SqliteStore> store = SqliteStore::Open("/document.tal");
  ASSERT_FALSE(store.ok());
  EXPECT_EQ(store.error().code, ErrorCode::Unavailable);
  EXPECT_NE(store.error().message.find("its folder doesn't support locks"), std::string::npos);
  disk.SetLocks(true);
  EXPECT_EQ(DescribeFile("/document.tal"), kOldState);
}

TEST(SqlitePlaces, FolderWithoutSharedMemoryHasNoLog) {
  SimulatedDisk disk;
  disk.SetSharedMemory(false);
  const Result<SqliteStore> store = SqliteStore::Open("/document.tal", kWithLog);
  ASSERT_FALSE(store.ok());
  EXPECT_EQ(store.error().code, ErrorCode::Unsupported);
  EXPECT_EQ(DescribeFile("/document.tal"), "");
}

}  // namespace
}  // namespace TalVcs::Kit
