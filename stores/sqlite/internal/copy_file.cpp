#include <kit/store/quietly.h>
#include <stores/sqlite/internal/copy_file.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/files.h>
#include <stores/sqlite/internal/sqlite_error.h>
#include <stores/sqlite/internal/transaction.h>

#include <memory>
#include <string_view>
#include <utility>

namespace TalVcs::Kit::Sqlite {
namespace {

std::filesystem::path JournalOf(std::filesystem::path copy) { return copy += "-journal"; }

void RemoveCopy(const std::filesystem::path& copy) {
  const std::filesystem::path journal = JournalOf(copy);
  std::error_code ignored;
  std::filesystem::remove(copy, ignored);
  std::filesystem::remove(journal, ignored);
}

/// Whether there is a file of that name, or a link of it, also one that leads to nothing.
bool IsTaken(const std::filesystem::path& target) {
  std::error_code failure;
  return std::filesystem::symlink_status(target, failure).type() !=
         std::filesystem::file_type::not_found;
}

}  // namespace

CopyFile::CopyFile(const std::filesystem::path& target) : m_path(CopyNameOf(target)) {
  RemoveCopy(m_path);
}

CopyFile::~CopyFile() {
  Quietly([this] { RemoveCopy(m_path); });
}

Status CopyFile::Make(SqliteOptions options, const std::function<Status(Database&)>& fill) const {
  options.create = true;
  options.readOnly = false;
  options.journalMode = SqliteJournalMode::Rollback;
  Result<std::unique_ptr<Database>> database = Database::Open(m_path, options);
  if (!database) return std::move(database).error();
  WriteTransaction transaction(**database);
  Status status = transaction.Begin();
  if (status) status = fill(**database);
  return status ? transaction.Commit() : status;
}

std::error_code CopyFile::MoveToNew(const std::filesystem::path& target, bool durable) {
  const std::error_code failure = MoveFile(m_path, target, durable);
  // It may have its new name, of which nobody knows whether it is on the medium.
  if (failure && !IsTaken(m_path)) {
    std::error_code ignored;
    std::filesystem::remove(target, ignored);
  }
  return failure;
}

std::filesystem::path CopyNameOf(std::filesystem::path target) { return target += "-compact"; }

Status CheckFree(const std::filesystem::path& file) {
  for (const std::string_view ending : {"", "-journal", "-wal", "-shm"}) {
    std::filesystem::path name = file;
    name += ending;
    if (!IsTaken(name)) continue;
    return MakeError(ErrorCode::Denied, Task::Save, name.string(),
                     "there is a file of that name already");
  }
  return {};
}

Status CheckNotItsCopy(const std::filesystem::path& source, const std::filesystem::path& target) {
  const std::filesystem::path copy = CopyNameOf(target);
  for (const std::filesystem::path& removed : {copy, JournalOf(copy)}) {
    std::error_code failure;
    if (!std::filesystem::equivalent(removed, source, failure)) continue;
    return MakeError(ErrorCode::Denied, Task::Save, target.string(),
                     "the document has the name that its copy would have");
  }
  return {};
}

}  // namespace TalVcs::Kit::Sqlite
