#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/log.h>
#include <stores/sqlite/internal/meta.h>
#include <stores/sqlite/internal/transaction.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

namespace TalVcs::Kit::Sqlite {
namespace {

/// Changes the number of the log in a transaction of its own.
template <class Change>
Status ChangeMark(Database& database, Change change) {
  WriteTransaction transaction(database);
  Status status = transaction.Begin();
  if (!status) return status;
  const Result<std::uint64_t> mark = ReadMeta(database, Meta::Log);
  if (!mark) return mark.error();
  status = WriteMeta(database, Meta::Log, change(*mark));
  return status ? transaction.CommitUncounted() : status;
}

constexpr std::uint64_t kInUse = 1;

std::uint64_t NextMark(std::uint64_t mark) { return ((mark >> 1) + 1) << 1; }

/// Returns a number for a new log that no other log continues in practice.
std::uint64_t FirstMark(std::uint64_t /*former*/) {
  std::uint64_t random = 0;
  sqlite3_randomness(sizeof(random), &random);
  // Far from the largest number that a row can have.
  return random >> 2 | kInUse;
}

/// Returns the size of the file or of its log; 0 if there is none.
std::int64_t SizeOf(Database& database, int which) {
  sqlite3_file* file = nullptr;
  sqlite3_int64 size = 0;
  sqlite3_file_control(database.Connection(), "main", which, &file);
  const bool is_open = file != nullptr && file->pMethods != nullptr;
  if (!is_open || file->pMethods->xFileSize(file, &size) != SQLITE_OK) return 0;
  return size;
}

}  // namespace

Result<bool> HasLog(Database& database) {
  Statement row = database.Use(Query::JournalMode, Task::Read);
  Result<bool> found = row.Step();
  if (!found) return std::move(found).error();
  return *found && row.Text(0) == "wal";
}

Status EnterLog(Database& database) {
  Result<bool> has_log = HasLog(database);
  if (!has_log) return std::move(has_log).error();
  if (*has_log) return {};
  Status status = database.Execute("PRAGMA main.journal_mode = WAL", Task::Open);
  if (!status) return status;
  has_log = HasLog(database);
  if (!has_log) return std::move(has_log).error();
  if (!*has_log) {
    return database.Fail(ErrorCode::Unsupported, Task::Open,
                         "its file system can't have a write-ahead log");
  }
  // The log is on the medium before the file says that it has one.
  status = ChangeMark(database, FirstMark);
  return status ? database.Execute("PRAGMA main.wal_checkpoint(FULL)", Task::Open) : status;
}

Status MarkLog(Database& database) {
  if (database.IsAttached()) return {};
  Result<bool> has_log = HasLog(database);
  if (!has_log) return std::move(has_log).error();
  if (!*has_log) return {};
  Result<std::uint64_t> mark = ReadMeta(database, Meta::Log);
  if (!mark) return std::move(mark).error();
  return WriteMeta(database, Meta::Log, NextMark(*mark) | kInUse);
}

void LeaveLog(Database& database) {
  if (database.IsAttached() || database.IsReadOnly()) return;
  const Result<bool> has_log = HasLog(database);
  if (!has_log || !*has_log) return;
  database.SetBusyTimeout(std::chrono::milliseconds(0));
  // Once everything is in the file, the mark is the only change that can be in the log alone.
  Status status = database.Execute("PRAGMA main.wal_checkpoint(TRUNCATE)", Task::Save);
  if (status) status = ChangeMark(database, NextMark);
  if (!status) return;
  status = database.Execute("PRAGMA main.journal_mode = DELETE", Task::Save);
  if (status) return;
  // Another connection goes on with the log.
  status = ChangeMark(database, [](std::uint64_t mark) { return NextMark(mark) | kInUse; });
}

Status CheckLength(Database& database) {
  ReadTransaction transaction(database);
  if (Status status = transaction.Begin(); !status) return status;
  const Result<std::int64_t> pages = database.NumberOf(Query::CountPages, Task::Open);
  if (!pages) return pages.error();
  const Result<std::int64_t> page_size = database.NumberOf(Query::PageSize, Task::Open);
  if (!page_size) return page_size.error();
  const std::int64_t size =
      SizeOf(database, SQLITE_FCNTL_FILE_POINTER) + SizeOf(database, SQLITE_FCNTL_JOURNAL_POINTER);
  return *pages <= size / std::max<std::int64_t>(*page_size, 1)
             ? Status()
             : Status(database.Fail(ErrorCode::Damaged, Task::Open, "its content is damaged"));
}

Result<bool> LacksLog(Database& database, bool hadLog) {
  if (hadLog) return false;
  ReadTransaction transaction(database);
  if (Status status = transaction.Begin(); !status) return std::move(status).error();
  Result<bool> has_log = HasLog(database);
  if (!has_log) return std::move(has_log).error();
  if (!*has_log) return false;
  // The first version of the tables has no mark.
  Result<std::optional<std::uint64_t>> mark = FindMeta(database, Meta::Log);
  if (!mark) return std::move(mark).error();
  return (mark->value_or(0) & kInUse) != 0;
}

}  // namespace TalVcs::Kit::Sqlite
