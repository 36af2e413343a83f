#include <kit/internal/checksum.h>
#include <kit/internal/little_endian.h>
#include <kit/internal/pack_record.h>

#include <algorithm>

// The layout of a pack, as docs/formats.md describes it; numbers are little-endian:
//
//     pack   := "TalVcs pack 1" LF  record*
//     record := "O" size id encoded check
//     size   := 3 bytes, the bytes of encoded
//     id     := 32 bytes
//     check  := 4 bytes, the CRC-32 of all before it in the record

namespace TalVcs::Kit {

namespace {

constexpr char kMark = 'O';
constexpr std::size_t kWindowSize = std::size_t{1} << 18;

// Forged bytes can look like the beginning of a long record at each place. A search in damage ends
// after it has summed so many bytes.
constexpr std::uint64_t kMostSummedBytes = std::uint64_t{64} << 20;

}  // namespace

void AppendPackRecord(std::string& bytes, const ObjectKey& key, std::string_view encoded) {
  const std::size_t from = bytes.size();
  bytes.push_back(kMark);
  PutNumber(bytes, encoded.size(), 3);
  bytes.append(key.begin(), key.end());
  bytes += encoded;
  PutNumber(bytes, ChecksumOf(std::string_view(bytes).substr(from)), kPackCheckSize);
}

std::optional<PackHead> ReadPackHead(std::string_view bytes) {
  if (bytes.size() < kPackHeadSize || bytes.front() != kMark) return std::nullopt;
  PackHead head;
  head.encodedBytes = static_cast<std::size_t>(NumberOf(bytes.substr(1, 3)));
  std::transform(bytes.begin() + 4, bytes.begin() + kPackHeadSize, head.key.begin(),
                 [](char byte) { return static_cast<std::uint8_t>(byte); });
  return head;
}

bool IsWholePackRecord(std::string_view record) {
  const std::size_t summed = record.size() - kPackCheckSize;
  return NumberOf(record.substr(summed)) == ChecksumOf(record.substr(0, summed));
}

/// Returns `size` bytes from `position` on, fewer at the end of the pack.
std::string_view PackScanner::Window(std::uint64_t position, std::size_t size) {
  size = static_cast<std::size_t>(std::min<std::uint64_t>(size, m_end - position));
  const bool holds = position >= m_windowFrom && position + size <= m_windowFrom + m_window.size();
  if (!holds) {
    const std::uint64_t most =
        std::min<std::uint64_t>(std::max(size, kWindowSize), m_end - position);
    m_window.resize(static_cast<std::size_t>(most));
    m_windowFrom = position;
    std::size_t count = 0;
    m_error = m_file.ReadAt(position, m_window.data(), m_window.size(), count);
    if (m_error) count = 0;
    m_window.resize(count);
  }
  return std::string_view(m_window).substr(static_cast<std::size_t>(position - m_windowFrom), size);
}

/// True if a whole record begins there, or if the kept records end there.
bool PackScanner::BeginsRecord(std::uint64_t position) {
  if (position >= m_kept) return position == m_kept;
  const std::optional<PackHead> head = ReadPackHead(Window(position, kPackHeadSize));
  if (!head || head->RecordBytes() > m_kept - position) return false;
  const std::string_view record = Window(position, head->RecordBytes());
  m_summedBytes += record.size();
  return record.size() == head->RecordBytes() && IsWholePackRecord(record);
}

/// Goes on to the next record after damage; false if there is none.
bool PackScanner::SkipDamage() {
  m_skipped = true;
  for (std::uint64_t at = m_position + 1; at < m_kept && !m_error; ++at) {
    if (m_summedBytes > kMostSummedBytes) break;
    if (!BeginsRecord(at)) continue;
    m_position = at;
    return true;
  }
  m_position = m_kept;
  return !m_error && m_position < m_end;
}

std::optional<ScannedRecord> PackScanner::Next() {
  while (!m_error && m_position < m_end) {
    const std::uint64_t position = m_position;
    const std::optional<PackHead> head = ReadPackHead(Window(position, kPackHeadSize));
    if (m_error) break;
    const bool fits = head && head->RecordBytes() <= m_end - position;
    std::string_view record = fits ? Window(position, head->RecordBytes()) : std::string_view();
    if (m_error) break;
    bool is_whole = fits && record.size() == head->RecordBytes() && IsWholePackRecord(record);
    const bool is_kept = position < m_kept;
    if (!is_whole && !is_kept) break;
    if (!is_whole && !(fits && BeginsRecord(position + head->RecordBytes()))) {
      if (!SkipDamage()) break;
      continue;
    }
    // The search for the next record may have moved the window.
    if (!is_whole) record = Window(position, head->RecordBytes());
    if (m_error) break;
    m_position = position + head->RecordBytes();
    return ScannedRecord{head->key, position, record, is_whole};
  }
  return std::nullopt;
}

}  // namespace TalVcs::Kit
