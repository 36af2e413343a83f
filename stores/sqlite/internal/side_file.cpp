#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/side_file.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>

namespace TalVcs::Kit::Sqlite {

SideFile::SideFile(sqlite3* connection, Kind kind) {
  sqlite3_vfs* vfs = nullptr;
  sqlite3_file_control(connection, "main", SQLITE_FCNTL_FILE_POINTER, &m_document);
  sqlite3_file_control(connection, "main", SQLITE_FCNTL_VFS_POINTER, &vfs);
  const char* document = sqlite3_db_filename(connection, "main");
  const char* name =
      kind == Kind::Log ? sqlite3_filename_wal(document) : sqlite3_filename_journal(document);
  if (vfs == nullptr || name == nullptr) return;
  m_memory = std::make_unique<std::max_align_t[]>(
      static_cast<std::size_t>(vfs->szOsFile) / sizeof(std::max_align_t) + 1);
  auto* file = reinterpret_cast<sqlite3_file*>(m_memory.get());
  file->pMethods = nullptr;
  const int flags =
      SQLITE_OPEN_READONLY | (kind == Kind::Log ? SQLITE_OPEN_WAL : SQLITE_OPEN_MAIN_JOURNAL);
  const int code = vfs->xOpen(vfs, name, file, flags, nullptr);
  if (code == SQLITE_OK) m_file = file;
  if (code != SQLITE_OK && file->pMethods != nullptr) file->pMethods->xClose(file);
}

SideFile::~SideFile() {
  if (m_file != nullptr) m_file->pMethods->xClose(m_file);
}

bool SideFile::Read(sqlite3_file* file, std::uint64_t position, Bytes& bytes) {
  const int code = file->pMethods->xRead(file, bytes.data(), static_cast<int>(bytes.size()),
                                         static_cast<sqlite3_int64>(position));
  if (code != SQLITE_OK && code != SQLITE_IOERR_SHORT_READ) m_code = code;
  return code == SQLITE_OK;
}

std::uint64_t SideFile::SizeOf(sqlite3_file* file) {
  sqlite3_int64 size = 0;
  const int code = file->pMethods->xFileSize(file, &size);
  if (code != SQLITE_OK) m_code = code;
  return code == SQLITE_OK ? static_cast<std::uint64_t>(std::max<sqlite3_int64>(size, 0)) : 0;
}

bool SideFile::IsDocumentReserved() {
  int is_reserved = 0;
  const int code = m_document->pMethods->xCheckReservedLock(m_document, &is_reserved);
  if (code != SQLITE_OK) m_code = code;
  return is_reserved != 0;
}

std::uint32_t NumberAt(const SideFile::Bytes& bytes, std::size_t position, bool highestFirst) {
  std::uint32_t number = 0;
  for (std::size_t index = 0; index < 4; ++index) {
    const std::size_t shift = 8 * (highestFirst ? 3 - index : index);
    number |= std::uint32_t{bytes[position + index]} << shift;
  }
  return number;
}

Status CheckKinds(const Database& database, const std::string& path) {
  using std::filesystem::file_type;
  const auto kind_of = [](const std::filesystem::path& name) {
    std::error_code failure;
    return std::filesystem::symlink_status(name, failure).type();
  };
  const std::filesystem::path document(std::u8string(path.begin(), path.end()));
  const file_type kind = kind_of(document);
  if (kind == file_type::fifo || kind == file_type::socket || kind == file_type::character ||
      kind == file_type::block || kind == file_type::directory) {
    return database.Fail(ErrorCode::Unsupported, Task::Open, "it is not a file");
  }
  for (const char* ending : {"-journal", "-wal", "-shm"}) {
    std::filesystem::path beside = document;
    beside += ending;
    const file_type side = kind_of(beside);
    if (side == file_type::regular || side == file_type::not_found || side == file_type::none) {
      continue;
    }
    return database.Fail(ErrorCode::Damaged, Task::Open,
                         "\"" + path + ending + "\" beside it is not a file");
  }
  return {};
}

}  // namespace TalVcs::Kit::Sqlite
