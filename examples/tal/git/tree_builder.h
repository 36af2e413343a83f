#pragma once

#include "../file_kinds.h"
#include "../text.h"

#include <kit/batch_edit.h>
#include <talvcs/talvcs.h>

#include <map>
#include <set>
#include <string>
#include <string_view>

namespace Tal {

/// A tree that is edited by path as git does: a file takes the place of a folder and of a file that
/// its path leads through, and folders without files disappear. The kinds of files follow.
///
/// `git fast-export` names what is below a path before the path itself. Where a folder took the
/// place of a file, it puts the new files first and removes or renames the file then. So after a
/// file has given way, the next edit that removes or copies its path means the file.
class TreeBuilder {
 public:
  /// Begins with a tree, which may be null. The repository stores what is made; it must outlive the
  /// builder.
  TreeBuilder(TalVcs::Repository& repository, TalVcs::cow_ptr<TalVcs::Tree> tree);

  /// Puts a file at the path.
  void Put(const std::string& path, const TalVcs::Blob& blob, FileKind kind);
  /// Removes the file or folder at the path, if there is one.
  void Remove(const std::string& path);
  /// Returns whether an edit that copies the path means a file.
  bool HasFile(const std::string& path) const;
  /// Puts a copy of the file or folder at one path at another one. Neither path of a folder may be
  /// below the other. Returns false, with nothing changed, if there is none.
  bool Copy(const std::string& from, const std::string& to);
  /// Removes everything.
  void Clear();

  /// Returns the tree with all edits, which the repository stores.
  TalVcs::cow_ptr<TalVcs::Tree> Finish();

 private:
  struct ReplacedFile {
    TalVcs::Blob blob;
    FileKind kind = FileKind::File;
  };

  void RemoveAll(const std::string& path);
  void MakeRoom(const std::string& path);
  bool IsFile(const std::string& path) const;
  bool IsFolder(const std::string& path) const;
  void RemoveKinds(const std::string& path);
  void PutKinds();
  void Flush();

  TalVcs::Repository& m_repository;
  TalVcs::Tree m_tree;
  FileKinds m_kinds;
  std::string m_kindsText;         // of m_tree
  TalVcs::Kit::BatchEdit m_edits;  // of m_tree, not made yet
  std::set<std::string> m_added;   // the files that these put
  /// Files of the first tree that gave way to folders, and that no edit has named since.
  std::map<std::string, ReplacedFile> m_replaced;
};

}  // namespace Tal
