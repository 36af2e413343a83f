#pragma once

#include <kit/internal/pack_files.h>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace TalVcs::Kit {

/// Packs by their numbers, each with the size up to which the journal knows it to be complete.
using PackSizes = std::map<std::uint32_t, std::uint64_t>;

/// The indexes of the packs of a store, each of which continues the one before. All can be made
/// from the packs again, so one that is damaged or missing is no loss.
class PackIndexes {
 public:
  /// Works on `files`, which outlive this object.
  explicit PackIndexes(PackFiles& files) : m_files(files) {}

  /// Opens those that fit the packs, except what was found damaged before.
  void Load(const PackSizes& packs);

  /// Where the records begin that no index has.
  PackPlace GetEnd() const;

  /// Returns the number of indexes. A later one has later records.
  std::size_t GetCount() const noexcept { return m_parts.size(); }

  /// Appends the places of the objects with that prefix that one index has, in no order. False if
  /// the index is damaged: the caller loads them again and scans what is left out then.
  bool Find(std::size_t index, std::uint64_t prefix, std::vector<std::uint64_t>& places);
  /// Frees the pages that can be read again.
  void Trim() noexcept;

  /// Adds an index of records from the end up to `to`, and merges it with others so that the number
  /// of indexes grows with the logarithm of the number of objects. One writer at a time. False if
  /// it couldn't be written; the indexes are as before then.
  bool Add(const PackPlace& to, std::uint32_t lastCheck, std::vector<PackIndexEntry> entries);
  /// Replaces all indexes by one that has everything up to `to`.
  bool Replace(const PackPlace& to, std::uint32_t lastCheck, std::vector<PackIndexEntry> entries);

 private:
  using Name = PackFiles::IndexName;
  struct Part {
    Name name;
    std::unique_ptr<PackIndex> index;
  };

  bool Fits(const PackIndex& index, const PackSizes& packs);
  bool Write(const PackIndexRange& range, std::vector<PackIndexEntry> entries);
  void RemoveOthers();

  PackFiles& m_files;
  std::vector<Part> m_parts;
  std::vector<Name> m_damaged;
};

}  // namespace TalVcs::Kit
