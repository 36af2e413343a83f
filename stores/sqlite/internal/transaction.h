#pragma once

#include <kit/text/result.h>

namespace TalVcs::Kit::Sqlite {

class Database;

/// A read transaction, which makes many look-ups cost one lock. Part of the transaction that is
/// open already, if there is one.
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

/// A write transaction. What isn't committed is undone at the end.
class WriteTransaction {
 public:
  explicit WriteTransaction(Database& database) noexcept : m_database(database) {}
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;
  ~WriteTransaction();

  /// Waits for other writers. Fails with `Denied` if the file can only be read.
  Status Begin();

  /// Makes the changes durable. Fails with `Unknown` if the system failed in a way that leaves open
  /// whether it has. Everything is undone after any other error.
  Status Commit();

 private:
  Database& m_database;
  bool m_isOpen = false;
};

}  // namespace TalVcs::Kit::Sqlite
