#include "folder_changes.h"

#include "failure.h"
#include "hash_files.h"

#include <kit/batch_edit.h>
#include <kit/diff/tree_changes.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>

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
  std::set<std::string> sources;
  for (const auto& [path, move] : moved) sources.insert(move.oldPath);
  std::erase_if(changes, [&](const Change& change) {
    return change.kind == Kind::Removed && sources.contains(change.path);
  });
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

namespace {

using Verdict = FolderIndex::Verdict;
using RawId = FolderIndex::RawId;

/// What the comparison reads of a file that it expects: path, id and kind.
using Expected = FolderIndex::File;

std::vector<Expected> ListFiles(const FileTree& tree) {
  std::vector<Expected> files;
  for (const Change& change : CompareTrees(FileTree(), tree, Moves::Ignore)) {
    Expected& file = files.emplace_back();
    file.path = change.path;
    file.id = FolderIndex::ToRaw(change.after);
    file.kind = change.kindAfter;
  }
  return files;
}

/// Compares the files of a folder with those that are expected, with the help of the index.
class Comparison {
 public:
  Comparison(Session& session, const FileTree& tree, FolderChanges& result)
      : m_folder(session.WorkFolder()),
        m_result(result),
        m_isHead(result.index.IsOf(tree)),
        m_others(m_isHead ? std::vector<Expected>() : ListFiles(tree)),
        m_expected(m_isHead ? result.index.Files() : m_others) {}

  /// Goes through both lists, which are sorted.
  void Run() {
    auto next = m_expected.begin();
    for (const FolderContents::File& file : m_result.contents.files) {
      for (; next != m_expected.end() && next->path < file.path; ++next) AddRemoved(*next);
      if (next != m_expected.end() && next->path == file.path) {
        Compare(*next++, file);
      } else {
        m_result.changes.push_back(
            {Kind::Added, file.path, "", {}, {}, file.stat.kind, file.stat.kind});
      }
    }
    for (; next != m_expected.end(); ++next) AddRemoved(*next);
    ReadUnknown();
  }

  /// Returns true if files were read about which the index knows more now.
  bool HasLearned() const noexcept { return m_hasLearned; }

 private:
  void AddRemoved(const Expected& expected) {
    m_result.changes.push_back({Kind::Removed,
                                expected.path,
                                "",
                                FolderIndex::FromRaw(expected.id),
                                {},
                                expected.kind,
                                expected.kind});
  }

  void AddChanged(const Expected& expected, TalVcs::Id after, FileKind kind) {
    m_result.changes.push_back({Kind::Changed, expected.path, "", FolderIndex::FromRaw(expected.id),
                                std::move(after), expected.kind, kind});
  }

  /// Returns what the index knows of a file. The files must come sorted by their paths.
  const FolderIndex::File* NextKnown(const std::string& path) {
    const std::vector<FolderIndex::File>& files = m_result.index.Files();
    while (m_nextKnown < files.size() && files[m_nextKnown].path < path) ++m_nextKnown;
    const bool is_known = m_nextKnown < files.size() && files[m_nextKnown].path == path;
    return is_known ? &files[m_nextKnown] : nullptr;
  }

  void Compare(const Expected& expected, const FolderContents::File& file) {
    const FolderIndex::File* known = NextKnown(file.path);
    const bool is_trusted = known != nullptr && known->stat == file.stat;
    if (is_trusted && known->verdict == Verdict::Same) {
      const bool is_same = m_isHead || (known->id == expected.id && known->kind == expected.kind);
      if (!is_same) AddChanged(expected, FolderIndex::FromRaw(known->id), file.stat.kind);
    } else if (is_trusted && m_isHead && known->verdict == Verdict::Different) {
      AddChanged(expected, TalVcs::Id(), file.stat.kind);
    } else {
      m_unknown.push_back(expected);
    }
  }

  void ReadUnknown() {
    std::vector<std::string> paths;
    for (const Expected& expected : m_unknown) paths.push_back(expected.path);
    const auto hashed = HashFiles(m_folder, paths);
    for (std::size_t i = 0; i < paths.size(); ++i) {
      if (!hashed[i]) continue;
      const RawId id = FolderIndex::ToRaw(hashed[i]->id);
      const FileKind kind = hashed[i]->stat.kind;
      if (id != m_unknown[i].id || kind != m_unknown[i].kind)
        AddChanged(m_unknown[i], hashed[i]->id, kind);
      if (FolderIndex::File* known = m_result.index.Find(paths[i])) {
        const bool is_same = id == known->id && kind == known->kind;
        SetVerdict(*known, is_same ? Verdict::Same : Verdict::Different, hashed[i]->stat,
                   m_result.looked);
        m_hasLearned |= known->verdict != Verdict::Unknown;
      }
    }
  }

  const Folder& m_folder;
  FolderChanges& m_result;
  bool m_isHead;
  std::vector<Expected> m_others;  // the files of a version that isn't the head
  const std::vector<Expected>& m_expected;
  std::vector<Expected> m_unknown;
  std::size_t m_nextKnown = 0;  // in the index
  bool m_hasLearned = false;
};

}  // namespace

FolderChanges CompareFolder(Session& session, const FileTree& tree, Moves moves) {
  const Folder& folder = session.WorkFolder();
  const FileTree head = session.HeadFiles();
  FolderChanges result;
  result.index = FolderIndex::Load(folder.StorePath());
  result.looked = FileSystemTime(folder.StorePath());
  const bool is_new = !result.index.IsOf(head);
  if (is_new) result.index.MoveTo(FileTree(), head);
  const bool is_head = result.index.IsOf(tree);
  result.contents = folder.List([&](const std::string& path) {
    return result.index.IsTracked(path) || (!is_head && tree.Contains(path));
  });
  Comparison comparison(session, tree, result);
  comparison.Run();
  if (is_new || comparison.HasLearned()) result.index.Save(folder.StorePath());
  std::sort(result.changes.begin(), result.changes.end(), ByPath);
  if (moves == Moves::Find) JoinMoves(folder, tree, result.changes);
  return result;
}

void UpdateIndex(Session& session, FolderIndex index, const FileTree& before,
                 const std::vector<SettledFile>& settled, std::int64_t looked) {
  index.MoveTo(before, session.HeadFiles());
  for (const SettledFile& file : settled) {
    if (FolderIndex::File* known = index.Find(file.path))
      SetVerdict(*known, Verdict::Same, file.stat, looked);
  }
  index.Save(session.WorkFolder().StorePath());
}

void RefuseNames(const FolderContents& contents) {
  if (contents.refused.empty()) return;
  std::string names;
  for (const std::string& path : contents.refused) names += "\n  " + Printable(path);
  throw Failure("cannot commit names that are not UTF-8; rename them or list them in .talignore:" +
                names);
}

}  // namespace Tal
