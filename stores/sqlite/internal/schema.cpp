#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/meta.h>
#include <stores/sqlite/internal/schema.h>
#include <stores/sqlite/internal/transaction.h>

#include <cstdint>
#include <string>
#include <utility>

namespace TalVcs::Kit::Sqlite {
namespace {

// "TalV"; the same number stands in kMarkFile.
constexpr std::int64_t kApplicationId = 0x54616C56;
constexpr std::int64_t kVersion = 2;
constexpr char kMarkFile[] = "PRAGMA main.application_id = 1415670870";
constexpr char kMarkVersion[] = "PRAGMA main.user_version = 2";

// Small pages: a save changes a dozen of them in random places, and each is written twice. Pages
// that a removal frees can be given back to the system.
constexpr char kPages[] = "PRAGMA main.page_size = 512; PRAGMA main.auto_vacuum = INCREMENTAL";

/// A table or an index. The text is that of the statement that makes it, as SQLite keeps it.
struct Table {
  const char* name;
  const char* statement;
  std::int64_t firstVersion;
};

// Rows of objects are appended, and only a short index is ordered by the ids, which are random: a
// save then changes few pages of a large file. The index has the first 8 bytes of each id, as they
// distinguish all objects in practice; the whole id stands in the row and is always compared.
constexpr Table kTables[] = {
    {"$objects",
     "CREATE TABLE $objects(\n"
     "  number INTEGER PRIMARY KEY,\n"
     "  id BLOB NOT NULL,\n"
     "  size INTEGER NOT NULL,\n"
     "  encoding INTEGER NOT NULL,\n"
     "  data BLOB NOT NULL)",
     1},
    {"$objects_by_id", "CREATE INDEX $objects_by_id ON $objects(substr(id, 1, 8))", 1},
    {"$heads",
     "CREATE TABLE $heads(\n"
     "  name TEXT NOT NULL PRIMARY KEY,\n"
     "  id BLOB NOT NULL) WITHOUT ROWID",
     1},
    {"$host_values",
     "CREATE TABLE $host_values(\n"
     "  name TEXT NOT NULL PRIMARY KEY,\n"
     "  value BLOB NOT NULL,\n"
     "  sum INTEGER NOT NULL) WITHOUT ROWID",
     1},
    {"$meta",
     "CREATE TABLE $meta(\n"
     "  name TEXT NOT NULL PRIMARY KEY,\n"
     "  value INTEGER NOT NULL) WITHOUT ROWID",
     1},
    {"$pieces",
     "CREATE TABLE $pieces(\n"
     "  object INTEGER NOT NULL,\n"
     "  piece INTEGER NOT NULL,\n"
     "  data BLOB NOT NULL,\n"
     "  PRIMARY KEY(object, piece)) WITHOUT ROWID",
     2},
};

/// What distinguishes a document from other files.
struct Mark {
  std::int64_t applicationId = 0;
  std::int64_t version = 0;
  std::int64_t tables = 0;

  bool IsOfEmptyFile() const noexcept { return applicationId == 0 && version == 0 && tables == 0; }
};

/// A host's database has numbers of its own, so that the version of the tables is one of them.
Result<Mark> ReadAttachedMark(Database& database) {
  Result<std::int64_t> tables = database.NumberOf(Query::CountOwnTables, Task::Open);
  if (!tables) return std::move(tables).error();
  if (*tables == 0) return Mark();
  Result<std::uint64_t> version = ReadMeta(database, Meta::Version);
  if (!version) return std::move(version).error();
  return Mark{kApplicationId, static_cast<std::int64_t>(*version), *tables};
}

Result<Mark> ReadMark(Database& database) {
  if (database.IsAttached()) return ReadAttachedMark(database);
  Result<std::int64_t> application_id = database.NumberOf(Query::ApplicationId, Task::Open);
  if (!application_id) return std::move(application_id).error();
  Result<std::int64_t> version = database.NumberOf(Query::UserVersion, Task::Open);
  if (!version) return std::move(version).error();
  Result<std::int64_t> tables = database.NumberOf(Query::CountTables, Task::Open);
  if (!tables) return std::move(tables).error();
  return Mark{*application_id, *version, *tables};
}

Status CheckMark(const Database& database, const Mark& mark) {
  if (mark.applicationId != kApplicationId) {
    return database.Fail(ErrorCode::Unsupported, Task::Open, "it belongs to another application");
  }
  if (mark.version > kVersion) {
    return database.Fail(ErrorCode::Unsupported, Task::Open,
                         "its version is " + std::to_string(mark.version) +
                             ", but this build knows versions up to " + std::to_string(kVersion));
  }
  if (mark.version < 1) {
    return database.Fail(ErrorCode::Damaged, Task::Open, "it has no valid version");
  }
  return {};
}

/// Other tables of these names could have constraints and columns that run SQL of a stranger, and
/// so could further indexes. In a host's database these are the host's.
Status CheckTables(Database& database, std::int64_t version) {
  for (const Table& table : kTables) {
    if (table.firstVersion > version) continue;
    const std::string name = database.WithPrefix(table.name);
    Statement row = database.Use(Query::TableText, Task::Open);
    Result<bool> found = row.BindText(1, name).Step();
    if (!found) return std::move(found).error();
    if (*found && row.Text(0) == database.WithPrefix(table.statement)) continue;
    return database.Fail(ErrorCode::Damaged, Task::Open, "its tables aren't those of a document");
  }
  if (database.IsAttached()) return {};
  Result<std::int64_t> others = database.NumberOf(Query::CountOtherIndexes, Task::Open);
  if (!others) return std::move(others).error();
  if (*others == 0) return {};
  return database.Fail(ErrorCode::Damaged, Task::Open, "its tables have indexes of others");
}

/// Makes the tables that came after a version, and what they contain at first.
Status MakeTables(Database& database, std::int64_t after) {
  for (const Table& table : kTables) {
    if (table.firstVersion <= after) continue;
    // A temporary table may have the same name.
    std::string statement = table.statement;
    statement.insert(statement.find('$'), "main.");
    Status status = database.Execute(statement, Task::Save);
    if (!status) return status;
  }
  Status status;
  if (after == 0) status = WriteMeta(database, Meta::HeadSum, 0);
  if (status && after == 0) status = WriteMeta(database, Meta::Removals, 0);
  if (status) status = WriteMeta(database, Meta::Log, 0);
  if (!status) return status;
  if (database.IsAttached()) return WriteMeta(database, Meta::Version, kVersion);
  if (after == 0) status = database.Execute(kMarkFile, Task::Save);
  return status ? database.Execute(kMarkVersion, Task::Save) : status;
}

/// SQLite converts the texts of a database of UTF-16, and some names of branches and values don't
/// survive that.
Status CheckEncoding(Database& database) {
  Statement row = database.Use(Query::TextEncoding, Task::Open);
  Result<bool> found = row.Step();
  if (!found) return std::move(found).error();
  if (!*found || row.Text(0) == "UTF-8") return {};
  return database.Fail(ErrorCode::Unsupported, Task::Open,
                       "its texts are UTF-16, but names of branches need UTF-8");
}

/// Another store object may make the tables at the same time.
Status MakeDocument(Database& database) {
  if (!database.IsAttached()) {
    if (Status status = database.Execute(kPages, Task::Open); !status) return status;
  }
  WriteTransaction transaction(database);
  if (Status status = transaction.BeginOnAnySchema(); !status) return status;
  Result<Mark> mark = ReadMark(database);
  if (!mark) return std::move(mark).error();
  if (!mark->IsOfEmptyFile()) return CheckMark(database, *mark);
  Status status = MakeTables(database, 0);
  return status ? transaction.Commit() : status;
}

}  // namespace

Status PrepareSchema(Database& database, bool create) {
  Mark mark;
  {
    ReadTransaction transaction(database);
    if (Status status = transaction.Begin(); !status) return status;
    if (Status status = CheckEncoding(database); !status) return status;
    Result<Mark> found = ReadMark(database);
    if (!found) return std::move(found).error();
    mark = *found;
    if (!mark.IsOfEmptyFile()) {
      Status status = CheckMark(database, mark);
      return status ? CheckTables(database, mark.version) : status;
    }
  }
  if (create) return MakeDocument(database);
  return database.Fail(ErrorCode::NotFound, Task::Open, "it is empty");
}

Status UpdateSchema(Database& database) {
  Result<std::int64_t> version = database.NumberOf(Query::UserVersion, Task::Open);
  if (database.IsAttached()) {
    Result<std::uint64_t> attached = ReadMeta(database, Meta::Version);
    if (!attached) return std::move(attached).error();
    version = static_cast<std::int64_t>(*attached);
  }
  if (!version) return std::move(version).error();
  if (*version == kVersion) return {};
  Status status = CheckMark(database, {kApplicationId, *version, 0});
  return status ? MakeTables(database, *version) : status;
}

}  // namespace TalVcs::Kit::Sqlite
