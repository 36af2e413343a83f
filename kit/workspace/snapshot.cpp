#include <kit/open/try.h>
#include <kit/text.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/slots.h>
#include <kit/workspace/snapshot.h>

#include <algorithm>
#include <map>
#include <tuple>
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

/// Compares two trees, one folder after another. Nothing runs in recursion.
class Comparison {
 public:
  std::vector<Change> Run(const cow_ptr<Tree>& before, const cow_ptr<Tree>& after) {
    m_pending.push_back({"", before, after});
    while (!m_pending.empty()) {
      const Folder folder = std::move(m_pending.back());
      m_pending.pop_back();
      for (const WideString& name : DifferingNames(folder.before, folder.after)) {
        Visit(folder, name);
      }
    }
    JoinMoves();
    std::sort(m_changes.begin(), m_changes.end(), [](const Change& a, const Change& b) {
      return std::tie(a.path, a.kind) < std::tie(b.path, b.kind);
    });
    return std::move(m_changes);
  }

 private:
  struct Folder {
    std::string path;
    cow_ptr<Tree> before;
    cow_ptr<Tree> after;
  };

  void Visit(const Folder& folder, const WideString& name) {
    const Slot before = SlotAt(*folder.before, name);
    const Slot after = SlotAt(*folder.after, name);
    if (before == after) return;
    std::string path = JoinedPath(folder.path, name);
    const bool was_file = before.kind == Slot::Kind::File;
    const bool is_file = after.kind == Slot::Kind::File;
    if (was_file && is_file) {
      m_changes.push_back({path, ChangeKind::Changed, "", before.id, after.id});
    } else if (was_file) {
      m_changes.push_back({path, ChangeKind::Removed, "", before.id, Id()});
    } else if (is_file) {
      m_changes.push_back({path, ChangeKind::Added, "", Id(), after.id});
    }
    const bool was_folder = before.kind == Slot::Kind::Folder;
    const bool is_folder = after.kind == Slot::Kind::Folder;
    if (!was_folder && !is_folder) return;
    m_pending.push_back({std::move(path), was_folder ? SubtreeOf(folder.before, name) : EmptyTree(),
                         is_folder ? SubtreeOf(folder.after, name) : EmptyTree()});
  }

  // Makes a move of each added file for which a file with the same bytes was removed, in the order
  // of the paths.
  void JoinMoves() {
    std::sort(m_changes.begin(), m_changes.end(),
              [](const Change& a, const Change& b) { return a.path < b.path; });
    std::multimap<WideString, std::size_t> removed;
    for (std::size_t i = 0; i < m_changes.size(); ++i) {
      const Change& change = m_changes[i];
      if (change.kind == ChangeKind::Removed) removed.emplace(change.before.ToString(), i);
    }
    for (Change& change : m_changes) {
      if (change.kind != ChangeKind::Added) continue;
      const auto found = removed.find(change.after.ToString());
      if (found == removed.end()) continue;
      Change& source = m_changes[found->second];
      change.kind = ChangeKind::Moved;
      change.before = source.before;
      change.oldPath = std::move(source.path);
      source.path.clear();  // no change has an empty path
      removed.erase(found);
    }
    std::erase_if(m_changes, [](const Change& change) { return change.path.empty(); });
  }

  std::vector<Folder> m_pending;
  std::vector<Change> m_changes;
};

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

Result<std::vector<Change>> Compare(const Snapshot& before, const Snapshot& after) {
  return Try([&] { return Comparison().Run(before.GetTree(), after.GetTree()); });
}

}  // namespace TalVcs::Kit
