#pragma once

#include "ignore.h"
#include "trees.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Tal {

/// What a folder holds, by paths relative to its top, with "/" between components and sorted.
struct FolderContents {
  struct Skipped {
    std::string path;
    std::string reason;
  };

  std::vector<std::string> files;    ///< the regular files
  std::vector<Skipped> skipped;      ///< what has no place in a history, such as symbolic links
  std::vector<std::string> refused;  ///< names that aren't UTF-8, as the bytes that they are
};

/// The folder under history: its files and their bytes, never the store inside it.
class Folder {
 public:
  static constexpr const char* kStoreName = ".vcs";
  static constexpr const char* kIgnoreName = ".talignore";

  explicit Folder(std::filesystem::path top) : m_top(std::move(top)) {}

  const std::filesystem::path& Top() const noexcept { return m_top; }
  std::filesystem::path PathOf(const std::string& path) const { return m_top / path; }

  /// Lists the folder. What one of the trees holds is listed even where the ignore file names it or
  /// a folder above it.
  FolderContents List(const std::vector<TreePtr>& tracked) const;

  /// Reads a file, which may not be a symbolic link. Throws `Failure`.
  TalVcs::Buffer Read(const std::string& path) const;

  /// True if there is a regular file with exactly these bytes.
  bool Holds(const std::string& path, const TalVcs::Buffer& bytes) const;

  /// Puts a file in place at once, with its folders: it is written inside the store's folder and
  /// moved. The permissions of a file that it replaces stay. Throws `Failure`.
  void Write(const std::string& path, const TalVcs::Buffer& bytes) const;

  /// Removes a file, and the folders that this leaves empty. Throws `Failure`.
  void Remove(const std::string& path) const;

 private:
  std::filesystem::path m_top;
};

/// Throws `Failure` if a path, as a tree holds it, would lead out of the folder or into a store, or
/// has no form on this file system.
void CheckPath(const std::string& path);

}  // namespace Tal
