#pragma once

#include "folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <utility>

namespace Tal {

/// A descriptor of the system, closed at the end. Negative if opening failed; `errno` has why.
class FileHandle {
 public:
  explicit FileHandle(int handle) noexcept : m_handle(handle) {}
  FileHandle(FileHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, -1)) {}
  FileHandle& operator=(FileHandle&& other) noexcept {
    std::swap(m_handle, other.m_handle);
    return *this;
  }
  ~FileHandle() {
    if (m_handle >= 0) close(m_handle);
  }

  int Get() const noexcept { return m_handle; }
  bool IsOpen() const noexcept { return m_handle >= 0; }

  /// Returns the descriptor, which the caller closes from now on.
  int Release() noexcept { return std::exchange(m_handle, -1); }
  /// Closes the file. Returns false if not all that was written is there.
  bool Close() noexcept { return close(std::exchange(m_handle, -1)) == 0; }

 private:
  int m_handle;
};

/// The folder of a path, and the last component.
struct OpenedParent {
  FileHandle folder;
  std::string name;
};

enum class MissingFolders { Fail, Make };

/// Opens the folder of a path below `top`, never through a symbolic link; by one call where the
/// system has it. The handle isn't open if that fails.
OpenedParent OpenParent(int top, const std::string& path, MissingFolders missing);

FileStat StatOf(const struct stat& status);

/// Throws `Failure` that names the path and the system's reason.
[[noreturn]] void FailOnFile(const char* what, const std::string& path, int error);

}  // namespace Tal
