#include "folder_changes.h"

#include "failure.h"
#include "hash_files.h"

#include <kit/batch_edit.h>
#include <kit/diff/tree_changes.h>

#include <algorithm>
#include <map>
#include <memory>

namespace Tal {
namespace {

using Kind = Change::Kind;

bool ByPath(const Change& a, const Change& b) { return a.path < b.path; }

/// Joins removed and added files of like content. Their bytes are put into a tree in memory, which
/// is then compared as any other.
void JoinMoves(const Folder& folder, const FileTree& tree, std::vector<Change>& changes) {
  const auto has = [&](Kind kind) {
    return std::any_of(changes.begin(), changes.end(),
                       [&](const Change& change) { return change.kind == kind; });
  };
  if (!has(Kind::Added) || !has(Kind::Removed)) return;
  TalVcs::Repository scratch(std::make_unique<TalVcs::MemObjectsStorage>());
  TalVcs::Kit::BatchEdit edit;
  for (const Change& change : changes) {
    if (change.kind == Kind::Removed) edit.RemoveObject(ToWide(change.path));
  }
  for (const Change& change : changes) {
    if (change.kind != Kind::Added) continue;
    edit.AddBlob(ToWide(change.path), TalVcs::Blob(folder.Read(change.path).bytes));
  }
  TreePtr after = tree.GetTree();
  edit.ApplyTo(&scratch, *after.write());
  std::map<std::string, Kit::TreeChange> moved;
  for (Kit::TreeChange& change : Kit::FindTreeChanges(tree.GetTree(), after).value()) {
    if (!change.oldPath.empty()) moved.emplace(change.path, change);
  }
  for (const auto& [path, move] : moved) {
    std::erase_if(changes, [&](const Change& change) {
      return change.kind == Kind::Removed && change.path == move.oldPath;
    });
  }
  for (Change& change : changes) {
    const auto found = moved.find(change.path);
    if (found == moved.end()) continue;
    change.kind = Kind::Moved;
    change.oldPath = found->second.oldPath;
    change.before = found->second.before;
    change.after = found->second.after;
    change.kindBefore = tree.KindOf(change.oldPath);
  }
}

}  // namespace

FolderChanges CompareFolder(Session& session, const FileTree& tree, Moves moves) {
  const Folder& folder = session.WorkFolder();
  const FileTree head = session.HeadFiles();
  FolderChanges result;
  result.contents = folder.List(
      [&](const std::string& path) { return tree.Contains(path) || head.Contains(path); });

  std::vector<std::string> paths = tree.List();
  std::vector<std::string> present;
  for (const FolderContents::File& file : result.contents.files) {
    if (std::binary_search(paths.begin(), paths.end(), file.path)) {
      present.push_back(file.path);
    } else {
      result.changes.push_back(
          {Kind::Added, file.path, "", {}, {}, file.stat.kind, file.stat.kind});
    }
  }
  const auto hashed = HashFiles(folder, present);
  for (std::size_t i = 0; i < present.size(); ++i) {
    if (!hashed[i]) continue;
    const FileKind before = tree.KindOf(present[i]);
    const TalVcs::Id id = tree.Find(present[i])->GetId();
    if (hashed[i]->id == id && hashed[i]->stat.kind == before) continue;
    result.changes.push_back(
        {Kind::Changed, present[i], "", id, hashed[i]->id, before, hashed[i]->stat.kind});
  }
  for (const std::string& path : paths) {
    if (!std::binary_search(present.begin(), present.end(), path)) {
      result.changes.push_back({Kind::Removed,
                                path,
                                "",
                                tree.Find(path)->GetId(),
                                {},
                                tree.KindOf(path),
                                tree.KindOf(path)});
    }
  }
  std::sort(result.changes.begin(), result.changes.end(), ByPath);
  if (moves == Moves::Find) JoinMoves(folder, tree, result.changes);
  return result;
}

void RefuseNames(const FolderContents& contents) {
  if (contents.refused.empty()) return;
  std::string names;
  for (const std::string& path : contents.refused) names += "\n  " + Printable(path);
  throw Failure("cannot commit names that are not UTF-8; rename them or list them in .talignore:" +
                names);
}

}  // namespace Tal
