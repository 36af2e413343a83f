#pragma once

#include <bench/saves.h>

#include <filesystem>

struct sqlite3;
struct sqlite3_stmt;

namespace TalVcs::Bench {

/// What a SQLite file needs at least to keep objects: one table of ids and bytes, one transaction
/// for each save. Errors end the program.
class BlobTable {
 public:
  BlobTable(const std::filesystem::path& path, bool durable);
  BlobTable(const BlobTable&) = delete;
  BlobTable& operator=(const BlobTable&) = delete;
  ~BlobTable();

  void Insert(const Saved& objects);
  Buffer Read(const Id& id);
  /// Reads all objects and compares their ids; returns their number.
  std::uint64_t Verify();
  void Vacuum();

 private:
  void Run(const char* sql);
  sqlite3_stmt* Prepare(const char* sql);
  void Require(bool holds);

  sqlite3* m_database = nullptr;
  sqlite3_stmt* m_insert = nullptr;
  sqlite3_stmt* m_select = nullptr;
};

}  // namespace TalVcs::Bench
