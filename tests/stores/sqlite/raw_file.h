#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>

namespace TalVcs::Testing {

/// A file as another program of SQLite sees it.
class RawFile {
 public:
  explicit RawFile(const std::filesystem::path& path) {
    EXPECT_EQ(sqlite3_open(path.string().c_str(), &m_connection), SQLITE_OK);
  }
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;
  ~RawFile() { sqlite3_close(m_connection); }

  void Execute(const char* statements) {
    EXPECT_EQ(sqlite3_exec(m_connection, statements, nullptr, nullptr, nullptr), SQLITE_OK)
        << statements << ": " << sqlite3_errmsg(m_connection);
  }

 private:
  sqlite3* m_connection = nullptr;
};

}  // namespace TalVcs::Testing
