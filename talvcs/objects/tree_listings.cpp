#include <talvcs/directory/internal/tree_walk.h>
#include <talvcs/foundation/internal/prefetch.h>
#include <talvcs/objects/tree.h>

#include <algorithm>
#include <string>

namespace TalVcs {

namespace {

using Paths = std::vector<TalStringT<WideChar>>;
using PathText = std::basic_string<WideChar>;

TalStringT<WideChar> Joined(PathText& prefix, TalStringViewT<WideChar> name) {
  const std::size_t length = prefix.size();
  prefix.append(name.text, static_cast<std::size_t>(name.length));
  TalStringT<WideChar> path{TalStringViewT<WideChar>(prefix)};
  prefix.resize(length);
  return path;
}

void Descend(PathText& prefix, TalStringViewT<WideChar> name) {
  prefix.append(name.text, static_cast<std::size_t>(name.length));
  prefix += TAL_WIDE('/');
}

void SortOnce(Paths& paths) {
  const auto before = [](const auto& a, const auto& b) { return a.Compare(b) < 0; };
  if (!std::is_sorted(paths.begin(), paths.end(), before)) {
    std::sort(paths.begin(), paths.end(), before);
  }
  paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
}

/// Appends the paths of all blobs under `top`, each after `prefix`. Returns true if they ascend.
///
/// Names of neighbours in a directory ascend. A path is compared with the one before it only if a
/// directory begins or ends in between: "a/b" comes after "a.b", but the name "a" before "a.b".
bool CollectBlobPaths(const Tree& top, PathText prefix, Paths& paths) {
  struct Level {
    EntryCursor cursor;
    std::size_t prefix_length;
  };
  std::vector<Level> levels;
  bool ascends = true;
  bool follows_neighbour = false;
  const auto enter = [&](const TreeEntries* list) {
    if (list != nullptr) list->ExpectSubtrees();
    levels.push_back({EntryCursor(list), prefix.size()});
    follows_neighbour = false;
  };
  enter(TreeAccess::Entries(top));
  while (!levels.empty()) {
    Level& level = levels.back();
    prefix.resize(level.prefix_length);
    if (level.cursor.AtEnd()) {
      levels.pop_back();
      follows_neighbour = false;
      continue;
    }
    const TalStringViewT<WideChar> name = level.cursor.Name();
    const NamedEntries entries = level.cursor.Take();
    if (entries.Blob().HasObject()) {
      paths.push_back(Joined(prefix, name));
      const bool is_known_to_ascend = follows_neighbour || paths.size() == 1;
      ascends = ascends && (is_known_to_ascend || paths.end()[-2].Compare(paths.back()) < 0);
      follows_neighbour = true;
    }
    if (const Tree* below = OpenTree(entries.Tree())) {
      Descend(prefix, name);
      enter(TreeAccess::Entries(*below));
    }
  }
  return ascends;
}

Paths LocalNames(const TreeEntries* list, EntryKind kind) {
  Paths names;
  for (EntryCursor cursor(list); !cursor.AtEnd();) {
    const TalStringViewT<WideChar> name = cursor.Name();
    if (cursor.Take().OfKind(kind).HasObject()) names.emplace_back(name);
  }
  return names;
}

Paths LocalDiffs(const TreeEntries* a, const Tree* other, EntryKind kind) {
  Paths names;
  const TreeEntries* b = other == nullptr ? nullptr : TreeAccess::Entries(*other);
  VisitUnsharedNames(a, b, [&](auto name, const NamedEntries& of_a, const NamedEntries& of_b) {
    if (EntriesDiffer(kind, of_a, of_b)) names.emplace_back(name);
  });
  return names;
}

/// Two directories to compare, both present.
struct DiffTask {
  PathText prefix;
  const Tree* a;
  const Tree* b;
};

/// Compares directories pair by pair; a directory on one side only is listed at once.
class DirectoryDiff {
 public:
  Paths Run(const Tree& a, const Tree& b) {
    m_tasks.push_back({{}, &a, &b});
    while (!m_tasks.empty()) {
      const DiffTask task = std::move(m_tasks.back());
      m_tasks.pop_back();
      CompareEntries(task);
      if (m_tasks.empty()) OpenPending();
    }
    SortOnce(m_paths);
    return std::move(m_paths);
  }

 private:
  /// Subdirectories that differ and of which one at least is absent.
  struct PendingPair {
    PathText prefix;
    EntryRef a;
    EntryRef b;
  };

  void CompareEntries(const DiffTask& task) {
    PathText prefix = task.prefix;
    const auto visit = [&](auto name, const NamedEntries& of_a, const NamedEntries& of_b) {
      if (EntriesDiffer(EntryKind::Blob, of_a, of_b)) m_paths.push_back(Joined(prefix, name));
      if (!of_a.Tree() && !of_b.Tree()) return;
      if (!EntriesDiffer(EntryKind::Tree, of_a, of_b)) return;
      PathText below = prefix;
      Descend(below, name);
      if (of_a.Tree().IsAbsent() || of_b.Tree().IsAbsent()) {
        m_pending.push_back({std::move(below), of_a.Tree(), of_b.Tree()});
      } else {
        Enter(std::move(below), OpenTree(of_a.Tree()), OpenTree(of_b.Tree()));
      }
    };
    VisitUnsharedNames(TreeAccess::Entries(*task.a), TreeAccess::Entries(*task.b), visit);
  }

  // One read of the store serves all pairs of a level.
  void OpenPending() {
    if (m_pending.empty()) return;
    std::vector<EntryRef> wanted;
    for (const PendingPair& pair : m_pending) wanted.insert(wanted.end(), {pair.a, pair.b});
    ExpectTrees(wanted);
    for (PendingPair& pair : m_pending) {
      Enter(std::move(pair.prefix), OpenTree(pair.a), OpenTree(pair.b));
    }
    m_pending.clear();
  }

  void Enter(PathText below, const Tree* a, const Tree* b) {
    if (a != nullptr && b != nullptr) {
      m_tasks.push_back({std::move(below), a, b});
      TalUtils::PrefetchRange(TreeAccess::Entries(*a), TalUtils::kPrefetchedHead);
      TalUtils::PrefetchRange(TreeAccess::Entries(*b), TalUtils::kPrefetchedHead);
    } else if (const Tree* only = a != nullptr ? a : b) {
      CollectBlobPaths(*only, std::move(below), m_paths);
    }
  }

  std::vector<DiffTask> m_tasks;
  std::vector<PendingPair> m_pending;
  Paths m_paths;
};

}  // namespace

std::vector<TalStringT<WideChar>> Tree::GetLocalBlobPaths() const {
  return LocalNames(m_entries.get(), EntryKind::Blob);
}

std::vector<TalStringT<WideChar>> Tree::GetLocalSubtreePaths() const {
  return LocalNames(m_entries.get(), EntryKind::Tree);
}

std::vector<TalStringT<WideChar>> Tree::GetLocalObjectPaths() const {
  Paths names = GetLocalSubtreePaths();
  const Paths blobs = GetLocalBlobPaths();
  names.insert(names.end(), blobs.begin(), blobs.end());
  return names;
}

std::vector<TalStringT<WideChar>> Tree::GetDeepBlobPaths() const {
  Paths paths;
  if (!CollectBlobPaths(*this, {}, paths)) SortOnce(paths);
  return paths;
}

std::vector<TalStringT<WideChar>> Tree::GetLocalBlobDiffs(cow_ptr<Tree> other) const {
  return LocalDiffs(m_entries.get(), other.get(), EntryKind::Blob);
}

std::vector<TalStringT<WideChar>> Tree::GetLocalTreeDiffs(cow_ptr<Tree> other) const {
  return LocalDiffs(m_entries.get(), other.get(), EntryKind::Tree);
}

std::vector<TalStringT<WideChar>> Tree::GetDeepBlobDiffs(cow_ptr<Tree> other) const {
  if (!other) return GetDeepBlobPaths();
  return DirectoryDiff().Run(*this, *other);
}

}  // namespace TalVcs
