#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/hot_journal.h>
#include <stores/sqlite/internal/side_file.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

// A rollback journal, as SQLite documents it; numbers have the highest byte first:
//
//     journal := header page* (header page*)* super?
//     header  := magic count nonce pages sector-size page-size           4 bytes each, magic 8
//     super   := page-number name length sum magic                       4 bytes each, magic 8
//
// `pages` of the first header is the size of the file before the change. The name is that of a file
// that belongs to a change of several files, and is removed after the journals of all are gone.

namespace TalVcs::Kit::Sqlite {
namespace {

constexpr std::size_t kHeaderBytes = 28;
constexpr std::size_t kPagesAt = 16;
constexpr std::size_t kPageSizeAt = 24;
constexpr std::size_t kEndBytes = 16;
constexpr std::array<unsigned char, 8> kMagic = {0xD9, 0xD5, 0x05, 0xF9, 0x20, 0xA1, 0x63, 0xD7};

bool HasMagicAt(const SideFile::Bytes& bytes, std::size_t position) {
  return std::equal(kMagic.begin(), kMagic.end(),
                    bytes.begin() + static_cast<std::ptrdiff_t>(position));
}

bool NamesAnotherFile(SideFile& journal) {
  const std::uint64_t size = journal.SizeBytes();
  SideFile::Bytes end(kEndBytes);
  return size >= kEndBytes && journal.Read(size - kEndBytes, end) &&
         HasMagicAt(end, kEndBytes - kMagic.size()) && NumberAt(end, 0) != 0;
}

bool MakesTheFileLong(SideFile& journal) {
  SideFile::Bytes header(kHeaderBytes);
  if (!journal.Read(0, header) || !HasMagicAt(header, 0)) return false;
  const std::uint64_t pages = NumberAt(header, kPagesAt);
  return pages * NumberAt(header, kPageSizeAt) > journal.DocumentBytes() + journal.SizeBytes();
}

}  // namespace

Status CheckJournal(Database& database) {
  SideFile journal(database.Connection(), SideFile::Kind::Journal);
  if (!journal.IsOpen() || journal.IsDocumentReserved()) return {};
  const char* reason = nullptr;
  if (NamesAnotherFile(journal)) {
    reason =
        "the journal beside it belongs to a change of several files; open it once with the program "
        "that made the change";
  } else if (MakesTheFileLong(journal)) {
    reason = "the journal beside it is damaged";
  }
  if (journal.Code() != SQLITE_OK) return database.Fail(journal.Code(), Task::Open);
  return reason ? Status(database.Fail(ErrorCode::Damaged, Task::Open, reason)) : Status();
}

}  // namespace TalVcs::Kit::Sqlite
