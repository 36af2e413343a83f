#pragma once

#include "file_tree.h"
#include "folder.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tal {

/// What is known of the files of a version from the last time when they were compared with the
/// folder. So a file that the system calls unchanged is neither read nor hashed.
///
/// It is the file "tal-index" in the store's folder; docs/formats.md describes it. It says nothing
/// that can't be found out again: if it is missing or damaged, it is empty, and files are read.
class FolderIndex {
 public:
  /// The 32 bytes of an id.
  using RawId = std::array<unsigned char, 32>;

  enum class Verdict : std::uint8_t {
    Unknown,    ///< the file must be read
    Same,       ///< with these times, the folder has the version's file
    Different,  ///< with these times, it has another one
  };

  struct File {
    std::string path;
    RawId id{};  ///< the version's blob
    FileKind kind = FileKind::File;
    Verdict verdict = Verdict::Unknown;
    FileStat stat;  ///< of the file in the folder when it was compared
  };

  /// Reads the index of a store's folder.
  static FolderIndex Load(const std::filesystem::path& storePath);
  /// Writes it beside the former one and renames it. Where that fails, the next command reads more.
  void Save(const std::filesystem::path& storePath) const;

  /// Returns true if it is of the version with this tree.
  bool IsOf(const FileTree& tree) const { return m_tree == ToRaw(tree.GetId()); }
  /// Makes it the index of a version. It was of `before`, or else all entries are looked up anew.
  /// What is known of files stays. Cost: that of the comparison, and one pass over the files.
  void MoveTo(const FileTree& before, const FileTree& tree);

  /// Returns the files of the version, sorted by path.
  std::vector<File>& Files() noexcept { return m_files; }
  const std::vector<File>& Files() const noexcept { return m_files; }
  File* Find(const std::string& path);
  const File* Find(const std::string& path) const;
  /// Returns true if the file that now has `stat` is known to have the bytes of that blob id, false
  /// if it is known to have others. Returns nothing if it must be read.
  std::optional<bool> Holds(const std::string& path, const FileStat& stat,
                            const TalVcs::Id& id) const;
  /// Returns true if the version has a file at the path, or below it.
  bool IsTracked(const std::string& path) const;

  static RawId ToRaw(const TalVcs::Id& id);
  static TalVcs::Id FromRaw(const RawId& id);

 private:
  bool Parse(std::string_view bytes);
  std::string Serialise() const;
  void MoveEntry(File& file, const RawId& id, FileKind kind) const;

  RawId m_tree{};
  std::vector<File> m_files;
};

/// Notes the outcome of a comparison. A file that has changed since `looked`, in nanoseconds, or at
/// that very moment, may change again without another time: it stays unknown.
void SetVerdict(FolderIndex::File& file, FolderIndex::Verdict verdict, const FileStat& stat,
                std::int64_t looked);

/// Returns the present time by the clock of the file system, in nanoseconds; 0 if that can't be
/// asked, so that nothing counts as known.
std::int64_t FileSystemTime(const std::filesystem::path& storePath);

}  // namespace Tal
