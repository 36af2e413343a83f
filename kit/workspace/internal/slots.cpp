#include <kit/workspace/internal/slots.h>

#include <algorithm>
#include <memory>

namespace TalVcs::Kit {

cow_ptr<Tree> EmptyTree() { return HandleOn(Tree()); }

cow_ptr<Tree> HandleOn(const Tree& tree) {
  return dll_wrapped_shared(std::make_unique<Tree>(tree));
}

Slot SlotAt(const Tree& tree, const WideString& path) {
  const std::optional<Id> id = tree.GetIdByPath(path);
  if (!id) return {};
  // A file hides a folder of its name.
  const cow_ptr<Tree> folder = tree.GetDeepTree(path);
  const bool is_folder = folder && folder->GetId() == *id;
  return {is_folder ? Slot::Kind::Folder : Slot::Kind::File, *id};
}

cow_ptr<Tree> SubtreeOf(const cow_ptr<Tree>& tree, const WideString& name) {
  cow_ptr<Tree> subtree = tree->GetLocalTree(name);
  return subtree ? subtree : EmptyTree();
}

std::vector<WideString> DifferingNames(const cow_ptr<Tree>& a, const cow_ptr<Tree>& b) {
  std::vector<WideString> names = a->GetLocalBlobDiffs(b);
  const std::vector<WideString> trees = a->GetLocalTreeDiffs(b);
  names.insert(names.end(), trees.begin(), trees.end());
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

std::string JoinedPath(const std::string& folder, const WideString& name) {
  return folder.empty() ? ToUtf8(name) : folder + "/" + ToUtf8(name);
}

}  // namespace TalVcs::Kit
