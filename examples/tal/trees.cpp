#include "trees.h"

#include <utility>

namespace Tal {
namespace {

/// Calls `visit(path, tree)` for a tree and all trees below it, until it gives false.
template <class Visit>
void VisitTrees(const TreePtr& root, Visit visit) {
  std::vector<std::pair<std::string, TreePtr>> pending;
  if (root) pending.emplace_back("", root);
  while (!pending.empty()) {
    const auto [path, tree] = std::move(pending.back());
    pending.pop_back();
    if (!visit(path, *tree)) return;
    for (const WideString& name : tree->GetLocalSubtreePaths())
      pending.emplace_back(path + ToUtf8(name) + "/", tree->GetLocalTree(name));
  }
}

}  // namespace

TreePtr RootOf(const CommitPtr& commit) {
  if (!commit || !commit->GetTree()) return nullptr;
  return commit->GetTree()->GetRoot();
}

std::vector<std::string> ListTree(const TreePtr& tree) {
  std::vector<std::string> paths;
  if (!tree) return paths;
  for (const WideString& path : tree->GetDeepBlobPaths()) paths.push_back(ToUtf8(path));
  return paths;
}

BlobPtr FindBlob(const TreePtr& tree, const std::string& path) {
  return tree ? tree->GetDeepBlob(ToWide(path)) : nullptr;
}

std::string FindFileAndFolder(const TreePtr& tree) {
  std::string found;
  VisitTrees(tree, [&](const std::string& path, const TalVcs::Tree& folder) {
    for (const WideString& name : folder.GetLocalSubtreePaths()) {
      if (folder.GetLocalBlob(name)) found = path + ToUtf8(name);
    }
    return found.empty();
  });
  return found;
}

TreePtr WithoutEmptyFolders(TalVcs::IRepository& repository, const TreePtr& tree) {
  std::vector<std::string> empty;
  VisitTrees(tree, [&](const std::string& path, const TalVcs::Tree& folder) {
    if (folder.IsEmpty()) empty.push_back(path);
    return true;
  });
  TreePtr kept = tree;
  for (const std::string& path : empty) {
    if (!path.empty()) kept.write()->RemoveObject(&repository, ToWide(path));
  }
  return kept && !kept->IsEmpty() ? kept : nullptr;
}

}  // namespace Tal
