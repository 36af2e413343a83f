#include <kit/internal/file_system.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <span>
#include <string_view>
#include <utility>

namespace TalVcs::Kit {

namespace {

std::error_code SystemError() { return std::error_code(errno, std::generic_category()); }

/// Turns the result of a system call, negative for a failure, into an error.
std::error_code ErrorOf(int result) { return result < 0 ? SystemError() : std::error_code(); }

/// Repeats a system call that a signal interrupted.
template <class Call>
auto Retry(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/// For files and folders that the store itself makes. A symbolic link in the place of one would
/// lead a write to a file elsewhere.
constexpr int kOwn = O_NOFOLLOW;

/// An open file. A pipe in its place doesn't let the call wait.
class Descriptor {
 public:
  Descriptor(const std::filesystem::path& path, int flags)
      : m_number(
            Retry([&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666); })) {}
  Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (m_number >= 0) ::close(m_number);
  }

  bool IsOpen() const noexcept { return m_number >= 0; }
  int Number() const noexcept { return m_number; }

  /// Leaves the file open for somebody else, who closes it.
  void Release() noexcept { m_number = -1; }
  /// Closes the file. Some file systems report only now that what was written found no room.
  std::error_code Close() { return ErrorOf(::close(std::exchange(m_number, -1))); }

 private:
  int m_number;
};

class PosixLock final : public FileLock {
 public:
  explicit PosixLock(Descriptor file) noexcept : m_file(std::move(file)) {}

 private:
  Descriptor m_file;
};

class PosixFile final : public OpenedFile {
 public:
  explicit PosixFile(Descriptor file) noexcept : m_file(std::move(file)) {}

  std::error_code ReadAt(std::uint64_t position, char* target, std::size_t size,
                         std::size_t& count) override {
    count = 0;
    while (count < size) {
      const ssize_t got = Retry([&] {
        return ::pread(m_file.Number(), target + count, size - count,
                       static_cast<off_t>(position + count));
      });
      if (got < 0) return SystemError();
      if (got == 0) break;
      count += static_cast<std::size_t>(got);
    }
    return {};
  }

  std::error_code GetSize(std::uint64_t& size) override {
    struct stat status;
    if (::fstat(m_file.Number(), &status) < 0) return SystemError();
    size = static_cast<std::uint64_t>(status.st_size);
    return {};
  }

 private:
  Descriptor m_file;
};

std::error_code WriteAll(int number, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = Retry([&] { return ::write(number, bytes.data(), bytes.size()); });
    if (count < 0) return SystemError();
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return {};
}

std::error_code Sync(const std::filesystem::path& path, int flags) {
  const Descriptor file(path, O_RDONLY | flags);
  if (!file.IsOpen()) return SystemError();
  return ErrorOf(Retry([&] { return ::fsync(file.Number()); }));
}

class PosixFileSystem final : public FileSystem {
 public:
  std::error_code ReadFile(const Path& path, Buffer& bytes) override {
    return ReadFileFrom(path, 0, bytes);
  }

  std::error_code ReadFileFrom(const Path& path, std::uint64_t from, Buffer& bytes) override {
    const Descriptor file(path, O_RDONLY | kOwn);
    if (!file.IsOpen()) return SystemError();
    if (from > 0 && ::lseek(file.Number(), static_cast<off_t>(from), SEEK_SET) < 0) {
      return SystemError();
    }
    std::array<std::byte, std::size_t{1} << 16> piece;
    for (;;) {
      const ssize_t count =
          Retry([&] { return ::read(file.Number(), piece.data(), piece.size()); });
      if (count < 0) return SystemError();
      if (count == 0) return {};
      bytes.Append(piece.data(), static_cast<std::size_t>(count));
    }
  }

  std::error_code GetFileSize(const Path& path, std::uint64_t& size) override {
    struct stat status;
    if (::lstat(path.c_str(), &status) < 0) return SystemError();
    if (!S_ISREG(status.st_mode)) return std::make_error_code(std::errc::invalid_argument);
    size = static_cast<std::uint64_t>(status.st_size);
    return {};
  }

  bool IsLink(const Path& path) override {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
  }

  std::error_code OpenFile(const Path& path, std::unique_ptr<OpenedFile>& file) override {
    Descriptor opened(path, O_RDONLY | kOwn);
    if (!opened.IsOpen()) return SystemError();
    file = std::make_unique<PosixFile>(std::move(opened));
    return {};
  }

  std::error_code CreateFile(const Path& path, const Buffer& bytes) override {
    return Write(path, O_WRONLY | O_CREAT | O_EXCL, bytes);
  }
  std::error_code AppendFile(const Path& path, const Buffer& bytes) override {
    return Write(path, O_WRONLY | O_APPEND, bytes);
  }

  std::error_code TruncateFile(const Path& path, std::uint64_t size) override {
    const Descriptor file(path, O_WRONLY | kOwn);
    if (!file.IsOpen()) return SystemError();
    return ErrorOf(Retry([&] { return ::ftruncate(file.Number(), static_cast<off_t>(size)); }));
  }

  std::error_code SyncFile(const Path& path) override { return Sync(path, kOwn); }
  std::error_code SyncFolder(const Path& path) override { return Sync(path, O_DIRECTORY); }

  std::error_code SyncMedium(const Path& path) override {
#ifdef __linux__
    const Descriptor folder(path, O_RDONLY);
    if (!folder.IsOpen()) return SystemError();
    return ErrorOf(::syncfs(folder.Number()));
#else
    static_cast<void>(path);
    return std::make_error_code(std::errc::function_not_supported);
#endif
  }

  std::error_code Rename(const Path& from, const Path& to) override {
    return ErrorOf(::rename(from.c_str(), to.c_str()));
  }
  std::error_code RemoveFile(const Path& path) override { return ErrorOf(::unlink(path.c_str())); }
  std::error_code MakeFolder(const Path& path) override {
    return ErrorOf(::mkdir(path.c_str(), 0777));
  }
  std::error_code RemoveFolder(const Path& path) override { return ErrorOf(::rmdir(path.c_str())); }

  std::error_code ListFolder(const Path& path, std::vector<std::string>& names) override {
    Descriptor opened(path, O_RDONLY | O_DIRECTORY | kOwn);
    if (!opened.IsOpen()) return SystemError();
    DIR* folder = ::fdopendir(opened.Number());
    if (folder == nullptr) return SystemError();
    opened.Release();
    const std::unique_ptr<DIR, int (*)(DIR*)> closing(folder, ::closedir);
    for (;;) {
      errno = 0;
      const dirent* entry = ::readdir(folder);
      if (entry == nullptr) return errno == 0 ? std::error_code() : SystemError();
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") names.emplace_back(name);
    }
  }

  std::error_code LockFile(const Path& path, LockKind kind, LockWait wait,
                           std::unique_ptr<FileLock>& lock) override {
    Descriptor file(path, O_RDWR | O_CREAT | kOwn);
    // A process that may only read can still lock a file that is there.
    if (!file.IsOpen() && (errno == EACCES || errno == EROFS || errno == EPERM)) {
      return Lock(Descriptor(path, O_RDONLY | kOwn), kind, wait, lock);
    }
    return Lock(std::move(file), kind, wait, lock);
  }

 private:
  static std::error_code Write(const Path& path, int flags, const Buffer& bytes) {
    Descriptor file(path, flags | kOwn);
    if (!file.IsOpen()) return SystemError();
    for (std::size_t index = 0; index < bytes.GetSegmentCount(); ++index) {
      const std::error_code error = WriteAll(file.Number(), bytes.GetSegment(index));
      if (error) return error;
    }
    return file.Close();
  }

  static std::error_code Lock(Descriptor file, LockKind kind, LockWait wait,
                              std::unique_ptr<FileLock>& lock) {
    if (!file.IsOpen()) return SystemError();
    const int operation =
        (kind == LockKind::Shared ? LOCK_SH : LOCK_EX) | (wait == LockWait::No ? LOCK_NB : 0);
    if (Retry([&] { return ::flock(file.Number(), operation); }) < 0) return SystemError();
    lock = std::make_unique<PosixLock>(std::move(file));
    return {};
  }
};

}  // namespace

std::shared_ptr<FileSystem> MakeNativeFileSystem() { return std::make_shared<PosixFileSystem>(); }

}  // namespace TalVcs::Kit
