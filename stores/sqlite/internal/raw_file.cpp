#include <stores/sqlite/internal/raw_file.h>

#include <algorithm>
#include <array>
#include <bit>
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
constexpr std::size_t kFewestPageBytes = 512;
constexpr std::size_t kMostPageBytes = 65536;

constexpr unsigned char kBranchOfIndex = 2;
constexpr unsigned char kLeafOfIndex = 10;
constexpr unsigned char kLeafOfTable = 13;

// How many parts of the file are looked at to find out the size of its pages. Each is as large as
// the largest page.
constexpr std::uint64_t kSamples = 32;
// How often a page may be read in vain as a part of a record, on average.
constexpr std::uint64_t kMostReads = 64;
// How often a byte may be one of several records, on average. In a page that isn't damaged it is
// one of a single record.
constexpr std::size_t kMostOverlaps = 4;

/// Reads a number of 7 bits in each byte and moves `at` past it.
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

RawFile::RawFile(const std::filesystem::path& path) : m_pages(path) {
  if (!IsOpen()) return;
  FindPageBytes();
  m_pages.FindStates();
  m_linksLeft = kMostReads * CountPages();
}

/// Of forms that fit as many pages, the header's counts, and then the smallest, as documents have.
void RawFile::FindPageBytes() {
  struct Form {
    std::size_t pageBytes;
    std::size_t reservedBytes;
  };
  std::vector<Form> forms;
  std::string header(kFileHeaderBytes, '\0');
  if (m_pages.ReadFileHeader(header) && header.starts_with(kFileTitle)) {
    const auto stored = static_cast<std::size_t>(NumberIn(header, 16, 2));
    const std::size_t bytes = stored == 1 ? kMostPageBytes : stored;
    const std::size_t reserved = static_cast<unsigned char>(header[20]);
    if (IsPageSize(bytes) && reserved < bytes / 2) forms.push_back({bytes, reserved});
  }
  for (std::size_t bytes = kFewestPageBytes; bytes <= kMostPageBytes; bytes *= 2) {
    forms.push_back({bytes, 0});
  }
  Form best = forms.front();
  std::uint64_t most = 0;
  for (const Form& form : forms) {
    m_pages.SetPageBytes(form.pageBytes);
    m_reservedBytes = form.reservedBytes;
    const std::uint64_t found = CountFittingPages();
    if (found > most) best = form;
    most = std::max(most, found);
  }
  m_pages.SetPageBytes(best.pageBytes);
  m_reservedBytes = best.reservedBytes;
}

/// Counts them in parts of the file that are the same for all sizes of pages.
std::uint64_t RawFile::CountFittingPages() {
  const std::uint64_t in_part = kMostPageBytes / PageBytes();
  const std::uint64_t parts = CountPages() / in_part + 1;
  const std::uint64_t samples = std::min(parts, kSamples);
  std::uint64_t count = 0;
  for (std::uint64_t sample = 0; sample < samples; ++sample) {
    const std::uint64_t first = sample * parts / samples * in_part;
    for (std::uint64_t page = first; page < first + in_part; ++page) count += Fits(page) ? 1 : 0;
  }
  return count;
}

/// Returns whether a page has records alone at the places that it names. Of bytes that aren't the
/// beginning of a page this is hardly ever true.
bool RawFile::Fits(std::uint64_t page) {
  if (!m_pages.Read(page)) return false;
  const std::string& bytes = m_pages.Bytes();
  const std::size_t header = page == 0 ? kFileHeaderBytes : 0;
  const auto kind = static_cast<unsigned char>(bytes[header]);
  const auto count = static_cast<std::size_t>(NumberIn(bytes, header + 3, 2));
  const std::size_t places = header + (kind == kBranchOfIndex ? 12 : 8);
  const std::size_t end = places + 2 * count;
  if (!HasCells(kind) || count == 0 || end > bytes.size()) return false;
  for (std::size_t at = places; at < end; at += 2) {
    const auto offset = static_cast<std::uint32_t>(NumberIn(bytes, at, 2));
    if (offset < end || !CellAt({page, offset})) return false;
  }
  return true;
}

bool RawFile::ReadLinkedPage(std::uint32_t number, std::uint64_t from) {
  if (number == 0 || m_linksLeft == 0) return false;
  --m_linksLeft;
  return m_pages.Read(m_pages.Linked(number, from));
}

/// Returns the record that begins there in the page that was read.
std::optional<RawFile::Cell> RawFile::CellAt(const Place& place) const {
  const std::string& page = m_pages.Bytes();
  const auto kind = static_cast<unsigned char>(page[place.page == 0 ? kFileHeaderBytes : 0]);
  const std::size_t usable = page.size() - m_reservedBytes;
  Cell cell;
  cell.place = place;
  cell.isRow = kind == kLeafOfTable;
  std::size_t at = place.offset + (kind == kBranchOfIndex ? 4 : 0);
  if (at >= usable) return std::nullopt;
  const std::string_view bytes(page.data(), usable);
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
  if (!m_pages.Read(page)) return;
  const std::string bytes = m_pages.Bytes();
  const std::size_t header = page == 0 ? kFileHeaderBytes : 0;
  const auto kind = static_cast<unsigned char>(bytes[header]);
  if (!HasCells(kind)) return;
  const std::size_t places = header + (kind == kBranchOfIndex ? 12 : 8);
  const auto count = static_cast<std::size_t>(NumberIn(bytes, header + 3, 2));
  std::size_t room = kMostOverlaps * bytes.size();
  for (std::size_t index = 0; index < count; ++index) {
    const std::size_t at = places + 2 * index;
    if (at + 2 > bytes.size()) return;
    const std::optional<Cell> cell =
        Find({page, static_cast<std::uint32_t>(NumberIn(bytes, at, 2))});
    if (!cell) continue;
    if (cell->localBytes > room) return;
    room -= cell->localBytes;
    visit(*cell);
  }
}

std::optional<RawFile::Cell> RawFile::Find(const Place& place) {
  // A visit may have read another page.
  return m_pages.Read(place.page) ? CellAt(place) : std::nullopt;
}

std::optional<std::string> RawFile::Read(const Cell& cell, std::uint64_t most) {
  if (!m_pages.Read(cell.place.page)) return std::nullopt;
  const std::uint64_t wanted = std::min(most, cell.sizeBytes);
  std::string record = m_pages.Bytes().substr(
      cell.at, static_cast<std::size_t>(std::min<std::uint64_t>(cell.localBytes, wanted)));
  const std::size_t room = m_pages.PageBytes() - m_reservedBytes - 4;
  std::uint32_t next = cell.next;
  // Pages in a circle would fill the memory. Each circle leads to the page that is kept here.
  std::uint32_t kept = 0;
  for (std::uint64_t read = 1; record.size() < wanted; ++read) {
    if (next == kept || !ReadLinkedPage(next, cell.place.page)) return std::nullopt;
    if (std::has_single_bit(read)) kept = next;
    next = static_cast<std::uint32_t>(NumberIn(m_pages.Bytes(), 0, 4));
    record.append(m_pages.Bytes(), 4,
                  static_cast<std::size_t>(std::min<std::uint64_t>(room, wanted - record.size())));
  }
  return record;
}

}  // namespace TalVcs::Kit::Sqlite
