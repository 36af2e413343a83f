#include <sqlite3.h>
#include <stores/sqlite/internal/connection.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/log_pages.h>
#include <stores/sqlite/internal/meta.h>
#include <stores/sqlite/internal/side_file.h>
#include <stores/sqlite/internal/stale_log.h>
#include <stores/sqlite/internal/transaction.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TalVcs::Kit::Sqlite {
namespace {

constexpr std::size_t kFileHeaderBytes = 100;
constexpr std::size_t kWriteVersion = 18;
constexpr std::size_t kPageSize = 16;

using Bytes = SideFile::Bytes;

LogPages PagesOf(SideFile& files) {
  return ReadLogPages(
      [&files](std::uint64_t position, Bytes& bytes) { return files.Read(position, bytes); });
}

/// Returns whether the file has all pages of the log. The header of the file counts commits and
/// says whether there is a log, so it isn't compared.
bool HasAllPages(SideFile& files, const Bytes& header, const LogPages& pages) {
  const std::uint32_t stored = std::uint32_t{header[kPageSize]} << 8 | header[kPageSize + 1];
  if (!pages.places.empty() && (stored == 1 ? 65536 : stored) != pages.pageBytes) return false;
  Bytes in_log(pages.pageBytes);
  Bytes in_file(pages.pageBytes);
  for (const auto& [number, place] : pages.places) {
    if (number == 0 || number > pages.count) continue;
    const std::size_t skipped = number == 1 ? kFileHeaderBytes : 0;
    if (!files.Read(place, in_log) ||
        !files.ReadDocument(std::uint64_t{number - 1} * pages.pageBytes, in_file) ||
        !std::equal(in_log.begin() + static_cast<std::ptrdiff_t>(skipped), in_log.end(),
                    in_file.begin() + static_cast<std::ptrdiff_t>(skipped))) {
      return false;
    }
  }
  return true;
}

/// Returns the path as a URI of SQLite that reads the file without its log and without locks.
std::string UriOfFileAlone(std::string_view path) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string uri = "file:";
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    uri += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
  }
  return uri + "?immutable=1";
}

/// Returns the number `Meta::Log` that the file has without its log; nothing if it can't be read,
/// as in a file of which only a part of the log was copied into it.
std::optional<std::uint64_t> MarkInFile(Database& database) {
  constexpr char kMark[] = "SELECT value FROM meta WHERE name = 'log'";
  const char* path = sqlite3_db_filename(database.Connection(), "main");
  sqlite3* connection = nullptr;
  sqlite3_stmt* row = nullptr;
  std::optional<std::uint64_t> mark;
  if (sqlite3_open_v2(UriOfFileAlone(path).c_str(), &connection,
                      SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX,
                      nullptr) == SQLITE_OK &&
      RefuseForeignSql(connection) == SQLITE_OK &&
      sqlite3_prepare_v2(connection, kMark, -1, &row, nullptr) == SQLITE_OK &&
      sqlite3_step(row) == SQLITE_ROW && sqlite3_column_type(row, 0) == SQLITE_INTEGER) {
    mark = static_cast<std::uint64_t>(sqlite3_column_int64(row, 0));
  }
  sqlite3_finalize(row);
  sqlite3_close(connection);
  return mark;
}

/// Returns the number that the file has together with its log; nothing if it has none.
std::optional<std::uint64_t> MarkInLog(Database& database) {
  ReadTransaction transaction(database);
  if (!transaction.Begin()) return std::nullopt;
  const Result<std::optional<std::uint64_t>> mark = FindMeta(database, Meta::Log);
  return mark ? *mark : std::nullopt;
}

/// Returns whether the log of a file that is in log mode continues another state of it. Each
/// transaction adds one to the number in the log, so that the number in the file is one that the
/// log has had since its first transaction began.
bool ContinuesAnotherState(Database& database, SideFile& files) {
  constexpr int kAttempts = 3;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const LogPages log = PagesOf(files);
    if (log.transactions == 0) return false;
    const std::uint64_t in_file = MarkInFile(database).value_or(0);
    const std::uint64_t in_log = MarkInLog(database).value_or(0);
    // The lowest bit is 0 in the file before its first checkpoint, and in the log at its end.
    if ((in_file & in_log & 1) == 0) return false;
    if (in_file <= in_log && (in_log - in_file) / 2 <= log.transactions) return false;
    const LogPages after = PagesOf(files);
    // Otherwise another connection has changed it meanwhile.
    if (after.header == log.header && after.transactions == log.transactions) return true;
  }
  return false;
}

}  // namespace

Result<bool> HasStaleLog(Database& database) {
  SideFile files(database.Connection(), SideFile::Kind::Log);
  Bytes header(kFileHeaderBytes);
  if (!files.IsOpen() || !files.ReadDocument(0, header)) return false;
  const bool is_stale = header[kWriteVersion] == 1 ? !HasAllPages(files, header, PagesOf(files))
                                                   : ContinuesAnotherState(database, files);
  if (files.Code() != SQLITE_OK) return database.Fail(files.Code(), Task::Open);
  // A program that has begun or ended a log meanwhile has changed the header before or after.
  const unsigned char mode = header[kWriteVersion];
  return is_stale && files.ReadDocument(0, header) && header[kWriteVersion] == mode;
}

}  // namespace TalVcs::Kit::Sqlite
