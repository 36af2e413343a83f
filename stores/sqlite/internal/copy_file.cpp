#include <kit/store/quietly.h>
#include <stores/sqlite/internal/copy_file.h>
#include <stores/sqlite/internal/sqlite_error.h>

#include <system_error>

namespace TalVcs::Kit::Sqlite {
namespace {

std::filesystem::path CopyNameOf(std::filesystem::path path) { return path += "-compact"; }

std::filesystem::path JournalOf(std::filesystem::path copy) { return copy += "-journal"; }

void RemoveCopy(const std::filesystem::path& copy) {
  std::error_code ignored;
  std::filesystem::remove(copy, ignored);
  std::filesystem::remove(JournalOf(copy), ignored);
}

}  // namespace

CopyFile::CopyFile(const std::filesystem::path& target) : m_path(CopyNameOf(target)) {
  RemoveCopy(m_path);
}

CopyFile::~CopyFile() {
  Quietly([this] { RemoveCopy(m_path); });
}

std::optional<Error> FindObstacle(const std::filesystem::path& source,
                                  const std::filesystem::path& target) {
  std::error_code failure;
  if (std::filesystem::symlink_status(target, failure).type() !=
      std::filesystem::file_type::not_found) {
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
