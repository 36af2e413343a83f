#pragma once

#include <kit/store/object_store.h>

#include <span>
#include <vector>

namespace TalVcs::Kit::Sqlite {

class Database;

/// The table of heads, with a sum over all rows, so that a row that was lost or changed by damage
/// shows. Each function runs inside the transaction that is open, if there is one.
class HeadTable {
 public:
  explicit HeadTable(Database& database) noexcept : m_database(database) {}

  /// Returns all heads, sorted by the bytes of their names. If the sum doesn't fit, fails with
  /// `Damaged`, and the error has the heads that can be read.
  Result<std::vector<Head>> List();

  /// Fails as `CheckMoves` does.
  Status Check(std::span<const HeadMove> moves);
  /// Makes moves that were checked. Needs a write transaction.
  Status Apply(std::span<const HeadMove> moves);

 private:
  Result<Id> Find(const std::string& name);
  Status Set(const HeadMove& move);

  Database& m_database;
};

}  // namespace TalVcs::Kit::Sqlite
