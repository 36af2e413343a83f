#include <kit/store/quietly.h>
#include <stores/sqlite/internal/connection.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/hot_journal.h>
#include <stores/sqlite/internal/log.h>
#include <stores/sqlite/internal/schema.h>
#include <stores/sqlite/internal/side_file.h>
#include <stores/sqlite/internal/stale_log.h>

#include <algorithm>
#include <limits>
#include <system_error>
#include <utility>

namespace TalVcs::Kit::Sqlite {
namespace {

constexpr std::size_t kLongestPrefix = 64;
// As many links in a row as systems follow.
constexpr int kMostLinks = 40;

std::string Utf8Of(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

/// Returns the path of the file that symbolic links lead to, also if it is missing. The files
/// beside a document are those of that file.
std::filesystem::path FileOf(std::filesystem::path path) {
  std::error_code failure;
  for (int links = 0; links < kMostLinks && std::filesystem::is_symlink(path, failure); ++links) {
    const std::filesystem::path target = std::filesystem::read_symlink(path, failure);
    if (failure) return path;
    path = path.parent_path() / target;
  }
  std::filesystem::path folder = std::filesystem::canonical(path.parent_path(), failure);
  return failure ? path : folder / path.filename();
}

int MillisecondsOf(std::chrono::milliseconds duration) {
  return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(
      duration.count(), 0, std::numeric_limits<int>::max()));
}

/// Returns whether statements can contain the prefix without quotes. SQLite keeps names that begin
/// with "sqlite_" for itself.
bool IsPrefix(std::string_view prefix) {
  const auto is_letter = [](char c) {
    return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  };
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  if (prefix.size() > kLongestPrefix) return false;
  if (!prefix.empty() && !is_letter(prefix.front())) return false;
  if (!std::all_of(prefix.begin(), prefix.end(),
                   [&](char c) { return is_letter(c) || is_digit(c); })) {
    return false;
  }
  return sqlite3_strnicmp(std::string(prefix).c_str(), "sqlite_", 7) != 0;
}

bool Exists(const std::string& path) {
  sqlite3_vfs* files = sqlite3_vfs_find(nullptr);
  int exists = 0;
  if (files && files->xAccess(files, path.c_str(), SQLITE_ACCESS_EXISTS, &exists) == SQLITE_OK &&
      exists != 0) {
    return true;
  }
  // SQLite counts an empty file as none.
  std::error_code failure;
  return std::filesystem::exists(std::u8string(path.begin(), path.end()), failure);
}

bool HasFolder(const std::string& path) {
  std::error_code failure;
  return std::filesystem::is_directory(
      std::filesystem::path(std::u8string(path.begin(), path.end())).parent_path(), failure);
}

const char* SynchronousOf(const SqliteOptions& options) {
  // A commit outlives a loss of power once the folder is on the medium after the journal was
  // removed from it. FULL leaves that out; EXTRA does it.
  if (options.durable) return "PRAGMA main.synchronous = EXTRA";
  // A log that isn't synced before its pages are copied can leave a file of several states.
  return options.journalMode == SqliteJournalMode::WriteAheadLog
             ? "PRAGMA main.synchronous = NORMAL"
             : "PRAGMA main.synchronous = OFF";
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
  const std::string name = Utf8Of(absolute);
  const std::string file = Utf8Of(FileOf(absolute));
  bool lacks_log = false;
  Result<std::unique_ptr<Database>> database = OpenOnce(name, file, options, lacks_log);
  // Another program may have made the log since the look.
  if (lacks_log) database = OpenOnce(name, file, options, lacks_log);
  return database;
}

Result<std::unique_ptr<Database>> Database::OpenOnce(const std::string& name,
                                                     const std::string& path,
                                                     const SqliteOptions& options, bool& lacksLog) {
  std::unique_ptr<Database> database(new Database());
  database->m_name = name;
  database->m_path = path;
  database->m_options = options;
  lacksLog = false;
  const bool had_log = Exists(path + "-wal");
  database->m_mayMakeLog = !had_log;
  Status status = CheckKinds(*database, path);
  if (!status) return std::move(status).error();
  if (const int code = database->Connect(options); code != SQLITE_OK) {
    Error error = database->Fail(code, Task::Open);
    // SQLite looks once more for what it may not make, and says that it isn't there.
    if (error.code == ErrorCode::NotFound && options.create && !options.readOnly &&
        HasFolder(path)) {
      error = database->Fail(ErrorCode::Denied, Task::Open, "no permission to make it");
    }
    return error;
  }
  status = CheckJournal(*database);
  if (!status) return std::move(status).error();
  if (had_log) {
    Result<bool> is_stale = HasStaleLog(*database);
    if (!is_stale) return std::move(is_stale).error();
    if (*is_stale) {
      return database->Fail(ErrorCode::Damaged, Task::Open,
                            "\"" + path +
                                "-wal\" belongs to another version of it; "
                                "move that file away to open this version");
    }
  }
  status = database->Configure(options);
  if (status) status = PrepareSchema(*database, options.create && !options.readOnly);
  if (status && had_log) status = CheckLength(*database);
  if (!status) return std::move(status).error();
  Result<bool> lacks_log = LacksLog(*database, had_log || options.acceptMissingLog);
  if (!lacks_log) return std::move(lacks_log).error();
  lacksLog = *lacks_log;
  if (lacksLog) {
    return database->Fail(ErrorCode::Damaged, Task::Open,
                          "the file with its last changes, \"" + path + "-wal\", is missing");
  }
  if (options.journalMode == SqliteJournalMode::WriteAheadLog && !database->IsReadOnly()) {
    status = EnterLog(*database);
  }
  if (!status) {
    LeaveLog(*database);
    return std::move(status).error();
  }
  database->m_isOpen = true;
  database->m_mayMakeLog = false;
  return database;
}

Result<std::unique_ptr<Database>> Database::Attach(sqlite3* connection, std::string_view prefix,
                                                   const SqliteOptions& options) {
  std::unique_ptr<Database> database(new Database());
  const char* path = connection ? sqlite3_db_filename(connection, "main") : nullptr;
  database->m_name = path ? path : "";
  if (!connection) {
    return database->Fail(ErrorCode::BadName, Task::Open, "there is no connection to attach to");
  }
  if (!IsPrefix(prefix)) {
    return database->Fail(ErrorCode::BadName, Task::Open,
                          "tables can't have the prefix \"" + std::string(prefix) + "\"");
  }
  database->m_prefix = prefix;
  database->m_connection = connection;
  database->m_isAttached = true;
  database->m_isReadOnly = options.readOnly;
  Status status = PrepareSchema(*database, options.create && !database->IsReadOnly());
  if (!status) return std::move(status).error();
  return database;
}

Database::~Database() {
  if (m_isOpen) Quietly([this] { LeaveLog(*this); });
  if (m_mayMakeLog) Quietly([this] { RemoveMadeLog(); });
  Disconnect();
}

/// Removes the empty log that SQLite has made for an opening that failed. The next one would take
/// it for the log that is missing.
void Database::RemoveMadeLog() {
  if (m_connection == nullptr || !Exists(m_path + "-wal")) return;
  if (IsReadOnly()) {
    // Only a connection that may write removes a log.
    Disconnect();
    if (sqlite3_open_v2(m_path.c_str(), &m_connection, SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_READWRITE,
                        nullptr) != SQLITE_OK ||
        RefuseForeignSql(m_connection) != SQLITE_OK) {
      return;
    }
    sqlite3_exec(m_connection, TextOf(Query::CountTables), nullptr, nullptr, nullptr);
  }
  sqlite3_db_config(m_connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
}

void Database::Disconnect() noexcept {
  for (sqlite3_stmt*& statement : m_statements) {
    sqlite3_finalize(statement);
    statement = nullptr;
  }
  if (!m_isAttached) sqlite3_close(m_connection);
  m_connection = nullptr;
}

Status Database::FollowFile() {
  int has_moved = 0;
  if (m_isAttached ||
      sqlite3_file_control(m_connection, "main", SQLITE_FCNTL_HAS_MOVED, &has_moved) != SQLITE_OK ||
      has_moved == 0) {
    return {};
  }
  SqliteOptions options = m_options;
  options.create = false;
  bool lacks_log = false;
  Result<std::unique_ptr<Database>> next = OpenOnce(m_name, m_path, options, lacks_log);
  if (!next) return std::move(next).error();
  // The log of that name is the other file's.
  Disconnect();
  (*next)->m_isOpen = false;
  std::swap(m_connection, (*next)->m_connection);
  std::swap(m_statements, (*next)->m_statements);
  return {};
}

int Database::Connect(const SqliteOptions& options) {
  int flags = SQLITE_OPEN_NOMUTEX;
  if (options.readOnly) {
    flags |= SQLITE_OPEN_READONLY;
  } else {
    flags |= SQLITE_OPEN_READWRITE | (options.create ? SQLITE_OPEN_CREATE : 0);
  }
  const int code = sqlite3_open_v2(m_path.c_str(), &m_connection, flags, nullptr);
  if (code != SQLITE_OK) return code;
  SetBusyTimeout(options.busyTimeout);
  // Only `LeaveLog` removes a log, because the file has to say that it has none.
  sqlite3_db_config(m_connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  return RefuseForeignSql(m_connection);
}

Status Database::Configure(const SqliteOptions& options) {
  Status status = Execute(SynchronousOf(options), Task::Open);
  // What SQLite does without this depends on how it was built.
  if (status) {
    status =
        Execute(options.secureDelete ? "PRAGMA secure_delete = ON" : "PRAGMA secure_delete = OFF",
                Task::Open);
  }
  // Of a log that became long, only so much stays once it is in the file.
  if (status) status = Execute("PRAGMA main.journal_size_limit = 1048576", Task::Open);
  return status;
}

void Database::SetBusyTimeout(std::chrono::milliseconds timeout) noexcept {
  sqlite3_busy_timeout(m_connection, MillisecondsOf(timeout));
}

Statement Database::Use(Query query, Task task) {
  sqlite3_stmt*& statement = m_statements[static_cast<std::size_t>(query)];
  int code = SQLITE_OK;
  if (!statement) {
    code = sqlite3_prepare_v3(m_connection, WithPrefix(TextOf(query)).c_str(), -1,
                              SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  }
  return Statement(*this, task, statement, code);
}

bool Database::RunQuietly(Query query) noexcept {
  sqlite3_stmt*& statement = m_statements[static_cast<std::size_t>(query)];
  if (!statement && sqlite3_prepare_v3(m_connection, TextOf(query), -1, SQLITE_PREPARE_PERSISTENT,
                                       &statement, nullptr) != SQLITE_OK) {
    return false;
  }
  const int code = sqlite3_step(statement);
  sqlite3_reset(statement);
  return code == SQLITE_DONE;
}

Result<std::int64_t> Database::NumberOf(Query query, Task task) {
  Statement statement = Use(query, task);
  Result<bool> row = statement.Step();
  if (!row) return std::move(row).error();
  return *row ? statement.Number(0).value_or(0) : 0;
}

Status Database::Execute(std::string_view statements, Task task) {
  const int code =
      sqlite3_exec(m_connection, WithPrefix(statements).c_str(), nullptr, nullptr, nullptr);
  return code == SQLITE_OK ? Status() : Status(Fail(code, task));
}

bool Database::IsInTransaction() const noexcept { return !sqlite3_get_autocommit(m_connection); }

bool Database::HasWritingStatement() const noexcept {
  if (!m_isAttached) return false;
  sqlite3_stmt* statement = sqlite3_next_stmt(m_connection, nullptr);
  for (; statement; statement = sqlite3_next_stmt(m_connection, statement)) {
    if (sqlite3_stmt_busy(statement) && !sqlite3_stmt_readonly(statement)) return true;
  }
  return false;
}

bool Database::IsReadOnly() const noexcept {
  return m_isReadOnly || sqlite3_db_readonly(m_connection, "main") == 1;
}

Error Database::Fail(int code, Task task) const {
  Error error = ErrorFromSqlite(m_connection, code, task, m_name);
  if (m_isAttached && m_isWriting && !IsInTransaction()) {
    error.unchanged = "SQLite has undone the whole transaction";
  }
  return error;
}

}  // namespace TalVcs::Kit::Sqlite
