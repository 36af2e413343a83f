#pragma once

#include <kit/store/encoded_objects.h>
#include <kit/store/object_key.h>
#include <kit/store/object_store.h>
#include <stores/sqlite/internal/raw_file.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Sqlite {

/// What a damaged document has in its pages, whether or not SQLite finds it: every record that
/// looks like one of the tables. What an object has is compared with its id, so nothing wrong comes
/// out.
class RawDocument {
 public:
  explicit RawDocument(const std::filesystem::path& path) : m_file(path) {}

  /// An object that was found.
  struct Found {
    Buffer packed;
    Id base;  // of which it was a difference; empty for none
  };

  bool IsOpen() const { return m_file.IsOpen(); }
  std::uint64_t CountPages() const noexcept { return m_file.CountPages(); }
  std::uint64_t PageBytes() const noexcept { return m_file.PageBytes(); }
  /// Takes the records of a page.
  void TakePage(std::uint64_t page);

  /// Returns the keys of all objects of which a record was found, in the order of their numbers.
  std::vector<ObjectKey> Keys() const;
  /// Returns an object. Nothing if no record of it is whole, or if its base wasn't returned before.
  std::optional<Found> Read(const ObjectKey& key);

  /// Chooses the branches. Of two records of one branch, the one whose commit was written last
  /// counts. Unless the sum of the document is theirs, branches without a commit are left out.
  std::vector<Head> ChooseHeads();
  /// Returns whether the sum of the document is that of the branches that were chosen.
  bool HasAllHeads() const noexcept { return m_hasAllHeads; }
  /// Returns the commits that are no head and no other commit's parent, the newest first.
  std::vector<Id> Tips() const;

  /// Values with their checksums, which fit.
  const std::map<std::string, std::string>& Values() const noexcept { return m_values; }

 private:
  using Place = RawFile::Place;
  struct Objects {
    std::int64_t number = 0;    // of the row that was found first
    std::vector<Place> places;  // of all rows of this id
    bool isWhole = false;
  };
  using Pieces = std::map<std::pair<std::int64_t, std::int64_t>, Place>;

  void TakeRow(const RawFile::Cell& cell);
  void TakeEntry(const RawFile::Cell& cell);
  bool TakePiece(const RawFile::Cell& cell, const std::string& record);
  bool TakeHead(const std::string& record);
  bool TakeValue(const std::string& record);
  bool TakeMeta(const std::string& record);
  bool HasRoom(std::uint64_t sizeBytes);
  std::optional<std::vector<std::byte>> EncodedAt(const Place& place);
  std::optional<std::string> PiecesOf(std::int64_t number, std::int64_t count);
  Result<std::vector<std::byte>> ReadBase(const Id& id);
  std::optional<Found> ReadAt(const Place& place, const Id& id);
  void NoteCommit(const ObjectKey& key, const Buffer& packed);
  std::int64_t NumberOf(const Id& id) const;

  RawFile m_file;
  std::uint64_t m_takenBytes = 0;
  std::map<ObjectKey, Objects> m_objects;
  Pieces m_pieces;
  std::map<std::string, std::vector<Id>> m_heads;
  std::vector<Head> m_chosen;
  bool m_hasAllHeads = false;
  std::vector<std::uint64_t> m_headSums;
  std::map<std::string, std::string> m_values;
  std::map<ObjectKey, Id> m_commits;  // with their parents
  EncodedObjects m_encoded;
};

}  // namespace TalVcs::Kit::Sqlite
