#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/schema.h>
#include <stores/sqlite/internal/transaction.h>

#include <cstdint>
#include <string>

namespace TalVcs::Kit::Sqlite {
namespace {

// "TalV"; the same number stands in kMarkFile.
constexpr std::int64_t kApplicationId = 0x54616C56;
constexpr std::int64_t kVersion = 1;
constexpr char kMarkFile[] = "PRAGMA application_id = 1415670870; PRAGMA user_version = 1";

// Small pages: a save changes some twenty of them in random places, and each is written twice.
constexpr char kPageSize[] = "PRAGMA page_size = 1024";

/// What distinguishes a document from other files.
struct Mark {
  std::int64_t applicationId = 0;
  std::int64_t version = 0;
  std::int64_t tables = 0;

  bool IsOfEmptyFile() const noexcept { return applicationId == 0 && version == 0 && tables == 0; }
};

Result<std::int64_t> NumberOf(Database& database, Query query) {
  Statement statement = database.Use(query, Task::Open);
  Result<bool> row = statement.Step();
  if (!row) return std::move(row).error();
  return statement.Number(0).value_or(0);
}

Result<Mark> ReadMark(Database& database) {
  ReadTransaction transaction(database);
  if (Status status = transaction.Begin(); !status) return std::move(status).error();
  Result<std::int64_t> application_id = NumberOf(database, Query::ApplicationId);
  if (!application_id) return std::move(application_id).error();
  Result<std::int64_t> version = NumberOf(database, Query::UserVersion);
  if (!version) return std::move(version).error();
  Result<std::int64_t> tables = NumberOf(database, Query::CountTables);
  if (!tables) return std::move(tables).error();
  return Mark{*application_id, *version, *tables};
}

/// An older version will be brought up to date here, step by step; there is none yet.
Status CheckMark(const Database& database, const Mark& mark) {
  if (mark.applicationId != kApplicationId) {
    return database.Fail(ErrorCode::Unsupported, Task::Open, "it belongs to another application");
  }
  if (mark.version > kVersion) {
    return database.Fail(ErrorCode::Unsupported, Task::Open,
                         "its version is " + std::to_string(mark.version) +
                             ", but this build knows versions up to " + std::to_string(kVersion));
  }
  if (mark.version < kVersion) {
    return database.Fail(ErrorCode::Damaged, Task::Open, "it has no valid version");
  }
  return {};
}

/// Another store object may make the tables at the same time.
Status MakeTables(Database& database) {
  if (Status status = database.Execute(kPageSize, Task::Open); !status) return status;
  WriteTransaction transaction(database);
  if (Status status = transaction.Begin(); !status) return status;
  Result<Mark> mark = ReadMark(database);
  if (!mark) return std::move(mark).error();
  if (!mark->IsOfEmptyFile()) return CheckMark(database, *mark);
  Status status = database.Execute(kMarkFile, Task::Save);
  if (status) status = database.Execute(kCreateTables, Task::Save);
  return status ? transaction.Commit() : status;
}

}  // namespace

Status PrepareSchema(Database& database, bool create) {
  Result<Mark> mark = ReadMark(database);
  if (!mark) return std::move(mark).error();
  if (!mark->IsOfEmptyFile()) return CheckMark(database, *mark);
  if (create) return MakeTables(database);
  return database.Fail(ErrorCode::NotFound, Task::Open, "it is empty");
}

}  // namespace TalVcs::Kit::Sqlite
