#pragma once

#include <kit/store/object_key.h>
#include <kit/text/result.h>
#include <stores/sqlite/internal/sqlite_error.h>
#include <talvcs/foundation/names.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

struct sqlite3_stmt;

namespace TalVcs::Kit::Sqlite {

class Database;

/// One run of a prepared statement, which is reset at the end. What is bound has to live that long.
///
/// A failure to prepare or to bind shows at the first `Step`.
class Statement {
 public:
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement();

  Statement& Bind(int index, std::int64_t number);
  Statement& Bind(int index, const ObjectKey& key);
  Statement& BindText(int index, std::string_view text);
  Statement& BindBlob(int index, std::span<const std::byte> bytes);

  /// Returns true if there is a row, false at the end.
  Result<bool> Step();
  /// Runs a statement that has no rows.
  Status Run();
  /// Runs a statement that changes a row. Fails with `Denied` if it changes none, because a trigger
  /// of the host ignores the change.
  Status RunChange();

  /// Return a column of the current row; nothing if it is of another type.
  std::optional<std::int64_t> Number(int column) const;
  /// Valid until the next step.
  std::optional<std::span<const std::byte>> Blob(int column) const;
  std::optional<std::string_view> Text(int column) const;
  bool IsNull(int column) const;

 private:
  friend class Database;
  Statement(Database& database, Task task, sqlite3_stmt* statement, int code) noexcept
      : m_database(database), m_task(task), m_statement(statement), m_code(code) {}

  Statement& Note(int code) noexcept;
  std::span<const std::byte> Bytes(int column) const;

  Database& m_database;
  Task m_task;
  sqlite3_stmt* m_statement;
  // The first failure, which `Step` returns.
  int m_code;
};

}  // namespace TalVcs::Kit::Sqlite
