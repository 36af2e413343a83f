#include <stores/sqlite/internal/log_pages.h>

#include <algorithm>
#include <utility>

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

constexpr std::uint32_t kMagic = 0x377F0682;  // the lowest bit: sums are of words of that order

using Bytes = SideFile::Bytes;

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

}  // namespace

LogPages ReadLogPages(const ReadLog& read) {
  LogPages pages;
  Bytes header(kLogHeaderBytes);
  if (!read(0, header) || (NumberAt(header, 0) & ~1U) != kMagic) return pages;
  Sums sums((NumberAt(header, 0) & 1U) != 0);
  sums.Add(header, 0, 24);
  const std::uint32_t page_bytes = NumberAt(header, 8);
  if (!sums.StandAt(header, 24) || page_bytes < 512 || page_bytes > 65536) return pages;
  pages.pageBytes = page_bytes;
  pages.header = header;
  std::map<std::uint32_t, std::uint64_t> open;  // of a transaction that has no end yet
  Bytes frame(kFrameHeaderBytes + page_bytes);
  std::uint64_t frames = 0;
  for (std::uint64_t at = kLogHeaderBytes; read(at, frame); at += frame.size()) {
    sums.Add(frame, 0, 8);
    sums.Add(frame, kFrameHeaderBytes, page_bytes);
    if (!std::equal(frame.begin() + 8, frame.begin() + 16, header.begin() + 16)) break;
    if (!sums.StandAt(frame, 16)) break;
    open[NumberAt(frame, 0)] = at + kFrameHeaderBytes;
    ++frames;
    if (NumberAt(frame, 4) == 0) continue;
    pages.count = NumberAt(frame, 4);
    pages.frames = frames;
    ++pages.transactions;
    for (const auto& [number, place] : std::exchange(open, {})) pages.places[number] = place;
  }
  return pages;
}

}  // namespace TalVcs::Kit::Sqlite
