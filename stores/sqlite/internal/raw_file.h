#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
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
/// lead to them. Reads the file alone: nothing is locked or changed, and what can't be read is left
/// out.
class RawFile {
 public:
  /// Where a record begins: the number of a page, from 0 on, those of the log last.
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

  /// Opens the file; with the page size of its header, or with the one in which most records are
  /// found if the header is damaged.
  explicit RawFile(const std::filesystem::path& path);

  bool IsOpen() const { return m_file.is_open(); }
  std::uint64_t CountPages() const noexcept { return m_filePages + m_framePages; }
  std::uint64_t PageBytes() const noexcept { return m_pageBytes; }
  /// Returns the bytes of the file and of the log.
  std::uint64_t SizeBytes() const noexcept { return m_fileBytes + m_logBytes; }

  /// Calls `visit` for each record of a page.
  void Visit(std::uint64_t page, const std::function<void(const Cell& cell)>& visit);
  /// Returns a record that a visit has found.
  std::optional<Cell> Find(const Place& place);
  /// Returns the bytes of a record, the first `most` at least if it has as many; nothing if any of
  /// them is missing, or if its pages form a circle.
  std::optional<std::string> Read(const Cell& cell, std::uint64_t most);

 private:
  bool ReadPage(std::uint64_t page);
  bool ReadLinkedPage(std::uint32_t number);
  void SetPageBytes(std::size_t bytes);
  void FindPageBytes();
  void FindFrames();
  std::optional<Cell> CellAt(const Place& place) const;

  std::ifstream m_file;
  std::ifstream m_log;
  std::uint64_t m_fileBytes = 0;
  std::uint64_t m_logBytes = 0;
  std::size_t m_pageBytes = 512;
  std::size_t m_reservedBytes = 0;  // at the end of each page
  std::uint64_t m_filePages = 0;
  std::uint64_t m_framePages = 0;
  std::unordered_map<std::uint32_t, std::uint64_t> m_frames;  // pages that the log has, by number
  // A crafted file can have a page in many records.
  std::uint64_t m_mostLinks = 0;
  std::uint64_t m_page = 0;  // the one in `m_bytes`
  std::string m_bytes;
};

}  // namespace TalVcs::Kit::Sqlite
