#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit::Sqlite {

/// Whether a page has a part of the last state of the document.
enum class PageState {
  Live,
  Unknown,  ///< It is in the log after the last transaction that is whole there.
  Old,      ///< It is free, or a newer one in the log replaces it.
};

/// The pages of a SQLite file and of the log beside it. Reads the file alone: nothing is locked or
/// changed, and what can't be read is left out. Pages have numbers from 0 on, those of the log
/// last.
class RawPages {
 public:
  explicit RawPages(const std::filesystem::path& path);

  bool IsOpen() const { return m_file.is_open(); }
  /// The size of the file and its log.
  std::uint64_t SizeBytes() const noexcept { return m_fileBytes + m_logBytes; }
  /// How many pages there are, those of the file alone at first, and those of the log after
  /// `FindStates`.
  std::uint64_t Count() const noexcept { return m_filePages + m_framePages; }
  std::size_t PageBytes() const noexcept { return m_pageBytes; }
  void SetPageBytes(std::size_t bytes);

  /// Reads the pages of the log, and the list of free pages while the first page has it.
  void FindStates();
  PageState StateOf(std::uint64_t page) const;
  /// Returns the page that another one names by that number, which begins with 1.
  std::uint64_t Linked(std::uint32_t number, std::uint64_t from) const;

  /// Reads a page, unless it is the last one that was read.
  bool Read(std::uint64_t page);
  /// The page that was read.
  const std::string& Bytes() const noexcept { return m_bytes; }
  /// Reads the first bytes of the file; false if it has fewer.
  bool ReadFileHeader(std::string& bytes);

 private:
  using Frames = std::map<std::uint32_t, std::uint64_t>;  // pages of the log by numbers

  void FindFrames();
  void FindOtherFrames(const std::vector<unsigned char>& log_header);
  void FindFreePages();
  bool ReadFreePages();
  bool MarkFree(std::uint32_t number);
  std::uint64_t Newest(std::uint32_t number) const;
  std::uint64_t FrameAt(std::uint64_t frame) const noexcept;

  std::ifstream m_file;
  std::ifstream m_log;
  std::uint64_t m_fileBytes = 0;
  std::uint64_t m_logBytes = 0;
  std::size_t m_pageBytes = 512;
  std::uint64_t m_filePages = 0;
  std::uint64_t m_framePages = 0;
  Frames m_live;     // the newest pages of whole transactions
  Frames m_unknown;  // the last pages after these
  // The pages of whole transactions in the log: their numbers, or 0 if a newer one replaces it.
  std::vector<std::uint32_t> m_wholeFrames;
  std::uint64_t m_knownFrames = 0;  // these, and those that may belong to newer transactions
  std::uint64_t m_livePages = 0;    // of the document in its last state
  std::vector<bool> m_free;         // by numbers; empty if it isn't known
  std::uint64_t m_page = 0;         // the one in `m_bytes`
  std::string m_bytes;
};

/// Returns the number in these bytes, of which the first is the highest.
inline std::uint64_t NumberIn(std::string_view bytes, std::size_t at, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t index = 0; index < size; ++index) {
    number = number << 8 | static_cast<unsigned char>(bytes[at + index]);
  }
  return number;
}

inline constexpr std::string_view kFileTitle("SQLite format 3\0", 16);

}  // namespace TalVcs::Kit::Sqlite
