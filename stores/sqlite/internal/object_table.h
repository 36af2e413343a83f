#pragma once

#include <kit/store/object_store.h>
#include <stores/sqlite/internal/object_key.h>
#include <stores/sqlite/internal/pending_objects.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace TalVcs::Kit::Sqlite {

class Database;

/// The table of objects. Each function runs inside the transaction that is open, if there is one.
class ObjectTable {
 public:
  explicit ObjectTable(Database& database) noexcept : m_database(database) {}

  Result<bool> Has(const ObjectKey& key);
  Result<std::optional<std::uint64_t>> SizeOf(const ObjectKey& key);
  /// Fails with `NotFound` if there is no such object.
  Result<Buffer> Read(const ObjectKey& key);

  /// Inserts those of the objects that the table lacks. Needs a write transaction.
  Status Insert(std::span<const PendingObjects::Entry> objects);

  /// Appends the keys of the next rows after `number`, which then is that of the last one. Appends
  /// none at the end.
  Status List(std::int64_t& number, std::vector<ObjectKey>& keys);

  /// Removes all objects whose keys aren't in `kept`, which is in order. Needs a write transaction.
  Result<RemovedObjects> RemoveAllBut(std::span<const ObjectKey> kept);

 private:
  Result<Buffer> BufferFrom(const Id& id, const class Statement& row);
  Status InsertOne(const PendingObjects::Entry& object);
  Status Remove(std::span<const std::int64_t> numbers);
  Error Damage(const Id& id) const;

  Database& m_database;
};

}  // namespace TalVcs::Kit::Sqlite
