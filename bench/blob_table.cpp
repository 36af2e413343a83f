#include <bench/blob_table.h>
#include <kit/text.h>
#include <sqlite3.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <string>

namespace TalVcs::Bench {
namespace {

using Key = std::array<unsigned char, 32>;

Key KeyOf(const Id& id) {
  const std::string digits = Kit::ToUtf8(id.View());
  Key key{};
  for (std::size_t index = 0; index < key.size(); ++index) {
    key[index] = static_cast<unsigned char>(std::stoi(digits.substr(2 * index, 2), nullptr, 16));
  }
  return key;
}

}  // namespace

BlobTable::BlobTable(const std::filesystem::path& path, bool durable) {
  Require(sqlite3_open(path.c_str(), &m_database) == SQLITE_OK);
  Run(durable ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF");
  Run("CREATE TABLE IF NOT EXISTS objects(id BLOB PRIMARY KEY, bytes BLOB NOT NULL)");
  m_insert = Prepare("INSERT INTO objects VALUES(?1, ?2)");
  m_select = Prepare("SELECT bytes FROM objects WHERE id = ?1");
}

BlobTable::~BlobTable() {
  sqlite3_finalize(m_insert);
  sqlite3_finalize(m_select);
  sqlite3_close(m_database);
}

void BlobTable::Insert(const Saved& objects) {
  Run("BEGIN IMMEDIATE");
  for (const Kit::StoredObject& object : objects) {
    const Key key = KeyOf(object.id);
    const std::string bytes = Kit::BytesFromBuffer(object.packed);
    sqlite3_bind_blob(m_insert, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    sqlite3_bind_blob(m_insert, 2, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
    Require(sqlite3_step(m_insert) == SQLITE_DONE);
    sqlite3_reset(m_insert);
  }
  Run("COMMIT");
}

Buffer BlobTable::Read(const Id& id) {
  const Key key = KeyOf(id);
  sqlite3_bind_blob(m_select, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
  Require(sqlite3_step(m_select) == SQLITE_ROW);
  Buffer packed;
  packed.Append(sqlite3_column_blob(m_select, 0),
                static_cast<std::size_t>(sqlite3_column_bytes(m_select, 0)));
  sqlite3_reset(m_select);
  return packed;
}

std::uint64_t BlobTable::Verify() {
  sqlite3_stmt* all = Prepare("SELECT id, bytes FROM objects");
  std::uint64_t count = 0;
  for (; sqlite3_step(all) == SQLITE_ROW; ++count) {
    Buffer packed;
    packed.Append(sqlite3_column_blob(all, 1),
                  static_cast<std::size_t>(sqlite3_column_bytes(all, 1)));
    const Key key = KeyOf(Id(packed));
    const auto* stored = static_cast<const unsigned char*>(sqlite3_column_blob(all, 0));
    Require(std::equal(key.begin(), key.end(), stored));
  }
  sqlite3_finalize(all);
  return count;
}

void BlobTable::Vacuum() { Run("VACUUM"); }

void BlobTable::Run(const char* sql) {
  Require(sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) == SQLITE_OK);
}

sqlite3_stmt* BlobTable::Prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  Require(sqlite3_prepare_v2(m_database, sql, -1, &statement, nullptr) == SQLITE_OK);
  return statement;
}

void BlobTable::Require(bool holds) {
  if (holds) return;
  std::cerr << "SQLite: " << sqlite3_errmsg(m_database) << '\n';
  std::exit(1);
}

}  // namespace TalVcs::Bench
