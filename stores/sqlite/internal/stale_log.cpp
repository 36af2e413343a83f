#include <sqlite3.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/stale_log.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

// A write-ahead log, as SQLite documents it; numbers have the highest byte first:
//
//     log    := header frame*
//     header := magic version page-size sequence salt salt sum sum     4 bytes each
//     frame  := page-number size-at-end salt salt sum sum page
//
// The last frame of a transaction has the number of pages of the file, the others 0. A frame counts
// if its salts are those of the header and its sums continue those of the frame before.

namespace TalVcs::Kit::Sqlite {
namespace {

constexpr std::size_t kLogHeaderBytes = 32;
constexpr std::size_t kFrameHeaderBytes = 24;
constexpr std::uint32_t kMagic = 0x377F0682;  // the lowest bit: sums are of words of that order
constexpr std::size_t kFileHeaderBytes = 100;
constexpr std::size_t kWriteVersion = 18;
constexpr std::size_t kPageSize = 16;

using Bytes = std::vector<unsigned char>;

std::uint32_t NumberAt(const Bytes& bytes, std::size_t position, bool highestFirst = true) {
  std::uint32_t number = 0;
  for (std::size_t index = 0; index < 4; ++index) {
    const std::size_t shift = 8 * (highestFirst ? 3 - index : index);
    number |= std::uint32_t{bytes[position + index]} << shift;
  }
  return number;
}

/// The file of the document and its log, as they are on the disk.
class Files {
 public:
  explicit Files(sqlite3* connection) {
    sqlite3_file_control(connection, "main", SQLITE_FCNTL_FILE_POINTER, &m_document);
    sqlite3_file_control(connection, "main", SQLITE_FCNTL_VFS_POINTER, &m_vfs);
    const char* name = sqlite3_filename_wal(sqlite3_db_filename(connection, "main"));
    if (m_vfs == nullptr || name == nullptr) return;
    m_memory = std::make_unique<std::max_align_t[]>(
        static_cast<std::size_t>(m_vfs->szOsFile) / sizeof(std::max_align_t) + 1);
    auto* log = reinterpret_cast<sqlite3_file*>(m_memory.get());
    log->pMethods = nullptr;
    const int code =
        m_vfs->xOpen(m_vfs, name, log, SQLITE_OPEN_READONLY | SQLITE_OPEN_WAL, nullptr);
    if (code == SQLITE_OK) m_log = log;
    if (code != SQLITE_OK && log->pMethods != nullptr) log->pMethods->xClose(log);
  }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;
  ~Files() {
    if (m_log != nullptr) m_log->pMethods->xClose(m_log);
  }

  bool HasLog() const noexcept { return m_log != nullptr && m_document != nullptr; }

  /// Return false if there are fewer bytes, or after a failure, which `Code` returns then.
  bool ReadDocument(std::uint64_t position, Bytes& bytes) {
    return Read(m_document, position, bytes);
  }
  bool ReadLog(std::uint64_t position, Bytes& bytes) { return Read(m_log, position, bytes); }

  int Code() const noexcept { return m_code; }

 private:
  bool Read(sqlite3_file* file, std::uint64_t position, Bytes& bytes) {
    const int code = file->pMethods->xRead(file, bytes.data(), static_cast<int>(bytes.size()),
                                           static_cast<sqlite3_int64>(position));
    if (code != SQLITE_OK && code != SQLITE_IOERR_SHORT_READ) m_code = code;
    return code == SQLITE_OK;
  }

  sqlite3_vfs* m_vfs = nullptr;
  sqlite3_file* m_document = nullptr;
  sqlite3_file* m_log = nullptr;
  std::unique_ptr<std::max_align_t[]> m_memory;
  int m_code = SQLITE_OK;
};

/// The sums of a log up to some frame.
class Sums {
 public:
  explicit Sums(bool highestFirst) : m_highestFirst(highestFirst) {}

  void Add(const Bytes& bytes, std::size_t from, std::size_t size) {
    for (std::size_t at = from; at + 8 <= from + size; at += 8) {
      m_first += NumberAt(bytes, at, m_highestFirst) + m_second;
      m_second += NumberAt(bytes, at + 4, m_highestFirst) + m_first;
    }
  }
  bool StandAt(const Bytes& bytes, std::size_t position) const {
    return NumberAt(bytes, position) == m_first && NumberAt(bytes, position + 4) == m_second;
  }

 private:
  bool m_highestFirst;
  std::uint32_t m_first = 0;
  std::uint32_t m_second = 0;
};

/// The pages that whole transactions of a log have: page numbers with the places of their bytes.
struct LogPages {
  std::size_t pageBytes = 0;
  std::uint32_t count = 0;  // of the pages of the file
  std::map<std::uint32_t, std::uint64_t> places;
};

LogPages ReadLogPages(Files& files) {
  LogPages pages;
  Bytes header(kLogHeaderBytes);
  if (!files.ReadLog(0, header) || (NumberAt(header, 0) & ~1U) != kMagic) return pages;
  Sums sums((NumberAt(header, 0) & 1U) != 0);
  sums.Add(header, 0, 24);
  const std::uint32_t page_bytes = NumberAt(header, 8);
  if (!sums.StandAt(header, 24) || page_bytes < 512 || page_bytes > 65536) return pages;
  pages.pageBytes = page_bytes;
  std::map<std::uint32_t, std::uint64_t> open;  // of a transaction that has no end yet
  Bytes frame(kFrameHeaderBytes + page_bytes);
  for (std::uint64_t at = kLogHeaderBytes; files.ReadLog(at, frame); at += frame.size()) {
    sums.Add(frame, 0, 8);
    sums.Add(frame, kFrameHeaderBytes, page_bytes);
    if (!std::equal(frame.begin() + 8, frame.begin() + 16, header.begin() + 16)) break;
    if (!sums.StandAt(frame, 16)) break;
    open[NumberAt(frame, 0)] = at + kFrameHeaderBytes;
    if (NumberAt(frame, 4) == 0) continue;
    pages.count = NumberAt(frame, 4);
    for (const auto& [number, place] : std::exchange(open, {})) pages.places[number] = place;
  }
  return pages;
}

/// Returns whether the file has all pages of the log. The header of the file counts commits and
/// says whether there is a log, so it isn't compared.
bool HasAllPages(Files& files, const Bytes& header, const LogPages& pages) {
  const std::uint32_t stored = std::uint32_t{header[kPageSize]} << 8 | header[kPageSize + 1];
  if (!pages.places.empty() && (stored == 1 ? 65536 : stored) != pages.pageBytes) return false;
  Bytes in_log(pages.pageBytes);
  Bytes in_file(pages.pageBytes);
  for (const auto& [number, place] : pages.places) {
    if (number == 0 || number > pages.count) continue;
    const std::size_t skipped = number == 1 ? kFileHeaderBytes : 0;
    if (!files.ReadLog(place, in_log) ||
        !files.ReadDocument(std::uint64_t{number - 1} * pages.pageBytes, in_file) ||
        !std::equal(in_log.begin() + static_cast<std::ptrdiff_t>(skipped), in_log.end(),
                    in_file.begin() + static_cast<std::ptrdiff_t>(skipped))) {
      return false;
    }
  }
  return true;
}

}  // namespace

Result<bool> HasStaleLog(Database& database) {
  Files files(database.Connection());
  Bytes header(kFileHeaderBytes);
  if (!files.HasLog() || !files.ReadDocument(0, header)) return false;
  if (header[kWriteVersion] != 1) return false;
  const bool has_all = HasAllPages(files, header, ReadLogPages(files));
  if (files.Code() != SQLITE_OK) return database.Fail(files.Code(), Task::Open);
  // A program that has begun or ended a log meanwhile has changed the header before or after.
  return !has_all && files.ReadDocument(0, header) && header[kWriteVersion] == 1;
}

}  // namespace TalVcs::Kit::Sqlite
