#pragma once

#include "file_kinds.h"
#include "text.h"

#include <optional>
#include <string>
#include <vector>

namespace Tal {

using BlobPtr = TalVcs::cow_ptr<TalVcs::Blob>;
using TreePtr = TalVcs::cow_ptr<TalVcs::Tree>;

/// The files of a version: its tree, and the kinds that the tree keeps for this program.
class FileTree {
 public:
  /// No files.
  FileTree() = default;
  /// Reads the kinds. A null tree has no files.
  explicit FileTree(TreePtr tree);

  /// May be null.
  const TreePtr& GetTree() const noexcept { return m_tree; }
  const FileKinds& GetKinds() const noexcept { return m_kinds; }
  /// Returns the id of the tree; empty without a tree.
  TalVcs::Id GetId() const { return m_tree ? m_tree->GetId() : TalVcs::Id(); }

  /// Returns the paths of all files below a folder, sorted by their bytes.
  std::vector<std::string> List(const std::string& folder = {}) const;
  /// Returns the file at a path, or null.
  BlobPtr Find(const std::string& path) const;
  /// Returns the id of the file or folder at a path, without reading it.
  std::optional<TalVcs::Id> IdAt(const std::string& path) const;
  /// Returns true if there is a file or folder at a path.
  bool Contains(const std::string& path) const { return IdAt(path).has_value(); }
  FileKind KindOf(const std::string& path) const { return m_kinds.Of(path); }

 private:
  TreePtr m_tree;
  FileKinds m_kinds;
};

/// Returns a path at which `tree` has a file and a folder of one name, or an empty text. No folder
/// can hold such a tree.
std::string FindFileAndFolder(const TreePtr& tree);

}  // namespace Tal
