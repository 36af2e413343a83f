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
#include <set>
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

  /// Chooses the branches, from pages of the last state. Of two records of one branch, the one
  /// whose commit was written last counts. Unless the sum of the document is theirs, branches
  /// without a commit are left out.
  std::vector<Head> ChooseHeads();
  /// Returns whether the sum of the document is that of the branches that were chosen.
  bool HasAllHeads() const noexcept { return m_hasAllHeads; }
  /// Returns the commits that are no head and no other commit's parent, the newest first. If the
  /// branches are all there, those that were removed aren't among them.
  std::vector<Id> Tips() const;

  /// Values with their checksums, which fit.
  const std::map<std::string, std::string>& Values() const noexcept { return m_values; }

 private:
  using Place = RawFile::Place;
  struct Row {
    Place place;
    PageState state = PageState::Live;
  };
  /// The first ones that were found, those of pages of the last state first.
  using Rows = std::vector<Row>;
  struct Objects {
    std::int64_t number = 0;  // of the first row
    PageState state = PageState::Live;
    Rows rows;  // with this id
    bool isWhole = false;
    std::size_t choice = 0;  // of its pieces
  };
  using Pieces = std::map<std::pair<std::int64_t, std::int64_t>, Rows>;

  static bool Insert(Rows& rows, const Row& row);
  void TakeRow(const RawFile::Cell& cell);
  void TakeEntry(const RawFile::Cell& cell);
  bool TakePiece(const RawFile::Cell& cell, const std::string& record);
  bool TakeHead(const std::string& record);
  bool TakeValue(const std::string& record);
  bool TakeMeta(const std::string& record);
  bool HasRoom(std::uint64_t sizeBytes);
  std::optional<std::vector<std::byte>> EncodedAt(const Place& place, std::size_t& choice);
  std::optional<std::string> PiecesOf(std::int64_t number, std::int64_t count, std::size_t& choice);
  std::optional<std::string> PieceAt(const Place& place);
  Result<std::vector<std::byte>> ReadBase(const Id& id);
  std::optional<Found> ReadAt(const Place& place, const Id& id, std::size_t& choice);
  void NoteCommit(const ObjectKey& key, const Buffer& packed);
  std::int64_t NumberOf(const Id& id) const;

  RawFile m_file;
  std::uint64_t m_takenBytes = 0;
  PageState m_state = PageState::Live;  // of the page whose records are taken
  std::map<ObjectKey, Objects> m_objects;
  Pieces m_pieces;
  std::map<std::string, std::vector<Id>> m_heads;
  std::vector<Head> m_chosen;
  bool m_hasAllHeads = false;
  std::set<std::uint64_t> m_headSums;
  std::map<std::string, std::string> m_values;
  std::set<ObjectKey> m_commits;
  std::set<ObjectKey> m_parents;  // those that a commit names
  EncodedObjects m_encoded;
};

}  // namespace TalVcs::Kit::Sqlite
