#pragma once

#include <kit/text/result.h>
#include <sqlite3.h>
#include <stores/sqlite/internal/queries.h>
#include <stores/sqlite/internal/statement.h>
#include <stores/sqlite/sqlite_store.h>

#include <array>
#include <filesystem>
#include <memory>
#include <string>

namespace TalVcs::Kit::Sqlite {

/// A connection to one file, with its prepared statements.
class Database {
 public:
  /// Opens the file and checks that it is a document, or makes it one.
  static Result<std::unique_ptr<Database>> Open(const std::filesystem::path& path,
                                                const SqliteOptions& options);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  /// Begins a run of a statement. Two runs of one statement don't overlap.
  Statement Use(Query query, Task task);
  /// Runs statements that have no parameters, one after the other.
  Status Execute(const char* statements, Task task);

  bool IsInTransaction() const noexcept;
  bool IsReadOnly() const noexcept;
  /// Largest number of bytes of one object.
  std::uint64_t MaxObjectSize() const noexcept;

  Error Fail(int code, Task task) const;
  Error Fail(ErrorCode code, Task task, const std::string& reason) const {
    return MakeError(code, task, m_name, reason);
  }
  Error Damage(const std::string& reason) const {
    return Fail(ErrorCode::Damaged, Task::Read, reason);
  }

 private:
  explicit Database(std::string name) : m_name(std::move(name)) {}

  int Connect(const SqliteOptions& options);
  int RefuseForeignSql();

  std::string m_name;
  sqlite3* m_connection = nullptr;
  std::array<sqlite3_stmt*, kQueryCount> m_statements{};
};

}  // namespace TalVcs::Kit::Sqlite
