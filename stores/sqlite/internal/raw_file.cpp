#include <stores/sqlite/internal/raw_file.h>

#include <algorithm>
#include <array>
#include <bit>
#include <system_error>
#include <utility>

// What SQLite documents of its files; numbers have the highest byte first:
//
//     page   := kind free(2) cells(2) content(2) fragments (right(4))? place(2)* ... cell*
//     cell   := (left(4))? size (number)? bytes next(4)?     left in a branch of an index
//     record := header-size type* value*
//
// The first page has the 100 bytes of the file's header before that. `size`, `number`,
// `header-size` and `type` take 1 to 9 bytes of 7 bits, highest first. Of a long record the page
// has the first bytes; each further page begins with the number of the next one.

namespace TalVcs::Kit::Sqlite {
namespace {

constexpr std::size_t kFileHeaderBytes = 100;
constexpr std::size_t kLogHeaderBytes = 32;
constexpr std::size_t kFrameHeaderBytes = 24;
constexpr std::size_t kFewestPageBytes = 512;
constexpr std::size_t kMostPageBytes = 65536;
constexpr std::string_view kTitle("SQLite format 3\0", 16);

constexpr unsigned char kBranchOfIndex = 2;
constexpr unsigned char kLeafOfIndex = 10;
constexpr unsigned char kLeafOfTable = 13;

// Pages that are looked at to find out their size.
constexpr std::uint64_t kSample = 2000;
// How often a page may be read as a part of a record, on average. Records of a page together take
// no more than so many pages.
constexpr std::uint64_t kMostReads = 64;

std::uint64_t NumberIn(std::string_view bytes, std::size_t at, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t index = 0; index < size; ++index) {
    number = number << 8 | static_cast<unsigned char>(bytes[at + index]);
  }
  return number;
}

/// Reads a number of 7 bits in each byte and moves `at` behind it.
std::optional<std::uint64_t> TakeNumber(std::string_view bytes, std::size_t& at) {
  constexpr int kMostBytes = 9;
  std::uint64_t number = 0;
  for (int index = 1; index <= kMostBytes && at < bytes.size(); ++index) {
    const auto byte = static_cast<unsigned char>(bytes[at++]);
    if (index == kMostBytes) return number << 8 | byte;
    number = number << 7 | (byte & 0x7FU);
    if (byte < 0x80) return number;
  }
  return std::nullopt;
}

bool IsPageSize(std::size_t bytes) {
  return bytes >= kFewestPageBytes && bytes <= kMostPageBytes && (bytes & (bytes - 1)) == 0;
}

bool HasCells(unsigned char kind) {
  return kind == kBranchOfIndex || kind == kLeafOfIndex || kind == kLeafOfTable;
}

std::uint64_t SizeOf(std::ifstream& file) {
  file.seekg(0, std::ios::end);
  const std::streamoff size = file.tellg();
  return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

bool ReadAt(std::ifstream& file, std::uint64_t position, std::string& bytes) {
  file.clear();
  file.seekg(static_cast<std::streamoff>(position));
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return file.gcount() == static_cast<std::streamsize>(bytes.size());
}

/// Returns the bytes that a value of that type takes, and its kind.
std::pair<std::size_t, RawColumn::Kind> TypeOf(std::uint64_t type) {
  constexpr std::array<std::size_t, 10> kSizes = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0};
  using enum RawColumn::Kind;
  if (type == 0) return {0, Null};
  if (type == 7) return {8, Other};
  if (type < kSizes.size()) return {kSizes[static_cast<std::size_t>(type)], Number};
  if (type < 12) return {0, Other};
  return {static_cast<std::size_t>((type - 12) / 2), type % 2 == 0 ? Blob : Text};
}

std::int64_t ValueOf(std::string_view record, std::size_t at, std::size_t size,
                     std::uint64_t type) {
  if (size == 0) return type == 9 ? 1 : 0;
  const std::size_t shift = 64 - 8 * size;
  return static_cast<std::int64_t>(NumberIn(record, at, size) << shift) >> shift;
}

}  // namespace

std::optional<std::vector<RawColumn>> ReadRawColumns(std::string_view record, std::size_t count) {
  std::size_t at = 0;
  const std::optional<std::uint64_t> header = TakeNumber(record, at);
  if (!header || *header > record.size() || *header < at) return std::nullopt;
  const std::string_view types = record.substr(0, static_cast<std::size_t>(*header));
  std::size_t value = types.size();
  std::vector<RawColumn> columns;
  while (at < types.size() && columns.size() < count) {
    const std::optional<std::uint64_t> type = TakeNumber(types, at);
    if (!type) return std::nullopt;
    const auto [size, kind] = TypeOf(*type);
    RawColumn column{kind, 0, value, size};
    if (kind == RawColumn::Kind::Number) {
      if (size > record.size() || value > record.size() - size) return std::nullopt;
      column.number = ValueOf(record, value, size, *type);
    }
    value += size;
    columns.push_back(column);
  }
  if (columns.size() != count || at != types.size()) return std::nullopt;
  return columns;
}

RawFile::RawFile(const std::filesystem::path& path) : m_file(path, std::ios::binary) {
  if (!IsOpen()) return;
  m_fileBytes = SizeOf(m_file);
  std::filesystem::path log = path;
  log += "-wal";
  std::error_code ignored;
  // Opening a pipe would wait for its other end.
  if (std::filesystem::is_regular_file(log, ignored)) m_log.open(log, std::ios::binary);
  if (m_log.is_open()) m_logBytes = SizeOf(m_log);
  FindPageBytes();
  FindFrames();
  m_mostLinks = kMostReads * CountPages();
}

void RawFile::SetPageBytes(std::size_t bytes) {
  m_pageBytes = bytes;
  m_bytes.clear();
  // A file whose end is missing has a part of a page.
  m_filePages = m_fileBytes / bytes;
}

void RawFile::FindPageBytes() {
  std::string header(kFileHeaderBytes, '\0');
  if (ReadAt(m_file, 0, header) && header.starts_with(kTitle)) {
    const auto stored = static_cast<std::size_t>(NumberIn(header, 16, 2));
    const std::size_t bytes = stored == 1 ? kMostPageBytes : stored;
    m_reservedBytes = static_cast<unsigned char>(header[20]);
    if (IsPageSize(bytes) && m_reservedBytes < bytes / 2) return SetPageBytes(bytes);
  }
  m_reservedBytes = 0;
  std::size_t best = kFewestPageBytes;
  std::uint64_t most = 0;
  for (std::size_t bytes = kFewestPageBytes; bytes <= kMostPageBytes; bytes *= 2) {
    SetPageBytes(bytes);
    std::uint64_t found = 0;
    for (std::uint64_t page = 0; page < std::min(m_filePages, kSample); ++page) {
      Visit(page, [&found](const Cell& cell) { found += cell.isRow ? 1 : 0; });
    }
    if (found > most) best = bytes;
    most = std::max(most, found);
  }
  SetPageBytes(best);
}

/// Finds the pages in the log. Its sums aren't compared: what a record has is checked anyway.
void RawFile::FindFrames() {
  std::string header(kLogHeaderBytes, '\0');
  if (!m_log.is_open() || !ReadAt(m_log, 0, header)) return;
  if (NumberIn(header, 8, 4) != m_pageBytes) return;
  const std::size_t frame_bytes = kFrameHeaderBytes + m_pageBytes;
  const std::uint64_t count = (m_logBytes - kLogHeaderBytes) / frame_bytes;
  std::string frame(kFrameHeaderBytes, '\0');
  for (; m_framePages < count; ++m_framePages) {
    if (!ReadAt(m_log, kLogHeaderBytes + m_framePages * frame_bytes, frame)) return;
    // Frames of before the log was begun anew.
    const auto number = static_cast<std::uint32_t>(NumberIn(frame, 0, 4));
    if (number == 0 || frame.substr(8, 8) != header.substr(16, 8)) return;
    m_frames[number] = m_filePages + m_framePages;
  }
}

bool RawFile::ReadPage(std::uint64_t page) {
  if (page == m_page && !m_bytes.empty()) return true;
  std::string bytes = std::move(m_bytes);
  m_bytes.clear();
  bytes.resize(m_pageBytes);
  const std::uint64_t frame = page - std::min(page, m_filePages);
  const bool is_read =
      page < m_filePages ? ReadAt(m_file, page * m_pageBytes, bytes)
                         : frame < m_framePages &&
                               ReadAt(m_log,
                                      kLogHeaderBytes + frame * (kFrameHeaderBytes + m_pageBytes) +
                                          kFrameHeaderBytes,
                                      bytes);
  if (!is_read) return false;
  m_bytes = std::move(bytes);
  m_page = page;
  return true;
}

bool RawFile::ReadLinkedPage(std::uint32_t number) {
  if (number == 0 || m_mostLinks == 0) return false;
  --m_mostLinks;
  const auto frame = m_frames.find(number);
  return ReadPage(frame == m_frames.end() ? number - 1 : frame->second);
}

/// Returns the record that begins there in the page that was read.
std::optional<RawFile::Cell> RawFile::CellAt(const Place& place) const {
  const auto kind = static_cast<unsigned char>(m_bytes[place.page == 0 ? kFileHeaderBytes : 0]);
  const std::size_t usable = m_pageBytes - m_reservedBytes;
  Cell cell;
  cell.place = place;
  cell.isRow = kind == kLeafOfTable;
  std::size_t at = place.offset + (kind == kBranchOfIndex ? 4 : 0);
  if (at >= usable) return std::nullopt;
  const std::string_view bytes(m_bytes.data(), usable);
  const std::optional<std::uint64_t> size = TakeNumber(bytes, at);
  if (!size || *size == 0 || *size > SizeBytes()) return std::nullopt;
  if (cell.isRow) {
    const std::optional<std::uint64_t> number = TakeNumber(bytes, at);
    if (!number) return std::nullopt;
    cell.number = static_cast<std::int64_t>(*number);
  }
  const std::size_t least = (usable - 12) * 32 / 255 - 23;
  const std::size_t most = cell.isRow ? usable - 35 : (usable - 12) * 64 / 255 - 23;
  cell.sizeBytes = *size;
  cell.at = at;
  const bool is_long = *size > most;
  if (is_long) {
    const std::size_t some = least + static_cast<std::size_t>((*size - least) % (usable - 4));
    cell.localBytes = some <= most ? some : least;
  } else {
    cell.localBytes = static_cast<std::size_t>(*size);
  }
  const std::size_t end = at + cell.localBytes;
  if (end + (is_long ? 4 : 0) > usable) return std::nullopt;
  if (is_long) cell.next = static_cast<std::uint32_t>(NumberIn(bytes, end, 4));
  return cell;
}

void RawFile::Visit(std::uint64_t page, const std::function<void(const Cell& cell)>& visit) {
  if (!ReadPage(page)) return;
  const std::size_t header = page == 0 ? kFileHeaderBytes : 0;
  const auto kind = static_cast<unsigned char>(m_bytes[header]);
  if (!HasCells(kind)) return;
  const std::size_t places = header + (kind == kBranchOfIndex ? 12 : 8);
  const auto count = static_cast<std::size_t>(NumberIn(m_bytes, header + 3, 2));
  // A crafted page can have a long record at each of its bytes.
  std::uint64_t taken = 0;
  for (std::size_t index = 0; index < count && taken <= kMostReads * m_pageBytes; ++index) {
    const std::size_t at = places + 2 * index;
    // A visit may have read another page.
    if (at + 2 > m_pageBytes || !ReadPage(page)) return;
    const auto offset = static_cast<std::uint32_t>(NumberIn(m_bytes, at, 2));
    const std::optional<Cell> cell = CellAt({page, offset});
    if (!cell) continue;
    taken += cell->localBytes;
    visit(*cell);
  }
}

std::optional<RawFile::Cell> RawFile::Find(const Place& place) {
  return ReadPage(place.page) ? CellAt(place) : std::nullopt;
}

std::optional<std::string> RawFile::Read(const Cell& cell, std::uint64_t most) {
  if (!ReadPage(cell.place.page)) return std::nullopt;
  const std::uint64_t wanted = std::min(most, cell.sizeBytes);
  std::string record = m_bytes.substr(
      cell.at, static_cast<std::size_t>(std::min<std::uint64_t>(wanted, cell.localBytes)));
  const std::size_t room = m_pageBytes - m_reservedBytes - 4;
  std::uint32_t next = cell.next;
  // Pages in a circle would fill the memory. Each circle leads to the page that is kept here.
  std::uint32_t kept = 0;
  for (std::uint64_t read = 1; record.size() < wanted; ++read) {
    if (next == kept || !ReadLinkedPage(next)) return std::nullopt;
    if (std::has_single_bit(read)) kept = next;
    next = static_cast<std::uint32_t>(NumberIn(m_bytes, 0, 4));
    record.append(
        m_bytes, 4,
        static_cast<std::size_t>(std::min<std::uint64_t>(room, cell.sizeBytes - record.size())));
  }
  return record;
}

}  // namespace TalVcs::Kit::Sqlite
