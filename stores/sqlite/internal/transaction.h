#pragma once

#include <kit/text/result.h>

namespace TalVcs::Kit::Sqlite {

class Database;

/// A read transaction, which makes many look-ups cost one lock and see one state. Part of the
/// transaction that is open already, if there is one.
class ReadTransaction {
 public:
  explicit ReadTransaction(Database& database) noexcept : m_database(database) {}
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;
  ~ReadTransaction();

  Status Begin();

 private:
  Database& m_database;
  bool m_isOpen = false;
};

/// A write transaction, or a savepoint in the transaction that a host has begun. What isn't
/// committed is undone at the end.
class WriteTransaction {
 public:
  explicit WriteTransaction(Database& database) noexcept : m_database(database) {}
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;
  ~WriteTransaction();

  /// Waits for other writers, and brings the tables up to date. Fails with `Denied` if the file can
  /// only be read, with `Unsupported` if a newer program has changed its tables.
  Status Begin();
  /// As `Begin`, but leaves the tables as they are.
  Status BeginOnAnySchema();

  /// Makes the changes durable, or leaves that to the host's transaction. Fails with `Unknown` if
  /// the system failed in a way that leaves open whether it has. Everything is undone after any
  /// other error.
  Status Commit();
  /// As `Commit`, but leaves the number of the log to the caller.
  Status CommitUncounted();

 private:
  void Undo() noexcept;

  Database& m_database;
  bool m_isOpen = false;
  // The host's transaction goes on after this one.
  bool m_isNested = false;
  // Rows that the connection had changed before.
  int m_changesBefore = 0;
};

}  // namespace TalVcs::Kit::Sqlite
