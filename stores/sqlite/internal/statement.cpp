#include <sqlite3.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/statement.h>

#include <new>

namespace TalVcs::Kit::Sqlite {

Statement::~Statement() {
  if (!m_statement) return;
  // The result is that of the last step, which is known.
  sqlite3_reset(m_statement);
  sqlite3_clear_bindings(m_statement);
}

Statement& Statement::Note(int code) noexcept {
  if (m_code == SQLITE_OK) m_code = code;
  return *this;
}

Statement& Statement::Bind(int index, std::int64_t number) {
  return m_code == SQLITE_OK ? Note(sqlite3_bind_int64(m_statement, index, number)) : *this;
}

Statement& Statement::Bind(int index, const ObjectKey& key) {
  return BindBlob(index, std::as_bytes(std::span(key)));
}

Statement& Statement::BindText(int index, std::string_view text) {
  if (m_code != SQLITE_OK) return *this;
  // A null pointer would bind NULL.
  const char* begin = text.empty() ? "" : text.data();
  return Note(
      sqlite3_bind_text64(m_statement, index, begin, text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

Statement& Statement::BindBlob(int index, std::span<const std::byte> bytes) {
  if (m_code != SQLITE_OK) return *this;
  if (bytes.empty()) return Note(sqlite3_bind_zeroblob(m_statement, index, 0));
  return Note(sqlite3_bind_blob64(m_statement, index, bytes.data(), bytes.size(), SQLITE_STATIC));
}

Result<bool> Statement::Step() {
  if (m_code != SQLITE_OK) return m_database.Fail(m_code, m_task);
  const int code = sqlite3_step(m_statement);
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  return m_database.Fail(code, m_task);
}

Status Statement::Run() {
  Result<bool> row = Step();
  return row ? Status() : Status(std::move(row).error());
}

Status Statement::RunChange() {
  Status status = Run();
  if (!status || sqlite3_changes(m_database.Connection()) != 0) return status;
  return m_database.Fail(ErrorCode::Denied, m_task, "a trigger of the database ignores the change");
}

std::optional<std::int64_t> Statement::Number(int column) const {
  if (sqlite3_column_type(m_statement, column) != SQLITE_INTEGER) return std::nullopt;
  return sqlite3_column_int64(m_statement, column);
}

std::span<const std::byte> Statement::Bytes(int column) const {
  const void* bytes = sqlite3_column_blob(m_statement, column);
  const int size = sqlite3_column_bytes(m_statement, column);
  if (!bytes && sqlite3_errcode(sqlite3_db_handle(m_statement)) == SQLITE_NOMEM) {
    throw std::bad_alloc();
  }
  return {static_cast<const std::byte*>(bytes), bytes ? static_cast<std::size_t>(size) : 0};
}

std::optional<std::span<const std::byte>> Statement::Blob(int column) const {
  if (sqlite3_column_type(m_statement, column) != SQLITE_BLOB) return std::nullopt;
  return Bytes(column);
}

std::optional<std::string_view> Statement::Text(int column) const {
  if (sqlite3_column_type(m_statement, column) != SQLITE_TEXT) return std::nullopt;
  const std::span<const std::byte> bytes = Bytes(column);
  return std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

bool Statement::IsNull(int column) const {
  return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

}  // namespace TalVcs::Kit::Sqlite
