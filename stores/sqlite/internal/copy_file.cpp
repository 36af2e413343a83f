#include <kit/store/quietly.h>
#include <stores/sqlite/internal/copy_file.h>
#include <stores/sqlite/internal/files.h>
#include <stores/sqlite/internal/sqlite_error.h>

#include <string_view>

namespace TalVcs::Kit::Sqlite {
namespace {

std::filesystem::path CopyNameOf(std::filesystem::path path) { return path += "-compact"; }

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

std::error_code CopyFile::MoveToNew(const std::filesystem::path& target, bool durable) {
  const std::error_code failure = MoveFile(m_path, target, durable);
  // It may have its new name, of which nobody knows whether it is on the medium.
  if (failure && !IsTaken(m_path)) {
    std::error_code ignored;
    std::filesystem::remove(target, ignored);
  }
  return failure;
}

Status CheckFree(const std::filesystem::path& target) {
  for (const std::filesystem::path& file : {target, CopyNameOf(target)}) {
    for (const std::string_view ending : {"", "-journal", "-wal", "-shm"}) {
      std::filesystem::path name = file;
      name += ending;
      if (!IsTaken(name)) continue;
      return MakeError(ErrorCode::Denied, Task::Save, name.string(),
                       "there is a file of that name already");
    }
  }
  return {};
}

std::optional<Error> FindObstacle(const std::filesystem::path& source,
                                  const std::filesystem::path& target) {
  std::error_code failure;
  if (IsTaken(target)) {
    return MakeError(ErrorCode::Denied, Task::Save, target.string(),
                     "there is a file of that name already");
  }
  const std::filesystem::path copy = CopyNameOf(target);
  for (const std::filesystem::path& removed : {copy, JournalOf(copy)}) {
    if (!std::filesystem::equivalent(removed, source, failure)) continue;
    return MakeError(ErrorCode::Denied, Task::Save, target.string(),
                     "the document has the name that its copy would have");
  }
  return std::nullopt;
}

}  // namespace TalVcs::Kit::Sqlite
