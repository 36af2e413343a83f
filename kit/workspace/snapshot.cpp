#include <kit/open/try.h>
#include <kit/text.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/slots.h>
#include <kit/workspace/snapshot.h>

#include <algorithm>
#include <map>
#include <utility>

namespace TalVcs::Kit {

namespace {

Error NotFound(std::string_view kind, std::string_view path) {
  return WorkspaceError(ErrorCode::NotFound,
                        "there is no " + std::string(kind) + " \"" + std::string(path) + "\"",
                        path);
}

/// Returns the folder at a path.
Result<cow_ptr<Tree>> FolderAt(const cow_ptr<Tree>& tree, std::string_view path) {
  const Result<WideString> wide = CheckedFolder(path);
  if (!wide) return wide.error();
  if (path.empty()) return tree;
  cow_ptr<Tree> folder = tree->GetDeepTree(*wide);
  if (!folder) return NotFound("folder", path);
  return folder;
}

}  // namespace

Snapshot::Snapshot() : Snapshot(nullptr) {}

Snapshot::Snapshot(cow_ptr<Tree> tree, Version version)
    : m_tree(tree ? std::move(tree) : EmptyTree()), m_version(std::move(version)) {}

Result<Bytes> Snapshot::Read(std::string_view path) const {
  return Try([&]() -> Result<Bytes> {
    const Result<WideString> wide = CheckedPath(path);
    if (!wide) return wide.error();
    const cow_ptr<Blob> blob = m_tree->GetDeepBlob(*wide);
    if (!blob) return NotFound("file", path);
    return Bytes(blob->GetData());
  });
}

Result<bool> Snapshot::Contains(std::string_view path) const {
  return Try([&]() -> Result<bool> {
    const Result<WideString> wide = CheckedPath(path);
    if (!wide) return wide.error();
    return m_tree->GetIdByPath(*wide).has_value();
  });
}

Result<std::vector<FolderEntry>> Snapshot::List(std::string_view folder) const {
  return Try([&]() -> Result<std::vector<FolderEntry>> {
    const Result<cow_ptr<Tree>> tree = FolderAt(m_tree, folder);
    if (!tree) return tree.error();
    std::map<std::string, bool> names;
    for (const auto& name : (*tree)->GetLocalBlobPaths()) names.emplace(ToUtf8(name), false);
    for (const auto& name : (*tree)->GetLocalSubtreePaths()) names.emplace(ToUtf8(name), true);
    std::vector<FolderEntry> entries;
    for (const auto& [name, is_folder] : names) entries.push_back({name, is_folder});
    return entries;
  });
}

Result<std::vector<std::string>> Snapshot::ListFiles(std::string_view folder) const {
  return Try([&]() -> Result<std::vector<std::string>> {
    const Result<cow_ptr<Tree>> tree = FolderAt(m_tree, folder);
    if (!tree) return tree.error();
    std::vector<std::string> paths;
    for (const auto& path : (*tree)->GetDeepBlobPaths()) {
      paths.push_back(JoinedPath(std::string(folder), path));
    }
    std::sort(paths.begin(), paths.end());
    return paths;
  });
}

}  // namespace TalVcs::Kit
