#include <stores/zip/internal/file.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace TalVcs::Kit::Zip {
namespace {

std::error_code SystemError() { return std::error_code(errno, std::generic_category()); }

/// Turns the result of a system call, negative for a failure, into an error.
template <class Number>
std::error_code ErrorOf(Number result) {
  return result < 0 ? SystemError() : std::error_code();
}

/// Repeats a system call that a signal interrupted.
template <class Call>
auto Retry(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/// Opens a file. A pipe of that name doesn't let the call wait.
std::error_code OpenWith(const File::Path& path, int flags, int& number) {
  number = Retry([&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666); });
  return ErrorOf(number);
}

bool IsDenied(const std::error_code& error) {
  return error == std::errc::permission_denied || error == std::errc::operation_not_permitted ||
         error == std::errc::read_only_file_system;
}

std::error_code IdentityOf(const struct stat& status, FileIdentity& identity) {
  if (S_ISDIR(status.st_mode)) return std::make_error_code(std::errc::is_a_directory);
  if (!S_ISREG(status.st_mode)) return std::make_error_code(std::errc::invalid_argument);
  identity.device = status.st_dev;
  identity.number = status.st_ino;
  identity.sizeBytes = static_cast<std::uint64_t>(status.st_size);
#ifdef __APPLE__
  const timespec& changed = status.st_mtimespec;
#else
  const timespec& changed = status.st_mtim;
#endif
  identity.changedNanoseconds =
      static_cast<std::int64_t>(changed.tv_sec) * 1000000000 + changed.tv_nsec;
  return {};
}

}  // namespace

File::~File() {
  if (m_number >= 0) ::close(m_number);
}

std::error_code File::Open(const Path& path, File& file) {
  return OpenWith(path, O_RDWR, file.m_number);
}

std::error_code File::OpenForReading(const Path& path, File& file) {
  return OpenWith(path, O_RDONLY, file.m_number);
}

std::error_code File::OpenOrMake(const Path& path, File& file) {
  const std::error_code error = OpenWith(path, O_RDWR | O_CREAT, file.m_number);
  return IsDenied(error) && !OpenForReading(path, file) ? std::error_code() : error;
}

std::error_code File::Make(const Path& path, File& file) {
  return OpenWith(path, O_RDWR | O_CREAT | O_EXCL, file.m_number);
}

std::error_code File::MakeNameless(const Path& folder, File& file) {
#ifdef O_TMPFILE
  // Some file systems have no files without names.
  if (!OpenWith(folder, O_RDWR | O_TMPFILE, file.m_number)) return {};
#endif
  std::string path = (folder / ".talvcs-XXXXXX").string();
  file.m_number = ::mkstemp(path.data());
  if (file.m_number < 0) return SystemError();
  return ErrorOf(::unlink(path.c_str()));
}

std::error_code File::Duplicate(File& copy) const {
  copy.m_number = ::fcntl(m_number, F_DUPFD_CLOEXEC, 0);
  return ErrorOf(copy.m_number);
}

std::error_code File::ReadAt(std::uint64_t position, void* bytes, std::size_t size,
                             std::size_t& count) const {
  const ssize_t result =
      Retry([&] { return ::pread(m_number, bytes, size, static_cast<off_t>(position)); });
  count = result < 0 ? 0 : static_cast<std::size_t>(result);
  return ErrorOf(result);
}

std::error_code File::WriteAt(std::uint64_t position, const void* bytes, std::size_t size) {
  const char* rest = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t count =
        Retry([&] { return ::pwrite(m_number, rest, size, static_cast<off_t>(position)); });
    if (count < 0) return SystemError();
    rest += count;
    size -= static_cast<std::size_t>(count);
    position += static_cast<std::uint64_t>(count);
  }
  return {};
}

std::error_code File::Sync() {
  return ErrorOf(Retry([&] { return ::fsync(m_number); }));
}

std::error_code File::TryLock() {
  return ErrorOf(Retry([&] { return ::flock(m_number, LOCK_EX | LOCK_NB); }));
}

std::error_code File::CopyPermissionsOf(const File& other) {
  struct stat status;
  if (::fstat(other.m_number, &status) < 0) return SystemError();
  return ErrorOf(::fchmod(m_number, status.st_mode & 07777));
}

std::error_code File::Identify(FileIdentity& identity) const {
  struct stat status;
  if (::fstat(m_number, &status) < 0) return SystemError();
  return IdentityOf(status, identity);
}

std::error_code Identify(const std::filesystem::path& path, FileIdentity& identity) {
  struct stat status;
  if (::stat(path.c_str(), &status) < 0) return SystemError();
  return IdentityOf(status, identity);
}

std::error_code Rename(const std::filesystem::path& from, const std::filesystem::path& to) {
  return ErrorOf(::rename(from.c_str(), to.c_str()));
}

std::error_code Remove(const std::filesystem::path& path) {
  return ::unlink(path.c_str()) < 0 && errno != ENOENT ? SystemError() : std::error_code();
}

std::error_code SyncFolder(const std::filesystem::path& folder) {
  int number = -1;
  if (const std::error_code error = OpenWith(folder, O_RDONLY | O_DIRECTORY, number)) return error;
  const std::error_code error = ErrorOf(Retry([&] { return ::fsync(number); }));
  ::close(number);
  return error;
}

}  // namespace TalVcs::Kit::Zip
