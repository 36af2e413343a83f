#include <kit/internal/file_system.h>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#undef CreateFile  // a macro that would rename the operation of that name

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <utility>

namespace TalVcs::Kit {

namespace {

std::error_code SystemError() {
  return std::error_code(static_cast<int>(::GetLastError()), std::system_category());
}

/// Turns the result of a system call into an error.
std::error_code ErrorOf(BOOL done) { return done ? std::error_code() : SystemError(); }

/// An open file.
class Handle {
 public:
  Handle(const std::filesystem::path& path, DWORD access, DWORD disposition)
      : m_handle(::CreateFileW(path.c_str(), access,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                               disposition, FILE_ATTRIBUTE_NORMAL, nullptr)) {}
  Handle(Handle&& other) noexcept : m_handle(std::exchange(other.m_handle, INVALID_HANDLE_VALUE)) {}
  Handle& operator=(Handle&&) = delete;
  ~Handle() {
    if (IsOpen()) ::CloseHandle(m_handle);
  }

  bool IsOpen() const noexcept { return m_handle != INVALID_HANDLE_VALUE; }
  HANDLE Get() const noexcept { return m_handle; }

 private:
  HANDLE m_handle;
};

class WindowsLock final : public FileLock {
 public:
  explicit WindowsLock(Handle file) noexcept : m_file(std::move(file)) {}

 private:
  Handle m_file;
};

class WindowsFile final : public OpenedFile {
 public:
  explicit WindowsFile(Handle file) noexcept : m_file(std::move(file)) {}

  std::error_code ReadAt(std::uint64_t position, char* target, std::size_t size,
                         std::size_t& count) override {
    constexpr std::size_t kMost = std::size_t{1} << 30;
    count = 0;
    while (count < size) {
      OVERLAPPED place{};
      place.Offset = static_cast<DWORD>((position + count) & 0xFFFFFFFFU);
      place.OffsetHigh = static_cast<DWORD>((position + count) >> 32);
      DWORD got = 0;
      const auto most = static_cast<DWORD>(std::min(size - count, kMost));
      if (!::ReadFile(m_file.Get(), target + count, most, &got, &place)) {
        if (::GetLastError() != ERROR_HANDLE_EOF) return SystemError();
        got = 0;
      }
      if (got == 0) break;
      count += got;
    }
    return {};
  }

  std::error_code GetSize(std::uint64_t& size) override {
    LARGE_INTEGER end{};
    if (!::GetFileSizeEx(m_file.Get(), &end)) return SystemError();
    size = static_cast<std::uint64_t>(end.QuadPart);
    return {};
  }

 private:
  Handle m_file;
};

std::error_code WriteAll(HANDLE handle, std::span<const std::byte> bytes) {
  constexpr std::size_t kMost = std::size_t{1} << 30;
  while (!bytes.empty()) {
    DWORD count = 0;
    const auto size = static_cast<DWORD>(std::min(bytes.size(), kMost));
    if (!::WriteFile(handle, bytes.data(), size, &count, nullptr)) return SystemError();
    bytes = bytes.subspan(count);
  }
  return {};
}

/// Returns why a file wasn't opened. The system has one error for a missing folder and for a file
/// in the place of a folder; only the first means that nothing is there yet.
std::error_code OpenError(const std::filesystem::path& path) {
  const std::error_code error = SystemError();
  if (error.value() != ERROR_PATH_NOT_FOUND) return error;
  const DWORD parent = ::GetFileAttributesW(path.parent_path().c_str());
  const bool is_file =
      parent != INVALID_FILE_ATTRIBUTES && (parent & FILE_ATTRIBUTE_DIRECTORY) == 0;
  return is_file ? std::make_error_code(std::errc::not_a_directory) : error;
}

class WindowsFileSystem final : public FileSystem {
 public:
  std::error_code ReadFile(const Path& path, Buffer& bytes) override {
    return ReadFileFrom(path, 0, bytes);
  }

  std::error_code ReadFileFrom(const Path& path, std::uint64_t from, Buffer& bytes) override {
    const Handle file(path, GENERIC_READ, OPEN_EXISTING);
    if (!file.IsOpen()) return OpenError(path);
    LARGE_INTEGER position{};
    position.QuadPart = static_cast<LONGLONG>(from);
    if (from > 0 && !::SetFilePointerEx(file.Get(), position, nullptr, FILE_BEGIN)) {
      return SystemError();
    }
    std::array<std::byte, std::size_t{1} << 16> piece;
    for (;;) {
      DWORD count = 0;
      const auto size = static_cast<DWORD>(piece.size());
      if (!::ReadFile(file.Get(), piece.data(), size, &count, nullptr)) return SystemError();
      if (count == 0) return {};
      bytes.Append(piece.data(), count);
    }
  }

  std::error_code GetFileSize(const Path& path, std::uint64_t& size) override {
    std::error_code error;
    size = std::filesystem::file_size(path, error);
    return error;
  }

  std::error_code OpenFile(const Path& path, std::unique_ptr<OpenedFile>& file) override {
    Handle opened(path, GENERIC_READ, OPEN_EXISTING);
    if (!opened.IsOpen()) return OpenError(path);
    file = std::make_unique<WindowsFile>(std::move(opened));
    return {};
  }

  std::error_code CreateFile(const Path& path, const Buffer& bytes) override {
    return Write(Handle(path, GENERIC_WRITE, CREATE_NEW), bytes);
  }
  std::error_code AppendFile(const Path& path, const Buffer& bytes) override {
    return Write(Handle(path, FILE_APPEND_DATA, OPEN_EXISTING), bytes);
  }

  std::error_code TruncateFile(const Path& path, std::uint64_t size) override {
    const Handle file(path, GENERIC_WRITE, OPEN_EXISTING);
    if (!file.IsOpen()) return OpenError(path);
    LARGE_INTEGER position{};
    position.QuadPart = static_cast<LONGLONG>(size);
    if (!::SetFilePointerEx(file.Get(), position, nullptr, FILE_BEGIN)) return SystemError();
    return ErrorOf(::SetEndOfFile(file.Get()));
  }

  std::error_code SyncFile(const Path& path) override {
    const Handle file(path, GENERIC_WRITE, OPEN_EXISTING);
    if (!file.IsOpen()) return SystemError();
    return ErrorOf(::FlushFileBuffers(file.Get()));
  }

  // The file system keeps the names by its own journal.
  std::error_code SyncFolder(const Path& /*path*/) override { return {}; }
  std::error_code SyncMedium(const Path& /*path*/) override {
    return std::make_error_code(std::errc::function_not_supported);
  }

  std::error_code Rename(const Path& from, const Path& to) override {
    return ErrorOf(::MoveFileExW(from.c_str(), to.c_str(),
                                 MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
  }
  std::error_code RemoveFile(const Path& path) override {
    return ErrorOf(::DeleteFileW(path.c_str()));
  }
  std::error_code MakeFolder(const Path& path) override {
    return ErrorOf(::CreateDirectoryW(path.c_str(), nullptr));
  }
  std::error_code RemoveFolder(const Path& path) override {
    return ErrorOf(::RemoveDirectoryW(path.c_str()));
  }

  std::error_code ListFolder(const Path& path, std::vector<std::string>& names) override {
    std::error_code error;
    std::filesystem::directory_iterator at(path, error);
    for (; !error && at != std::filesystem::directory_iterator(); at.increment(error)) {
      const std::u8string name = at->path().filename().u8string();
      names.emplace_back(name.begin(), name.end());
    }
    return error;
  }

  std::error_code LockFile(const Path& path, LockKind kind, LockWait wait,
                           std::unique_ptr<FileLock>& lock) override {
    Handle file(path, GENERIC_READ, OPEN_ALWAYS);
    if (!file.IsOpen()) return SystemError();
    const DWORD flags = (kind == LockKind::Exclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0U) |
                        (wait == LockWait::No ? LOCKFILE_FAIL_IMMEDIATELY : 0U);
    OVERLAPPED range{};
    if (!::LockFileEx(file.Get(), flags, 0, 1, 0, &range)) {
      if (::GetLastError() != ERROR_LOCK_VIOLATION && ::GetLastError() != ERROR_IO_PENDING) {
        return SystemError();
      }
      return std::make_error_code(std::errc::resource_unavailable_try_again);
    }
    lock = std::make_unique<WindowsLock>(std::move(file));
    return {};
  }

 private:
  static std::error_code Write(const Handle& file, const Buffer& bytes) {
    if (!file.IsOpen()) return SystemError();
    for (std::size_t index = 0; index < bytes.GetSegmentCount(); ++index) {
      const std::error_code error = WriteAll(file.Get(), bytes.GetSegment(index));
      if (error) return error;
    }
    return {};
  }
};

}  // namespace

std::shared_ptr<FileSystem> MakeNativeFileSystem() { return std::make_shared<WindowsFileSystem>(); }

}  // namespace TalVcs::Kit
