#pragma once

#include <kit/merge/content_merger.h>

#include <map>
#include <string>
#include <string_view>

namespace Tal {

/// What stands at the path of a file in a folder.
enum class FileKind { File, Executable, Link };

/// Returns the word for a kind, such as "executable".
const char* Name(FileKind kind);

/// Which files of a version are executable or symbolic links.
///
/// A tree has paths and bytes alone. So a version keeps the kinds in a file of its own at the top,
/// `kKindsName`, which never appears in the folder; docs/formats.md describes it. The bytes of a
/// link's blob are its target.
class FileKinds {
 public:
  static constexpr const char* kKindsName = ".talkinds";

  FileKinds() = default;
  /// Reads the text of the file. Skips lines that aren't of its format.
  explicit FileKinds(std::string_view text);

  /// Returns the text of the file; empty if all files are plain.
  std::string ToText() const;

  FileKind Of(const std::string& path) const;
  /// Sets the kind of a file. A removed file becomes a plain one.
  void Set(const std::string& path, FileKind kind);
  /// Returns the files that aren't plain.
  const std::map<std::string, FileKind>& GetAll() const noexcept { return m_kinds; }

  friend bool operator==(const FileKinds&, const FileKinds&) = default;

 private:
  std::map<std::string, FileKind> m_kinds;
};

/// Returns a merger of all files: text by lines, with conflict markers where both sides changed the
/// same lines; the kinds path by path, and never with a conflict. Where both sides changed a kind
/// differently, the left one is taken.
TalVcs::Kit::ContentMerger MakeMerger();

}  // namespace Tal
