#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/schema.h>

#include <algorithm>
#include <limits>
#include <system_error>

namespace TalVcs::Kit::Sqlite {
namespace {

std::string Utf8Of(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

int MillisecondsOf(std::chrono::milliseconds duration) {
  return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(
      duration.count(), 0, std::numeric_limits<int>::max()));
}

}  // namespace

Result<std::unique_ptr<Database>> Database::Open(const std::filesystem::path& path,
                                                 const SqliteOptions& options) {
  // SQLite gives names such as ":memory:" a meaning; an absolute path has none but its own.
  std::error_code failure;
  const std::filesystem::path absolute = std::filesystem::absolute(path, failure);
  if (path.empty() || failure) {
    return MakeError(ErrorCode::NotFound, Task::Open, Utf8Of(path), "there is no such path");
  }
  std::unique_ptr<Database> database(new Database(Utf8Of(absolute)));
  if (const int code = database->Connect(options); code != SQLITE_OK) {
    return database->Fail(code, Task::Open);
  }
  // A commit outlives a loss of power once the folder is on the medium after the journal was
  // removed from it. FULL leaves that out; EXTRA does it.
  Status status = database->Execute(
      options.durable ? "PRAGMA synchronous = EXTRA" : "PRAGMA synchronous = OFF", Task::Open);
  if (status) status = PrepareSchema(*database, options.create && !options.readOnly);
  if (!status) return std::move(status).error();
  return database;
}

Database::~Database() {
  for (sqlite3_stmt* statement : m_statements) sqlite3_finalize(statement);
  sqlite3_close(m_connection);
}

int Database::Connect(const SqliteOptions& options) {
  int flags = SQLITE_OPEN_NOMUTEX;
  if (options.readOnly) {
    flags |= SQLITE_OPEN_READONLY;
  } else {
    flags |= SQLITE_OPEN_READWRITE | (options.create ? SQLITE_OPEN_CREATE : 0);
  }
  int code = sqlite3_open_v2(m_name.c_str(), &m_connection, flags, nullptr);
  if (code != SQLITE_OK) return code;
  sqlite3_extended_result_codes(m_connection, 1);
  code = sqlite3_busy_timeout(m_connection, MillisecondsOf(options.busyTimeout));
  return code == SQLITE_OK ? RefuseForeignSql() : code;
}

int Database::RefuseForeignSql() {
  struct Setting {
    int option;
    int value;
  };
  static constexpr Setting kSettings[] = {{SQLITE_DBCONFIG_DEFENSIVE, 1},
                                          {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
                                          {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
                                          {SQLITE_DBCONFIG_ENABLE_VIEW, 0}};
  for (const Setting& setting : kSettings) {
    const int code = sqlite3_db_config(m_connection, setting.option, setting.value, nullptr);
    if (code != SQLITE_OK) return code;
  }
  return sqlite3_exec(m_connection, "PRAGMA cell_size_check = ON", nullptr, nullptr, nullptr);
}

Statement Database::Use(Query query, Task task) {
  sqlite3_stmt*& statement = m_statements[static_cast<std::size_t>(query)];
  int code = SQLITE_OK;
  if (!statement) {
    code = sqlite3_prepare_v3(m_connection, TextOf(query), -1, SQLITE_PREPARE_PERSISTENT,
                              &statement, nullptr);
  }
  return Statement(*this, task, statement, code);
}

Status Database::Execute(const char* statements, Task task) {
  const int code = sqlite3_exec(m_connection, statements, nullptr, nullptr, nullptr);
  return code == SQLITE_OK ? Status() : Status(Fail(code, task));
}

bool Database::IsInTransaction() const noexcept { return !sqlite3_get_autocommit(m_connection); }

bool Database::IsReadOnly() const noexcept {
  return sqlite3_db_readonly(m_connection, "main") == 1;
}

std::uint64_t Database::MaxObjectSize() const noexcept {
  // A row has to hold the id and the header of the record as well.
  static constexpr int kRestOfRow = 256;
  return static_cast<std::uint64_t>(
      std::max(0, sqlite3_limit(m_connection, SQLITE_LIMIT_LENGTH, -1) - kRestOfRow));
}

Error Database::Fail(int code, Task task) const {
  return ErrorFromSqlite(m_connection, code, task, m_name);
}

}  // namespace TalVcs::Kit::Sqlite
