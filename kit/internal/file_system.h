#pragma once

#include <talvcs/foundation/names.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace TalVcs::Kit {

/// A lock on a file, given back when the object ends, at the latest by the end of the process.
class FileLock {
 public:
  FileLock() = default;
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  virtual ~FileLock() = default;
};

/// A file that is open for reading. It can be read after its name has gone.
class OpenedFile {
 public:
  OpenedFile() = default;
  OpenedFile(const OpenedFile&) = delete;
  OpenedFile& operator=(const OpenedFile&) = delete;
  virtual ~OpenedFile() = default;

  /// Copies the bytes from `position` on to `target`, `size` of them or as many as there are, and
  /// puts their number in `count`.
  virtual std::error_code ReadAt(std::uint64_t position, char* target, std::size_t size,
                                 std::size_t& count) = 0;
  /// Puts the present size in `size`.
  virtual std::error_code GetSize(std::uint64_t& size) = 0;
};

enum class LockKind { Shared, Exclusive };
enum class LockWait { No, Yes };

/// Everything that the stores in folders ask of the operating system, so that tests can let any of
/// it fail. Each operation reports by its result, which tests false if it was done, and never
/// throws for an error of the system.
///
/// Except on Windows, an operation on a file and a listing fail with
/// `errc::too_many_symbolic_link_levels` or `errc::not_a_directory` if the name is that of a
/// symbolic link.
class FileSystem {
 public:
  using Path = std::filesystem::path;

  FileSystem() = default;
  FileSystem(const FileSystem&) = delete;
  FileSystem& operator=(const FileSystem&) = delete;
  virtual ~FileSystem() = default;

  /// Appends the bytes of the file to `bytes`.
  virtual std::error_code ReadFile(const Path& path, Buffer& bytes) = 0;
  /// Appends the bytes of the file from position `from` on, none if it ends before.
  virtual std::error_code ReadFileFrom(const Path& path, std::uint64_t from, Buffer& bytes) = 0;
  virtual std::error_code GetFileSize(const Path& path, std::uint64_t& size) = 0;

  /// Returns true if the name is that of a symbolic link; false also if that can't be found out.
  virtual bool IsLink(const Path& /*path*/) { return false; }

  /// Opens a file for reading.
  virtual std::error_code OpenFile(const Path& path, std::unique_ptr<OpenedFile>& file) = 0;

  /// Makes a new file; `errc::file_exists` if the name is taken. A failed one may leave a part.
  virtual std::error_code CreateFile(const Path& path, const Buffer& bytes) = 0;

  /// Puts the bytes at the end of a file that is there. A failed one may leave a part.
  virtual std::error_code AppendFile(const Path& path, const Buffer& bytes) = 0;

  /// Removes the bytes of a file from position `size` on.
  virtual std::error_code TruncateFile(const Path& path, std::uint64_t size) = 0;

  /// Wait until the bytes of a file, the names in a folder, or everything on the medium of `path`
  /// is kept. The last gives `errc::function_not_supported` where there is no such call.
  virtual std::error_code SyncFile(const Path& path) = 0;
  virtual std::error_code SyncFolder(const Path& path) = 0;
  virtual std::error_code SyncMedium(const Path& path) = 0;

  /// Gives `from` the name `to`, whose file, if any, goes in the same step.
  virtual std::error_code Rename(const Path& from, const Path& to) = 0;
  virtual std::error_code RemoveFile(const Path& path) = 0;

  /// Makes one folder; `errc::file_exists` if the name is taken, whatever has it.
  virtual std::error_code MakeFolder(const Path& path) = 0;
  /// Removes an empty folder.
  virtual std::error_code RemoveFolder(const Path& path) = 0;
  /// Appends the names in the folder, in no order, without "." and "..".
  virtual std::error_code ListFolder(const Path& path, std::vector<std::string>& names) = 0;

  /// Locks the file, which is made if it is missing. Without waiting, a lock that conflicts with
  /// another gives `errc::resource_unavailable_try_again`. Other store objects of this process
  /// conflict like other processes.
  virtual std::error_code LockFile(const Path& path, LockKind kind, LockWait wait,
                                   std::unique_ptr<FileLock>& lock) = 0;
};

/// Returns the file system of this machine.
std::shared_ptr<FileSystem> MakeNativeFileSystem();

}  // namespace TalVcs::Kit
