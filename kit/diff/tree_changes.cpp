#include <kit/diff/tree_changes.h>
#include <kit/open/try.h>
#include <kit/text.h>

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

namespace TalVcs::Kit {
namespace {

using Changes = std::vector<TreeChange>;

// A piece of content ends with a line or after this many bytes.
constexpr std::size_t kMostPieceBytes = 256;

std::string_view NameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }
std::string_view FolderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

/// The files of one folder of one tree. Remembers the last folder, because paths come sorted.
class FolderFiles {
 public:
  explicit FolderFiles(const cow_ptr<Tree>& root) : m_root(root) {}

  /// Returns the id of the file at a path, an empty one if there is no file.
  Id IdAt(const std::string& path) {
    Enter(std::string(FolderOf(path)));
    const auto found = m_ids.find(NameOf(path));
    return found == m_ids.end() ? Id() : found->second;
  }

 private:
  void Enter(std::string folder) {
    if (m_folder == folder) return;
    m_ids.clear();
    cow_ptr<Tree> tree = m_root;
    if (tree && !folder.empty()) tree = tree.get()->GetDeepTree(ToWide(folder));
    if (tree) {
      for (const WideString& name : tree.get()->GetLocalBlobPaths()) {
        const std::optional<Id> id = tree.get()->GetIdByPath(name);
        if (id) m_ids.emplace(ToUtf8(name), *id);
      }
    }
    m_folder = std::move(folder);
  }

  cow_ptr<Tree> m_root;
  std::optional<std::string> m_folder;
  std::map<std::string, Id, std::less<>> m_ids;
};

Changes FindPlainChanges(const cow_ptr<Tree>& before, const cow_ptr<Tree>& after) {
  Changes changes;
  const cow_ptr<Tree>& some = before ? before : after;
  if (!some) return changes;
  std::vector<std::string> paths;
  for (const WideString& path : some.get()->GetDeepBlobDiffs(before ? after : before)) {
    paths.push_back(ToUtf8(path));
  }
  std::sort(paths.begin(), paths.end(), [](const std::string& a, const std::string& b) {
    return std::pair(FolderOf(a), NameOf(a)) < std::pair(FolderOf(b), NameOf(b));
  });
  FolderFiles old_files(before);
  FolderFiles new_files(after);
  for (std::string& path : paths) {
    TreeChange change;
    change.before = old_files.IdAt(path);
    change.after = new_files.IdAt(path);
    if (change.before == change.after) continue;
    change.kind = change.before == Id()  ? TreeChangeKind::Added
                  : change.after == Id() ? TreeChangeKind::Removed
                                         : TreeChangeKind::Changed;
    change.path = std::move(path);
    changes.push_back(std::move(change));
  }
  return changes;
}

/// The removed and the added files that have no counterpart yet, by path.
struct OpenFiles {
  std::vector<TreeChange*> removed;
  std::vector<TreeChange*> added;
};

OpenFiles FindOpenFiles(Changes& changes) {
  OpenFiles open;
  for (TreeChange& change : changes) {
    if (!change.oldPath.empty() || change.path.empty()) continue;
    if (change.kind == TreeChangeKind::Removed) open.removed.push_back(&change);
    if (change.kind == TreeChangeKind::Added) open.added.push_back(&change);
  }
  const auto by_path = [](const TreeChange* a, const TreeChange* b) { return a->path < b->path; };
  std::sort(open.removed.begin(), open.removed.end(), by_path);
  std::sort(open.added.begin(), open.added.end(), by_path);
  return open;
}

/// Makes a move of the two; the removed one is left without a path.
void Pair(TreeChange& removed, TreeChange& added, TreeChangeKind kind, unsigned likeness) {
  added.kind = kind;
  added.oldPath = std::exchange(removed.path, {});
  added.before = removed.before;
  added.likeness = likeness;
}

void FindMoves(Changes& changes) {
  const Id empty_file = Blob().GetId();
  for (const bool by_name : {true, false}) {
    const OpenFiles open = FindOpenFiles(changes);
    std::multimap<std::string, TreeChange*> removed;  // equal keys in the order of the paths
    const auto key = [&](const Id& id, const std::string& path) {
      return ToUtf8(id.View()) + (by_name ? std::string(NameOf(path)) : std::string());
    };
    for (TreeChange* change : open.removed) {
      if (change->before != empty_file) {
        removed.emplace(key(change->before, change->path), change);
      }
    }
    for (TreeChange* change : open.added) {
      const std::string wanted = key(change->after, change->path);
      const auto found = removed.lower_bound(wanted);
      if (found == removed.end() || found->first != wanted) continue;
      Pair(*found->second, *change, TreeChangeKind::Moved, 100);
      removed.erase(found);
    }
  }
}

/// The pieces of a content: their hashes, sorted, each with the bytes of all pieces of that hash.
struct Pieces {
  std::vector<std::pair<std::size_t, std::uint64_t>> bytesByHash;
  std::uint64_t sizeBytes = 0;
};

Pieces CutIntoPieces(std::string_view content) {
  Pieces pieces;
  pieces.sizeBytes = content.size();
  while (!content.empty()) {
    const std::string_view window = content.substr(0, kMostPieceBytes);
    const std::size_t end = window.find('\n');
    const std::string_view piece = window.substr(0, end == window.npos ? end : end + 1);
    pieces.bytesByHash.emplace_back(std::hash<std::string_view>()(piece), piece.size());
    content.remove_prefix(piece.size());
  }
  auto& list = pieces.bytesByHash;
  std::sort(list.begin(), list.end());
  std::size_t last = 0;
  for (std::size_t i = 1; i < list.size(); ++i) {
    if (list[i].first == list[last].first) {
      list[last].second += list[i].second;
    } else {
      list[++last] = list[i];
    }
  }
  if (!list.empty()) list.resize(last + 1);
  return pieces;
}

unsigned LikenessOf(const Pieces& a, const Pieces& b) {
  const std::uint64_t larger = std::max(a.sizeBytes, b.sizeBytes);
  if (larger == 0) return 0;
  std::uint64_t common = 0;
  auto at = b.bytesByHash.begin();
  for (const auto& [hash, bytes] : a.bytesByHash) {
    while (at != b.bytesByHash.end() && at->first < hash) ++at;
    if (at == b.bytesByHash.end()) break;
    if (at->first == hash) common += std::min(bytes, at->second);
  }
  return static_cast<unsigned>(common * 100 / larger);
}

/// Returns the pieces of the files, none for a file that is too large.
std::vector<Pieces> ReadPieces(const cow_ptr<Tree>& root, const std::vector<TreeChange*>& files,
                               std::uint64_t mostFileBytes) {
  std::vector<Pieces> pieces;
  for (const TreeChange* file : files) {
    const cow_ptr<Blob> blob = root.get()->GetDeepBlob(ToWide(file->path));
    const bool is_read = blob && blob.get()->GetData().GetSize() <= mostFileBytes;
    pieces.push_back(is_read ? CutIntoPieces(BytesFromBlob(*blob.get())) : Pieces());
  }
  return pieces;
}

void FindLikeMoves(Changes& changes, const cow_ptr<Tree>& before, const cow_ptr<Tree>& after,
                   const TreeChangesOptions& options) {
  OpenFiles open = FindOpenFiles(changes);
  const auto most = static_cast<std::size_t>(std::min<std::uint64_t>(
      options.mostCandidates, std::max(open.removed.size(), open.added.size())));
  if (open.removed.size() > most) open.removed.resize(most);
  if (open.added.size() > most) open.added.resize(most);
  if (open.removed.empty() || open.added.empty()) return;

  const std::vector<Pieces> removed = ReadPieces(before, open.removed, options.mostFileBytes);
  const std::vector<Pieces> added = ReadPieces(after, open.added, options.mostFileBytes);
  struct Candidate {
    unsigned likeness;
    bool hasOtherName;
    std::size_t removed;
    std::size_t added;
  };
  std::vector<Candidate> candidates;
  const unsigned least = std::max(options.leastLikeness, 1U);
  for (std::size_t i = 0; i < removed.size(); ++i) {
    for (std::size_t j = 0; j < added.size(); ++j) {
      const unsigned likeness = LikenessOf(removed[i], added[j]);
      if (likeness < least) continue;
      const bool has_other_name = NameOf(open.removed[i]->path) != NameOf(open.added[j]->path);
      candidates.push_back({likeness, has_other_name, i, j});
    }
  }
  std::sort(candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
    return std::tuple(b.likeness, a.hasOtherName, a.removed, a.added) <
           std::tuple(a.likeness, b.hasOtherName, b.removed, b.added);
  });
  for (const Candidate& candidate : candidates) {
    TreeChange& from = *open.removed[candidate.removed];
    TreeChange& to = *open.added[candidate.added];
    if (from.path.empty() || !to.oldPath.empty()) continue;
    Pair(from, to, TreeChangeKind::MovedAndChanged, candidate.likeness);
  }
}

}  // namespace

Result<std::vector<TreeChange>> FindTreeChanges(const cow_ptr<Tree>& before,
                                                const cow_ptr<Tree>& after,
                                                const TreeChangesOptions& options) {
  return Try([&] {
    Changes changes = FindPlainChanges(before, after);
    if (options.findMoves) FindMoves(changes);
    if (options.findLikeMoves) FindLikeMoves(changes, before, after, options);
    std::erase_if(changes, [](const TreeChange& change) { return change.path.empty(); });
    std::sort(changes.begin(), changes.end(),
              [](const TreeChange& a, const TreeChange& b) { return a.path < b.path; });
    return changes;
  });
}

}  // namespace TalVcs::Kit
