#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/transaction.h>

namespace TalVcs::Kit::Sqlite {
namespace {

/// Undoes what is open. A failure leaves a journal, by which the next transaction undoes it.
void Rollback(Database& database) {
  if (!database.IsInTransaction()) return;
  [[maybe_unused]] const Status ignored = database.Use(Query::Rollback, Task::Read).Run();
}

}  // namespace

ReadTransaction::~ReadTransaction() {
  if (m_isOpen) Rollback(m_database);
}

Status ReadTransaction::Begin() {
  if (m_database.IsInTransaction()) return {};
  Status status = m_database.Use(Query::BeginReading, Task::Read).Run();
  m_isOpen = status.ok();
  return status;
}

WriteTransaction::~WriteTransaction() {
  if (m_isOpen) Rollback(m_database);
}

Status WriteTransaction::Begin() {
  if (m_database.IsReadOnly()) {
    return m_database.Fail(ErrorCode::Denied, Task::Save, "it can only be read");
  }
  if (m_database.IsInTransaction()) {
    return m_database.Fail(ErrorCode::Busy, Task::Save, "this store object is removing objects");
  }
  Status status = m_database.Use(Query::BeginWriting, Task::Save).Run();
  m_isOpen = status.ok();
  return status;
}

Status WriteTransaction::Commit() {
  Status status = m_database.Use(Query::Commit, Task::Save).Run();
  if (status) {
    m_isOpen = false;
    return status;
  }
  if (status.error().code != ErrorCode::Unavailable) return status;
  // The journal may be gone although its removal failed.
  Error unknown = std::move(status).error();
  unknown.code = ErrorCode::Unknown;
  unknown.message += " while a change was completed";
  unknown.unchanged = "read it again to find out whether the change is in it";
  return unknown;
}

}  // namespace TalVcs::Kit::Sqlite
