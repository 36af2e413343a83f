#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/log.h>
#include <stores/sqlite/internal/schema.h>
#include <stores/sqlite/internal/transaction.h>

namespace TalVcs::Kit::Sqlite {

ReadTransaction::~ReadTransaction() {
  if (!m_isOpen || !m_database.IsInTransaction()) return;
  m_database.RunQuietly(Query::Rollback);
}

Status ReadTransaction::Begin() {
  // A statement of the host that is writing has a transaction, which mustn't end here.
  if (m_database.IsInTransaction() || m_database.HasWritingStatement()) return {};
  Status status = m_database.FollowFile();
  if (status) status = m_database.Use(Query::BeginReading, Task::Read).Run();
  m_isOpen = status.ok();
  return status;
}

WriteTransaction::~WriteTransaction() {
  if (m_isOpen) Undo();
}

/// A failure leaves a journal, by which the next transaction undoes the changes.
void WriteTransaction::Undo() noexcept {
  m_isOpen = false;
  m_database.SetWriting(false);
  // After some failures SQLite has undone the whole transaction.
  if (!m_database.IsInTransaction()) return;
  if (!m_isNested) {
    m_database.RunQuietly(Query::Rollback);
  } else if (m_database.RunQuietly(Query::RollbackToSavepoint)) {
    m_database.RunQuietly(Query::ReleaseSavepoint);
  }
}

Status WriteTransaction::BeginOnAnySchema() {
  if (m_database.IsReadOnly()) {
    return m_database.Fail(ErrorCode::Denied, Task::Save, "it can only be read");
  }
  if (m_database.IsWriting()) {
    return m_database.Fail(ErrorCode::Busy, Task::Save, "this store object is removing objects");
  }
  if (m_database.HasWritingStatement()) {
    return m_database.Fail(ErrorCode::Busy, Task::Save, "a statement of the host is writing");
  }
  m_isNested = m_database.IsInTransaction();
  Status status = m_isNested ? Status() : m_database.FollowFile();
  if (!status) return status;
  status = m_database.Use(m_isNested ? Query::Savepoint : Query::BeginWriting, Task::Save).Run();
  m_isOpen = status.ok();
  m_database.SetWriting(m_isOpen);
  m_changesBefore = sqlite3_total_changes(m_database.Connection());
  return status;
}

Status WriteTransaction::Begin() {
  Status status = BeginOnAnySchema();
  if (status) status = UpdateSchema(m_database);
  if (!status && m_isOpen) Undo();
  return status;
}

Status WriteTransaction::Commit() {
  // A transaction without a change isn't in the log.
  if (sqlite3_total_changes(m_database.Connection()) != m_changesBefore) {
    if (Status status = MarkLog(m_database); !status) return status;
  }
  return CommitUncounted();
}

Status WriteTransaction::CommitUncounted() {
  Status status =
      m_database.Use(m_isNested ? Query::ReleaseSavepoint : Query::Commit, Task::Save).Run();
  if (status) {
    m_isOpen = false;
    m_database.SetWriting(false);
    return status;
  }
  const bool has_system_failed = (sqlite3_errcode(m_database.Connection()) & 0xFF) == SQLITE_IOERR;
  if (status.error().code != ErrorCode::Unavailable && !has_system_failed) return status;
  // The journal may be gone although its removal failed.
  Error unknown = std::move(status).error();
  unknown.code = ErrorCode::Unknown;
  unknown.message += " while a change was completed";
  unknown.unchanged = "read it again to find out whether the change is in it";
  return unknown;
}

}  // namespace TalVcs::Kit::Sqlite
