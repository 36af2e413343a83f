#pragma once

#include <stores/sqlite/internal/raw_pages.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit::Sqlite {

/// A value of a record.
struct RawColumn {
  enum class Kind { Null, Number, Text, Blob, Other };

  Kind kind = Kind::Null;
  std::int64_t number = 0;
  std::size_t at = 0;  // of the bytes of a text or a blob in the record
  std::size_t size = 0;
};

/// Returns the columns of a record, of which the first bytes must be there; nothing for bytes that
/// are no record of that many columns. The bytes of the last columns may be missing.
std::optional<std::vector<RawColumn>> ReadRawColumns(std::string_view record, std::size_t count);

/// The records in the pages of a SQLite file and of the log beside it, whether or not other pages
/// lead to them.
class RawFile {
 public:
  /// Where a record begins.
  struct Place {
    std::uint64_t page = 0;
    std::uint32_t offset = 0;
  };
  /// A record in a page.
  struct Cell {
    Place place;
    /// Whether it is a row with a number. Otherwise it is an entry of an index or of a table
    /// without such numbers.
    bool isRow = false;
    std::int64_t number = 0;
    std::uint64_t sizeBytes = 0;  // of the record
    std::size_t at = 0;           // of its first bytes in the page
    std::size_t localBytes = 0;   // those that are in the page
    std::uint32_t next = 0;       // the page with the others
  };

  /// Opens the file; with the page size of its header, unless its pages look more like those of
  /// another size.
  explicit RawFile(const std::filesystem::path& path);

  bool IsOpen() const { return m_pages.IsOpen(); }
  std::uint64_t SizeBytes() const noexcept { return m_pages.SizeBytes(); }
  std::uint64_t CountPages() const noexcept { return m_pages.Count(); }
  std::uint64_t PageBytes() const noexcept { return m_pages.PageBytes(); }
  PageState StateOf(std::uint64_t page) const { return m_pages.StateOf(page); }

  /// Calls `visit` for each record of a page.
  void Visit(std::uint64_t page, const std::function<void(const Cell& cell)>& visit);
  /// Returns a record that a visit has found.
  std::optional<Cell> Find(const Place& place);
  /// Returns the bytes of a record, the first `most` at least if it has as many; nothing if any of
  /// them is missing, or if its pages form a circle.
  std::optional<std::string> Read(const Cell& cell, std::uint64_t most);

  /// How many pages may still be read as parts of records. A crafted file can have a page in many
  /// records, so the owner sets it back only after what it has read turned out to be true.
  std::uint64_t LinksLeft() const noexcept { return m_linksLeft; }
  void SetLinksLeft(std::uint64_t links) noexcept { m_linksLeft = links; }

 private:
  void FindPageBytes();
  std::uint64_t CountFittingPages();
  bool Fits(std::uint64_t page);
  bool ReadLinkedPage(std::uint32_t number, std::uint64_t from);
  std::optional<Cell> CellAt(const Place& place) const;

  RawPages m_pages;
  std::size_t m_reservedBytes = 0;  // at the end of each page
  std::uint64_t m_linksLeft = 0;
};

}  // namespace TalVcs::Kit::Sqlite
