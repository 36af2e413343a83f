#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

namespace TalVcs::Testing {

/// A file as another program of SQLite sees it.
class RawFile {
 public:
  explicit RawFile(const std::filesystem::path& path) {
    EXPECT_EQ(sqlite3_open(path.string().c_str(), &m_connection), SQLITE_OK);
  }
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;
  ~RawFile() { EXPECT_EQ(sqlite3_close(m_connection), SQLITE_OK); }

  sqlite3* Connection() const noexcept { return m_connection; }

  void Execute(const char* statements) {
    EXPECT_EQ(sqlite3_exec(m_connection, statements, nullptr, nullptr, nullptr), SQLITE_OK)
        << statements << ": " << sqlite3_errmsg(m_connection);
  }

  /// Returns the rows, each as its columns with a space between, and a line feed between two rows.
  std::string Query(const std::string& statement) {
    std::string text;
    const auto take = [](void* target, int count, char** columns, char**) {
      std::string& rows = *static_cast<std::string*>(target);
      if (!rows.empty()) rows += '\n';
      for (int column = 0; column < count; ++column) {
        if (column != 0) rows += ' ';
        rows += columns[column] ? columns[column] : "NULL";
      }
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(m_connection, statement.c_str(), take, &text, nullptr), SQLITE_OK)
        << statement << ": " << sqlite3_errmsg(m_connection);
    return text;
  }

 private:
  sqlite3* m_connection = nullptr;
};

/// Makes a document of the first version, in the state that `SaveOldState` saves, with a value.
inline void MakeFirstVersion(RawFile& file) {
  file.Execute(
      "PRAGMA page_size = 1024; PRAGMA application_id = 1415670870; PRAGMA user_version = 1;"
      "CREATE TABLE objects(\n"
      "  number INTEGER PRIMARY KEY,\n"
      "  id BLOB NOT NULL,\n"
      "  size INTEGER NOT NULL,\n"
      "  encoding INTEGER NOT NULL,\n"
      "  data BLOB NOT NULL);\n"
      "CREATE INDEX objects_by_id ON objects(substr(id, 1, 8));\n"
      "CREATE TABLE heads(\n"
      "  name TEXT NOT NULL PRIMARY KEY,\n"
      "  id BLOB NOT NULL) WITHOUT ROWID;\n"
      "CREATE TABLE host_values(\n"
      "  name TEXT NOT NULL PRIMARY KEY,\n"
      "  value BLOB NOT NULL,\n"
      "  sum INTEGER NOT NULL) WITHOUT ROWID;\n"
      "CREATE TABLE meta(\n"
      "  name TEXT NOT NULL PRIMARY KEY,\n"
      "  value INTEGER NOT NULL) WITHOUT ROWID;\n"
      "INSERT INTO meta VALUES('heads', -4617998127557158047), ('removals', 0);"
      "INSERT INTO objects VALUES"
      " (1, X'ddb534110a04466b74f11eccd9ee814331ae64e3f0de2cf1c6d7517cebba2768', 21, 0,"
      "  CAST('shared by both states' AS BLOB)),"
      " (2, X'3436a41754f9415ca5fd3753d80bf84c7d177673cdcb8e08e06c032910e52526', 16, 0,"
      "  CAST('of the old state' AS BLOB));"
      "INSERT INTO heads VALUES"
      " ('master', X'3436a41754f9415ca5fd3753d80bf84c7d177673cdcb8e08e06c032910e52526'),"
      " ('topic', X'ddb534110a04466b74f11eccd9ee814331ae64e3f0de2cf1c6d7517cebba2768');"
      "INSERT INTO host_values VALUES('current', X'6d6173746572', 3877975709230338520)");
}

}  // namespace TalVcs::Testing
