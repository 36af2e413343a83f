#pragma once

#include <kit/internal/pack_files.h>
#include <kit/internal/pack_indexes.h>
#include <kit/internal/pack_record.h>
#include <kit/text/result.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// The objects of a store in a folder that are in packs, by their encoded forms.
///
/// The newest pack grows by one append for each write. Indexes say where the records are, except
/// for the last ones, a thousand or a megabyte at most, which are found by reading them. So opening
/// costs the same however many objects there are, and a look-up a few reads.
///
/// Of several records of one object, the newest whole one counts.
///
/// What an index or a look into a pack has found is kept in memory. It stays right as long as the
/// packs that `Use` named are those of the store.
class PackedObjects {
 public:
  /// An object that was found.
  struct Found {
    PackPlace place;
    std::size_t encodedBytes = 0;
    std::string bytes;  ///< The encoded form, or its beginning.
  };
  /// An object to be written, whose encoded form the caller keeps.
  struct Entry {
    ObjectKey key{};
    std::string_view encoded;
  };

  /// Works in `folder`, which outlives this object.
  explicit PackedObjects(StoreFolder& folder) : m_files(folder), m_indexes(m_files) {}

  /// Takes over the packs that the journal names. Returns false if some are gone.
  bool Use(const PackSizes& packs);
  const PackSizes& GetPacks() const noexcept { return m_packs; }

  /// Finds an object and reads all of its encoded form. Fails with `Damaged` for one whose record
  /// is damaged.
  Result<std::optional<Found>> Read(const ObjectKey& key) { return Find(key, kMostPackedBytes); }
  /// Finds an object and reads the first bytes of its encoded form, without a check.
  Result<std::optional<Found>> ReadBeginning(const ObjectKey& key);

  using Visitor = std::function<void(const ScannedRecord& record, const PackPlace& place)>;
  /// Visits all records in the order in which they were written. Of an object that was written more
  /// than once, the last whole one counts.
  Status Visit(const Visitor& visit);
  Status VisitPack(std::uint32_t number, const Visitor& visit);

  /// Frees what can be read again.
  void Trim() noexcept {
    m_indexes.Trim();
    std::string().swap(m_bytes);
  }

  // For the one writer, which holds the lock.

  /// Makes ready for a write or a move of heads. The result is false if records are gone that were
  /// found before, because the write that made them failed.
  Result<bool> BeginWriting();
  /// Appends records in their order and waits until the medium has them, if the store is durable.
  /// The journal has to name the packs afterwards, of which one may be new.
  Status Append(std::span<const Entry> entries);
  /// Waits until the medium has what is there, if the store is durable.
  Status Sync();
  /// Where the packs end; pack 0 if there is none.
  const PackPlace& GetEnd() const noexcept { return m_end; }
  /// Writes an index if many records have none, or long ones.
  void WriteIndexIfDue();
  /// Replaces the indexes by one for all records; for after the packs were rewritten.
  void WriteWholeIndex();

  PackFiles& Files() noexcept { return m_files; }

  /// From this size on a new pack is begun.
  static constexpr std::uint64_t kFullPackBytes = std::uint64_t{128} << 20;

 private:
  Result<std::optional<Found>> Find(const ObjectKey& key, std::size_t most);
  Result<std::optional<Found>> LookUp(const ObjectKey& key, std::size_t most);
  Result<std::optional<Found>> LookAt(const ObjectKey& key, const PackPlace& place,
                                      std::size_t most);
  Result<std::string_view> ReadBytes(const PackPlace& place, std::size_t size);
  Result<std::uint64_t> VisitFrom(std::uint32_t number, std::uint64_t from, const Visitor& visit);
  void Load();
  void ScanOn();
  void Take(const ScannedRecord& record, const PackPlace& place);
  bool CatchUp();
  Result<bool> EndIsKept();
  std::uint32_t NextPack() const { return m_packs.empty() ? 1 : m_packs.rbegin()->first + 1; }
  Status AppendPiece(std::string_view records, std::span<const Entry> entries);
  Status BeginPack(std::uint32_t number, std::string_view records);

  PackFiles m_files;
  PackIndexes m_indexes;
  PackSizes m_packs;
  bool m_loaded = false;
  std::map<ObjectKey, PackPlace> m_tail;  // records that no index has
  PackPlace m_end;                        // where the next record is looked for
  std::optional<std::uint32_t> m_lastCheck;
  std::uint64_t m_tailBytes = 0;
  std::size_t m_tailAfterLoad = 0;
  bool m_cutShort = false;  // the newest pack is shorter than the journal says
  std::optional<Error> m_unreadable;
  PackPlace m_synced;
  std::string m_bytes;  // room that all reads of records use
};

}  // namespace TalVcs::Kit
