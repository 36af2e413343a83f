#include <kit/store/quietly.h>
#include <stores/sqlite/internal/copy_file.h>

#include <system_error>

namespace TalVcs::Kit::Sqlite {
namespace {

std::filesystem::path CopyNameOf(std::filesystem::path path) { return path += "-compact"; }

void RemoveCopy(const std::filesystem::path& copy) {
  std::filesystem::path journal = copy;
  journal += "-journal";
  std::error_code ignored;
  std::filesystem::remove(copy, ignored);
  std::filesystem::remove(journal, ignored);
}

}  // namespace

CopyFile::CopyFile(const std::filesystem::path& target) : m_path(CopyNameOf(target)) {
  RemoveCopy(m_path);
}

CopyFile::~CopyFile() {
  Quietly([this] { RemoveCopy(m_path); });
}

bool IsTaken(const std::filesystem::path& target) {
  std::error_code failure;
  return std::filesystem::symlink_status(target, failure).type() !=
         std::filesystem::file_type::not_found;
}

}  // namespace TalVcs::Kit::Sqlite
