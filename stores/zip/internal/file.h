#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <system_error>
#include <utility>

namespace TalVcs::Kit::Zip {

/// Which file a path names, and which content it has: a file that was replaced or changed by
/// another program has another identity.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t number = 0;
  std::uint64_t sizeBytes = 0;
  std::int64_t changedNanoseconds = 0;

  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
  /// True if both are states of one file.
  bool IsSameFile(const FileIdentity& other) const noexcept {
    return device == other.device && number == other.number;
  }
};

/// An open file, closed by the destructor. Each operation returns the error of the system.
class File {
 public:
  using Path = std::filesystem::path;

  File() noexcept = default;
  File(File&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  File& operator=(File&& other) noexcept {
    std::swap(m_number, other.m_number);
    return *this;
  }
  ~File();

  /// Opens a file for reading and writing.
  static std::error_code Open(const Path& path, File& file);
  static std::error_code OpenForReading(const Path& path, File& file);
  /// Opens a file, which is made empty if it is missing.
  static std::error_code OpenOrMake(const Path& path, File& file);
  /// Makes a new file. The name must be free.
  static std::error_code Make(const Path& path, File& file);
  /// Makes a file without a name in a folder. It ends with this object.
  static std::error_code MakeNameless(const Path& folder, File& file);

  /// Opens the same file a second time, so that both have to be closed.
  std::error_code Duplicate(File& copy) const;

  /// Reads up to `size` bytes from a position. `count` is 0 at the end of the file.
  std::error_code ReadAt(std::uint64_t position, void* bytes, std::size_t size,
                         std::size_t& count) const;
  std::error_code WriteAt(std::uint64_t position, const void* bytes, std::size_t size);
  /// Waits until the medium has the bytes.
  std::error_code Sync();

  /// Locks the file against other open files; `errc::resource_unavailable_try_again` if it is
  /// locked. The lock ends when the file and all its duplicates are closed.
  std::error_code TryLock();
  /// Gives this file the permissions of another.
  std::error_code CopyPermissionsOf(const File& other);
  std::error_code Identify(FileIdentity& identity) const;

 private:
  int m_number = -1;
};

std::error_code Identify(const std::filesystem::path& path, FileIdentity& identity);
/// Gives `from` the name `to`, whose file, if any, goes in the same step.
std::error_code Rename(const std::filesystem::path& from, const std::filesystem::path& to);
/// Removes a file. One that is missing is no error.
std::error_code Remove(const std::filesystem::path& path);
/// Waits until the medium has the names in a folder.
std::error_code SyncFolder(const std::filesystem::path& folder);

}  // namespace TalVcs::Kit::Zip
