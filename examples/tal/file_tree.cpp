#include "file_tree.h"

#include <kit/workspace/snapshot.h>

#include <utility>

namespace Tal {

FileTree::FileTree(TreePtr tree) : m_tree(std::move(tree)) {
  if (const BlobPtr kinds = m_tree ? m_tree->GetLocalBlob(ToWide(FileKinds::kKindsName)) : nullptr)
    m_kinds = FileKinds(TalVcs::Kit::BytesFromBlob(*kinds));
}

std::vector<std::string> FileTree::List(const std::string& folder) const {
  std::vector<std::string> paths = TalVcs::Kit::Snapshot(m_tree).ListFiles(folder).value();
  std::erase(paths, FileKinds::kKindsName);
  return paths;
}

BlobPtr FileTree::Find(const std::string& path) const {
  if (!m_tree || path == FileKinds::kKindsName) return nullptr;
  return m_tree->GetDeepBlob(ToWide(path));
}

std::optional<TalVcs::Id> FileTree::IdAt(const std::string& path) const {
  if (!m_tree || path == FileKinds::kKindsName) return std::nullopt;
  return m_tree->GetIdByPath(ToWide(path));
}

std::string FindFileAndFolder(const TreePtr& root) {
  std::vector<std::pair<std::string, TreePtr>> pending;
  if (root) pending.emplace_back("", root);
  while (!pending.empty()) {
    const auto [path, tree] = std::move(pending.back());
    pending.pop_back();
    for (const WideString& name : tree->GetLocalSubtreePaths()) {
      if (tree->GetLocalBlob(name)) return path + ToUtf8(name);
      pending.emplace_back(path + ToUtf8(name) + "/", tree->GetLocalTree(name));
    }
  }
  return "";
}

}  // namespace Tal
