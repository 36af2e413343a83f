#pragma once

#include <kit/store/object_key.h>
#include <kit/text/result.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace TalVcs::Kit::Sqlite {

class Database;
class Statement;

/// How a row has its packed form: plain, compressed, or as a difference from the object of another
/// row, whose number it then is. Numbers of rows are positive.
using RowEncoding = std::int64_t;
inline constexpr RowEncoding kPlainRow = 0;
inline constexpr RowEncoding kCompressedRow = -1;

/// A row of the table of objects, with the data in memory.
struct ObjectRow {
  std::int64_t number = 0;
  ObjectKey key{};
  std::uint64_t sizeBytes = 0;  // of the packed form
  RowEncoding encoding = kPlainRow;
  Buffer data;

  bool IsDifference() const noexcept { return encoding > 0; }
};

/// The rows of objects with their data, which is split into pieces if it is long: SQLite limits the
/// bytes of one row. Each function runs inside the transaction that is open.
class ObjectRows {
 public:
  explicit ObjectRows(Database& database) noexcept : m_database(database) {}

  /// Return nothing if there is no such row. Fail with `Damaged` for a row that no store writes.
  Result<std::optional<ObjectRow>> Find(const ObjectKey& key);
  Result<std::optional<ObjectRow>> Find(std::int64_t number);

  /// Inserts a row under its number, or under a new one if that is 0.
  Status Insert(const ObjectRow& row);
  /// Replaces the encoding and the data of the row of the same number.
  Status Update(const ObjectRow& row);
  Status Remove(std::int64_t number);

  /// Returns the error for a damaged row of an object.
  Error Damage(const ObjectKey& key) const;

 private:
  Result<std::optional<ObjectRow>> Take(Statement& statement);
  Status ReadPieces(ObjectRow& row, std::int64_t count);
  Status WritePieces(std::int64_t number, const Buffer& data);

  Database& m_database;
};

/// Returns the encoded form of an object that a plain row has; see docs/formats.md.
std::vector<std::byte> EncodedFormOf(std::span<const std::byte> packed);

}  // namespace TalVcs::Kit::Sqlite
