#pragma once

#include <kit/text/result.h>
#include <sqlite3.h>
#include <stores/sqlite/internal/queries.h>
#include <stores/sqlite/internal/statement.h>
#include <stores/sqlite/sqlite_store.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace TalVcs::Kit::Sqlite {

/// A connection to one file, its own or a host's, with its prepared statements.
class Database {
 public:
  /// Opens the file and checks that it is a document, or makes it one.
  static Result<std::unique_ptr<Database>> Open(const std::filesystem::path& path,
                                                const SqliteOptions& options);
  /// Uses the tables with a prefix in a host's database, or makes them. The host's connection must
  /// outlive the result.
  static Result<std::unique_ptr<Database>> Attach(sqlite3* connection, std::string_view prefix,
                                                  const SqliteOptions& options);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  /// Begins a run of a statement. Two runs of one statement don't overlap.
  Statement Use(Query query, Task task);
  /// Runs a statement without a prefix or rows, which takes no memory of C++. Returns whether it
  /// succeeded.
  bool RunQuietly(Query query) noexcept;
  /// Runs a statement that has no parameters and returns the number in its row, 0 if there is none.
  Result<std::int64_t> NumberOf(Query query, Task task);
  /// Runs statements that have no parameters, one after the other, with the prefix in place of "$".
  Status Execute(std::string_view statements, Task task);
  std::string WithPrefix(std::string_view text) const { return Sqlite::WithPrefix(text, m_prefix); }

  /// Whether the connection is a host's, with settings and transactions of its own.
  bool IsAttached() const noexcept { return m_isAttached; }
  bool IsReadOnly() const noexcept;
  bool IsInTransaction() const noexcept;
  /// Whether a statement of the host is in the middle of a change, which a transaction of the store
  /// could neither commit nor undo without it.
  bool HasWritingStatement() const noexcept;
  /// Whether a write transaction of the store itself runs.
  bool IsWriting() const noexcept { return m_isWriting; }
  void SetWriting(bool isWriting) noexcept { m_isWriting = isWriting; }
  /// Opens the file of the same name if another one has replaced the one that is open, as a
  /// compaction does. Fails with `NotFound` if there is none.
  Status FollowFile();
  /// Frees pages of the file that are in memory.
  void ReleaseMemory() noexcept { sqlite3_db_release_memory(m_connection); }
  void SetBusyTimeout(std::chrono::milliseconds timeout) noexcept;

  /// The name of the file for messages.
  const std::string& Name() const noexcept { return m_name; }
  sqlite3* Connection() const noexcept { return m_connection; }

  Error Fail(int code, Task task) const;
  Error Fail(ErrorCode code, Task task, const std::string& reason) const {
    return MakeError(code, task, m_name, reason);
  }
  Error Damage(const std::string& reason) const {
    return Fail(ErrorCode::Damaged, Task::Read, reason);
  }

 private:
  Database() = default;

  /// Opens the file. Sets `lacksLog` if its log is missing, perhaps only at the first look.
  static Result<std::unique_ptr<Database>> OpenOnce(const std::string& name,
                                                    const std::string& path,
                                                    const SqliteOptions& options, bool& lacksLog);
  int Connect(const SqliteOptions& options);
  Status Configure(const SqliteOptions& options);
  void Disconnect() noexcept;
  void RemoveMadeLog();

  // For messages.
  std::string m_name;
  std::string m_path;
  std::string m_prefix;
  SqliteOptions m_options;
  sqlite3* m_connection = nullptr;
  // Whether it was opened without a failure.
  bool m_isOpen = false;
  bool m_mayMakeLog = false;  // the opening began without a log and hasn't succeeded
  bool m_isAttached = false;
  bool m_isReadOnly = false;
  bool m_isWriting = false;
  std::array<sqlite3_stmt*, kQueryCount> m_statements{};
};

}  // namespace TalVcs::Kit::Sqlite
