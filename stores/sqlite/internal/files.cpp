#include <stores/sqlite/internal/files.h>

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace TalVcs::Kit::Sqlite {
namespace {

#ifdef _WIN32
// NTFS keeps names in a journal of its own, and has no call for a folder.
std::error_code SyncFolder(const std::filesystem::path&) { return {}; }
#else
std::error_code SyncFolder(const std::filesystem::path& folder) {
  const int handle = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (handle < 0) return {errno, std::system_category()};
  std::error_code failure;
  if (::fsync(handle) != 0) failure.assign(errno, std::system_category());
  ::close(handle);
  return failure;
}
#endif

}  // namespace

std::error_code MoveFile(const std::filesystem::path& from, const std::filesystem::path& to,
                         bool durable) {
  std::error_code failure;
  std::filesystem::rename(from, to, failure);
  if (failure || !durable) return failure;
  const std::filesystem::path folder = to.parent_path();
  return SyncFolder(folder.empty() ? std::filesystem::path(".") : folder);
}

void CopyPermissions(const std::filesystem::path& from, const std::filesystem::path& to) {
  std::error_code failure;
  const std::filesystem::file_status status = std::filesystem::status(from, failure);
  if (!failure) std::filesystem::permissions(to, status.permissions(), failure);
}

}  // namespace TalVcs::Kit::Sqlite
