#pragma once

#include <kit/store/object_codec.h>
#include <kit/store/object_key.h>
#include <kit/store/object_store.h>
#include <stores/postgres/internal/lease.h>
#include <stores/postgres/internal/session.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <unordered_set>
#include <vector>

namespace TalVcs::Kit::Postgres {

/// The rows of the objects of a repository, which are encoded on the way in and decoded on the way
/// out.
class ObjectTable {
 public:
  ObjectTable(Session& session, Lease& lease, bool compress) noexcept
      : m_session(session), m_lease(lease), m_compress(compress && ObjectEncoder::CanCompress()) {}

  Result<std::vector<Id>> Missing(std::span<const Id> ids);
  Status Read(std::span<const Id> ids, const ReadSink& sink);
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids);
  Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink);
  Status Write(std::span<const StoredObject> objects);
  Status Replace(std::span<const StoredObject> objects);

  /// Returns the object of a row, unless it isn't one that a store writes or its bytes are in
  /// pieces.
  std::optional<StoredObject> ObjectIn(const Rows& rows, int row);

  /// Appends the keys after the last of `keys`, or the first ones; none at the end.
  Status List(std::vector<ObjectKey>& keys);

  /// Fails with `Busy` if anything is gone that the save relies on, which is what a move of heads
  /// needs. Needs a transaction that has locked the repository and read its counters.
  Status CheckLease(const Counters& now);

  /// Removes objects and returns what there was of them. Needs a transaction.
  Result<RemovedObjects> Remove(std::span<const ObjectKey> keys);

 private:
  using KeySet = std::unordered_set<ObjectKey, ObjectKeyHash>;

  // An object of which the bytes are in the table of pieces.
  struct Large {
    ObjectKey key;
    std::int64_t sizeBytes;
    std::int64_t pieces;
  };

  // An object that one row is to have. The encoded form is empty until it is needed.
  struct NewRow {
    ObjectKey key;
    const StoredObject* object;
    std::vector<std::byte> encoded;
  };

  // What to do with an object that is there.
  enum class Present { Keep, Replace };

  // A history of which the next commit is to be read.
  struct Line {
    std::optional<Id> next;
    std::uint64_t left;
  };

  Status FindMissing(std::span<const ObjectKey> keys, KeySet& missing);
  Status ReadOnce(std::span<const ObjectKey> part, KeySet& wanted, const ReadSink& sink);
  Status ReadLine(Line& line, const ReadSink& sink);
  static void Pass(Line& line, Result<Buffer> packed, const ReadSink& sink);
  Result<Buffer> ReadLarge(const Large& object);
  Result<Buffer> Decode(const ObjectKey& key, std::int64_t size_bytes,
                        std::span<const std::byte> encoded);
  Error Damage(const ObjectKey& key) const;
  std::vector<std::byte> Encode(const StoredObject& object);
  Status Put(std::span<const StoredObject> objects, Present present);
  Status WriteRows(std::vector<NewRow>& rows, Present present);
  Status WriteInSteps(std::span<const NewRow> rows, std::span<const ObjectKey> keys,
                      Present present, bool may_copy);
  Status CopyInto(std::span<const NewRow> rows, std::int64_t pass);
  Result<std::vector<Rows>> InsertRows(std::span<const NewRow> rows, std::vector<Call> calls);
  void AppendRow(const NewRow& row, std::int64_t pass, std::string& out);
  Parameters ValuesOf(std::span<const NewRow> rows);
  Status WriteLarge(const ObjectKey& key, std::int64_t size_bytes,
                    std::span<const std::byte> encoded, Present present);
  std::vector<Call> BeginWrite(std::span<const ObjectKey> keys, Present present) const;
  Status WritePieces(const ObjectKey& key, std::span<const std::byte> encoded);
  void Rely(const Rows& counters, std::span<const ObjectKey> written);
  bool HasLostConnection() const noexcept;
  Status CheckUploads(const Counters& now);
  Status RenewLease();
  Result<bool> Renew();
  Result<bool> AreThere(Sql count, std::span<const ObjectKey> keys);

  Session& m_session;
  Lease& m_lease;
  ObjectEncoder m_encoder;
  ObjectDecoder m_decoder;
  bool m_compress;
};

/// Returns the counters in a row of a repository.
inline Counters CountersIn(const Rows& rows) noexcept {
  return rows.Count() == 1 ? Counters{rows.Number(0, 0), rows.Number(0, 1)} : Counters();
}

}  // namespace TalVcs::Kit::Postgres
