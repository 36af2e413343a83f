#include <stores/sqlite/internal/log_pages.h>
#include <stores/sqlite/internal/raw_pages.h>

#include <algorithm>
#include <limits>
#include <system_error>
#include <utility>

// The list of free pages, as SQLite documents it. Bytes 32 to 35 of the file have the number of the
// first page of the list, or 0, and bytes 36 to 39 how many free pages there are:
//
//     page := next(4) count(4) free-page(4)*

namespace TalVcs::Kit::Sqlite {
namespace {

constexpr std::size_t kFirstFreePage = 32;
constexpr std::size_t kFreePages = 36;
constexpr std::uint64_t kNoPage = std::numeric_limits<std::uint64_t>::max();

std::uint64_t SizeOf(std::ifstream& file) {
  file.seekg(0, std::ios::end);
  const std::streamoff size = file.tellg();
  return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

bool ReadAt(std::ifstream& file, std::uint64_t position, char* bytes, std::size_t size) {
  file.clear();
  file.seekg(static_cast<std::streamoff>(position));
  file.read(bytes, static_cast<std::streamsize>(size));
  return file.gcount() == static_cast<std::streamsize>(size);
}

}  // namespace

RawPages::RawPages(const std::filesystem::path& path) : m_file(path, std::ios::binary) {
  if (!IsOpen()) return;
  m_fileBytes = SizeOf(m_file);
  std::filesystem::path log = path;
  log += "-wal";
  std::error_code ignored;
  // Opening a pipe would wait for its other end.
  if (std::filesystem::is_regular_file(log, ignored)) m_log.open(log, std::ios::binary);
  if (m_log.is_open()) m_logBytes = SizeOf(m_log);
}

void RawPages::SetPageBytes(std::size_t bytes) {
  m_pageBytes = bytes;
  m_bytes.clear();
  // A file whose end is missing has a part of a page.
  m_filePages = m_livePages = m_fileBytes / bytes;
}

void RawPages::FindStates() {
  FindFrames();
  FindFreePages();
}

/// Returns where a page of the log begins.
std::uint64_t RawPages::FrameAt(std::uint64_t frame) const noexcept {
  return kLogHeaderBytes + frame * (kFrameHeaderBytes + m_pageBytes);
}

void RawPages::FindFrames() {
  if (m_logBytes < kLogHeaderBytes) return;
  const LogPages log =
      ReadLogPages([this](std::uint64_t position, std::vector<unsigned char>& bytes) {
        return ReadAt(m_log, position, reinterpret_cast<char*>(bytes.data()), bytes.size());
      });
  // The log of another file.
  if (log.pageBytes != 0 && log.pageBytes != m_pageBytes) return;
  const std::size_t frame_bytes = kFrameHeaderBytes + m_pageBytes;
  if (log.frames != 0) m_livePages = log.count;
  m_wholeFrames.resize(static_cast<std::size_t>(log.frames));
  for (const auto& [number, place] : log.places) {
    if (number == 0 || number > log.count) continue;
    const std::uint64_t frame = (place - kLogHeaderBytes) / frame_bytes;
    m_live[number] = m_filePages + frame;
    m_wholeFrames[static_cast<std::size_t>(frame)] = number;
  }
  m_framePages = m_knownFrames = log.frames;
  FindOtherFrames(log.header);
}

/// Finds the pages after those of the last transaction that is whole.
void RawPages::FindOtherFrames(const std::vector<unsigned char>& log_header) {
  std::string frame(kFrameHeaderBytes, '\0');
  const std::uint64_t most = (m_logBytes - kLogHeaderBytes) / (kFrameHeaderBytes + m_pageBytes);
  for (; m_framePages < most; ++m_framePages) {
    if (!ReadAt(m_log, FrameAt(m_framePages), frame.data(), frame.size())) return;
    const auto number = static_cast<std::uint32_t>(NumberIn(frame, 0, 4));
    if (number == 0) return;
    // Pages of before the log was begun anew follow. Without a header any page may be the newest.
    const bool is_known =
        m_knownFrames == m_framePages &&
        (log_header.empty() ||
         std::equal(frame.begin() + 8, frame.begin() + 16, log_header.begin() + 16,
                    [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; }));
    if (!is_known) continue;
    m_unknown[number] = m_filePages + m_framePages;
    ++m_knownFrames;
  }
}

void RawPages::FindFreePages() {
  // Part of a list could be that of something else.
  if (!ReadFreePages()) m_free.clear();
}

/// Returns whether the list has as many pages as the file says.
bool RawPages::ReadFreePages() {
  if (!Read(Newest(1)) || !m_bytes.starts_with(kFileTitle)) return false;
  auto next = static_cast<std::uint32_t>(NumberIn(m_bytes, kFirstFreePage, 4));
  std::uint64_t left = NumberIn(m_bytes, kFreePages, 4);
  while (next != 0 && left != 0) {
    if (!MarkFree(next) || !Read(Newest(next))) return false;
    const std::uint64_t count = NumberIn(m_bytes, 4, 4);
    if (count > m_bytes.size() / 4 - 2 || count >= left) return false;
    next = static_cast<std::uint32_t>(NumberIn(m_bytes, 0, 4));
    left -= count + 1;
    for (std::size_t index = 0; index < count; ++index) {
      if (!MarkFree(static_cast<std::uint32_t>(NumberIn(m_bytes, 8 + 4 * index, 4)))) return false;
    }
  }
  return next == 0 && left == 0;
}

/// Returns false if it was marked before, or if there is no such page.
bool RawPages::MarkFree(std::uint32_t number) {
  const std::uint64_t most = std::min(m_livePages, Count());
  if (number < 2 || number > most) return false;
  if (m_free.size() <= number) m_free.resize(static_cast<std::size_t>(most) + 1);
  if (m_free[number]) return false;
  m_free[number] = true;
  return true;
}

PageState RawPages::StateOf(std::uint64_t page) const {
  std::uint64_t number = page + 1;
  if (page >= m_filePages) {
    const std::uint64_t frame = page - m_filePages;
    if (frame >= m_wholeFrames.size()) {
      return frame < m_knownFrames ? PageState::Unknown : PageState::Old;
    }
    number = m_wholeFrames[static_cast<std::size_t>(frame)];
    if (number == 0) return PageState::Old;
  } else if (number > m_livePages || m_live.contains(static_cast<std::uint32_t>(number))) {
    return PageState::Old;
  }
  const bool is_free = number < m_free.size() && m_free[static_cast<std::size_t>(number)];
  return is_free ? PageState::Old : PageState::Live;
}

std::uint64_t RawPages::Newest(std::uint32_t number) const {
  const auto found = m_live.find(number);
  if (found != m_live.end()) return found->second;
  return number != 0 && number <= m_filePages ? number - 1 : kNoPage;
}

std::uint64_t RawPages::Linked(std::uint32_t number, std::uint64_t from) const {
  const PageState state = StateOf(from);
  if (state == PageState::Unknown) {
    const auto found = m_unknown.find(number);
    if (found != m_unknown.end()) return found->second;
  }
  // Of an old page in the file, the others are there as well.
  if (state == PageState::Old && from < m_filePages && number != 0 && number <= m_filePages) {
    return number - 1;
  }
  return Newest(number);
}

bool RawPages::Read(std::uint64_t page) {
  if (page == m_page && !m_bytes.empty()) return true;
  if (page >= Count()) return false;
  std::string bytes = std::exchange(m_bytes, {});
  bytes.resize(m_pageBytes);
  const bool is_read = page < m_filePages
                           ? ReadAt(m_file, page * m_pageBytes, bytes.data(), bytes.size())
                           : ReadAt(m_log, FrameAt(page - m_filePages) + kFrameHeaderBytes,
                                    bytes.data(), bytes.size());
  if (!is_read) return false;
  m_bytes = std::move(bytes);
  m_page = page;
  return true;
}

bool RawPages::ReadFileHeader(std::string& bytes) {
  return ReadAt(m_file, 0, bytes.data(), bytes.size());
}

}  // namespace TalVcs::Kit::Sqlite
