#pragma once

#include "file_kinds.h"
#include "ignore.h"
#include "text.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Tal {

/// What the system knows about a file without reading it. Times are nanoseconds since 1970.
struct FileStat {
  FileKind kind = FileKind::File;
  std::uint64_t sizeBytes = 0;
  std::int64_t modified = 0;
  std::int64_t changed = 0;  ///< when its content or its attributes changed
  std::uint64_t inode = 0;

  friend bool operator==(const FileStat&, const FileStat&) = default;
};

/// What stands at a path.
enum class EntryType { Nothing, File, Folder, Other };

struct Entry {
  EntryType type = EntryType::Nothing;
  FileStat stat;  ///< of a file, which may be a symbolic link
};

/// A file's bytes, of a symbolic link its target, and what the system knew before they were read.
struct FileContent {
  TalVcs::Buffer bytes;
  FileStat stat;
};

/// What a folder holds, by paths relative to its top, with "/" between components and sorted.
struct FolderContents {
  struct File {
    std::string path;
    FileStat stat;
  };
  struct Skipped {
    std::string path;
    std::string reason;
  };

  std::vector<File> files;           ///< regular files and symbolic links
  std::vector<Skipped> skipped;      ///< what has no place in a history, such as pipes
  std::vector<std::string> refused;  ///< names that aren't UTF-8, as the bytes that they are
};

/// The folder under history: its files and their bytes, never the store inside it.
///
/// No function follows a symbolic link below the top, so nothing outside is read or changed.
/// Threads: several may read and examine files at once.
class Folder {
 public:
  static constexpr const char* kStoreName = ".vcs";
  static constexpr const char* kIgnoreName = ".talignore";

  /// Opens the folder. Throws `Failure`.
  explicit Folder(std::filesystem::path top);
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder();

  const std::filesystem::path& Top() const noexcept { return m_top; }
  std::filesystem::path StorePath() const { return m_top / kStoreName; }

  /// Returns true if the history holds a file at a path, or below it.
  using IsTracked = std::function<bool(const std::string& path)>;
  /// Lists the folder, on several threads if it has many folders. What is tracked is listed even
  /// where the ignore file names it or a folder above it. `isTracked` is called by one thread at a
  /// time, which may be another one each time. Throws `Failure`, and what `isTracked` throws.
  FolderContents List(const IsTracked& isTracked) const;

  /// Looks at a path.
  Entry Examine(const std::string& path) const;
  /// Reads a file. Throws `Failure`.
  FileContent Read(const std::string& path) const;
  /// Returns true if there is a file of this kind with exactly the bytes of that blob id.
  bool Holds(const std::string& path, const TalVcs::Id& id, FileKind kind) const;

  /// Puts a file in place at once, with its folders: it is written inside the store's folder and
  /// moved. Other permissions of a file that it replaces stay. A folder in its place that holds no
  /// file gives way. Returns what the system knows about the file then. Throws `Failure`.
  FileStat Write(const std::string& path, const TalVcs::Buffer& bytes, FileKind kind) const;
  /// Removes a file, and the folders that this leaves empty. Throws `Failure`.
  void Remove(const std::string& path) const;

 private:
  std::filesystem::path m_top;
  int m_handle;
};

/// Throws `Failure` if a path, as a tree holds it, would lead out of the folder or into a store, or
/// has no form on this file system.
void CheckPath(const std::string& path);

}  // namespace Tal
