#pragma once

#include <kit/text/bytes.h>
#include <kit/text/result.h>
#include <kit/workspace/internal/slots.h>
#include <talvcs/objects/blob.h>
#include <talvcs/objects/tree.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace TalVcs {
class IRepository;
}  // namespace TalVcs

namespace TalVcs::Kit {

/// A tree that is edited by path.
///
/// Files that were written or removed are gathered, and put into the tree together when something
/// needs the tree, so that each folder is made once. In the tree and the gathered edits together,
/// no file has the path of a folder, and no folder is empty.
class Draft {
 public:
  /// Begins with a tree. The repository stores what is made; it must outlive the draft.
  Draft(IRepository& repository, cow_ptr<Tree> tree);

  /// Do what the functions of `Workspace` with these names do.
  Result<Bytes> Read(std::string_view path);
  Status Write(std::string_view path, const Buffer& content);
  Status Remove(std::string_view path);
  Status Rename(std::string_view from, std::string_view to);
  /// Puts an object in place of what is at the path; null removes that.
  Status Put(std::string_view path, const cow_ptr<Object>& object);

  /// Returns the tree with all edits; it is stored in the repository.
  const cow_ptr<Tree>& GetTree();

 private:
  struct File {
    WideString path;
    std::optional<Blob> blob;  // none if it was removed
  };

  void Flush();
  Status CheckPlace(const std::string& path, bool replacesFolder);
  bool LeadsThroughFile(std::string_view path) const;
  bool IsFolder(const std::string& path) const;

  IRepository* m_repository;
  cow_ptr<Tree> m_tree;
  std::map<std::string, File, std::less<>> m_files;  // not in the tree yet
};

}  // namespace TalVcs::Kit
