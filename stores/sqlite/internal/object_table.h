#pragma once

#include <kit/store/encoded_objects.h>
#include <kit/store/object_codec.h>
#include <kit/store/object_key.h>
#include <kit/store/object_store.h>
#include <stores/sqlite/internal/object_rows.h>
#include <stores/sqlite/internal/pending_objects.h>

#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Sqlite {

class Database;

/// The table of objects, which are encoded on the way in and decoded on the way out. Each function
/// but `List` runs inside the transaction that is open.
class ObjectTable {
 public:
  ObjectTable(Database& database, bool compress)
      : m_database(database),
        m_rows(database),
        m_compress(compress && ObjectEncoder::CanCompress()) {}

  Result<bool> Has(const ObjectKey& key);
  Result<std::optional<std::uint64_t>> SizeOf(const ObjectKey& key);
  /// Fails with `NotFound` if there is no such object. Cost: a look-up, and one for each difference
  /// down to an object that has no base, at most `kMostDifferences`.
  Result<Buffer> Read(const ObjectKey& key);

  /// Inserts those of the objects that the table lacks. Needs a write transaction.
  Status Insert(std::span<const PendingObjects::Entry> objects);

  /// Puts an object into the table in place of what the table has under its key. Needs a write
  /// transaction.
  Status Replace(const PendingObjects::Entry& object);

  /// Inserts a row of another table under its number, and encodes it if it is plain. The table must
  /// lack it. Needs a write transaction.
  Status InsertCopy(const ObjectRow& row);

  /// Appends the keys of the next rows after `number`, which then is that of the last one. Appends
  /// none at the end.
  Status List(std::int64_t& number, std::vector<ObjectKey>& keys);

  /// Removes all objects whose keys aren't in `kept`, which is in order. What is kept as a
  /// difference from a removed object is encoded anew. Needs a write transaction.
  Result<RemovedObjects> RemoveAllBut(std::span<const ObjectKey> kept);

  /// Frees what can be read again.
  void Trim() noexcept { m_encoded.Clear(); }

 private:
  struct Removal {
    RemovedObjects removed;
    std::vector<std::int64_t> numbers;                               // in order
    std::vector<std::pair<std::int64_t, std::int64_t>> differences;  // kept rows and their bases
  };

  Status InsertOne(const PendingObjects::Entry& object);
  Status Encode(const PendingObjects::Entry& object, ObjectRow& row);
  Result<Buffer> Decode(const ObjectRow& row);
  Result<std::vector<std::byte>> ReadEncoded(const Id& id);
  Result<std::optional<ObjectRow>> FindBase(const ObjectKey& key);
  Result<std::int64_t> NumberOf(const ObjectKey& key);
  Result<std::int64_t> FindBaseRow(const EncodedHeader& difference);
  Result<Removal> FindRemovals(std::span<const ObjectKey> kept);
  Status EncodeWithoutBase(std::int64_t number);

  Database& m_database;
  ObjectRows m_rows;
  EncodedObjects m_encoded;
  bool m_compress;
  // The encoding of the row that was decoded last: if it is the number of a base, that is asked for
  // next.
  RowEncoding m_lastEncoding = kPlainRow;
};

}  // namespace TalVcs::Kit::Sqlite
