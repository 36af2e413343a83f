#pragma once

#include <kit/text/result.h>
#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Kit::Sqlite {

class Database;

/// The file of a document and one of the files beside it, as they are on the disk. Reads neither
/// lock nor change anything.
class SideFile {
 public:
  enum class Kind { Journal, Log };
  using Bytes = std::vector<unsigned char>;

  /// Opens the side file if there is one.
  SideFile(sqlite3* connection, Kind kind);
  SideFile(const SideFile&) = delete;
  SideFile& operator=(const SideFile&) = delete;
  ~SideFile();

  bool IsOpen() const noexcept { return m_file != nullptr && m_document != nullptr; }

  /// Fill the bytes from a position of the file on. Return false if there are fewer bytes, or after
  /// a failure, which `Code` returns then.
  bool Read(std::uint64_t position, Bytes& bytes) { return Read(m_file, position, bytes); }
  bool ReadDocument(std::uint64_t position, Bytes& bytes) {
    return Read(m_document, position, bytes);
  }
  /// Return the sizes of both files; 0 after a failure.
  std::uint64_t SizeBytes() { return SizeOf(m_file); }
  std::uint64_t DocumentBytes() { return SizeOf(m_document); }
  /// Whether another connection is changing the document.
  bool IsDocumentReserved();

  /// The first failure of the system, or `SQLITE_OK`.
  int Code() const noexcept { return m_code; }

 private:
  bool Read(sqlite3_file* file, std::uint64_t position, Bytes& bytes);
  std::uint64_t SizeOf(sqlite3_file* file);

  sqlite3_file* m_document = nullptr;
  sqlite3_file* m_file = nullptr;
  std::unique_ptr<std::max_align_t[]> m_memory;
  int m_code = SQLITE_OK;
};

/// Returns a number of four bytes.
std::uint32_t NumberAt(const SideFile::Bytes& bytes, std::size_t position,
                       bool highestFirst = true);

/// Fails with `Unsupported` if the path of the document leads to a pipe or a device, and with
/// `Damaged` if a name beside it that SQLite uses is that of a link, a folder or a pipe.
Status CheckKinds(const Database& database, const std::string& path);

}  // namespace TalVcs::Kit::Sqlite
