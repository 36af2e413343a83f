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

/// Appends the paths of all blobs under `top`, each behind `prefix`.
void CollectBlobPaths(const Tree& top, PathText prefix, Paths& paths) {
  struct Level {
    EntryCursor cursor;
    std::size_t prefix_length;
  };
  std::vector<Level> levels{{EntryCursor(TreeAccess::Entries(top)), prefix.size()}};
  while (!levels.empty()) {
    Level& level = levels.back();
    prefix.resize(level.prefix_length);
    if (level.cursor.AtEnd()) {
      levels.pop_back();
      continue;
    }
    const TalStringViewT<WideChar> name = level.cursor.Name();
    const NamedEntries entries = level.cursor.Take();
    if (entries.BlobObject() != nullptr) paths.push_back(Joined(prefix, name));
    if (const Tree* below = entries.TreeObject()) {
      Descend(prefix, name);
      levels.push_back({EntryCursor(TreeAccess::Entries(*below)), prefix.size()});
    }
  }
}

Paths LocalNames(const TreeEntries* list, EntryKind kind) {
  Paths names;
  for (EntryCursor cursor(list); !cursor.AtEnd();) {
    const TalStringViewT<WideChar> name = cursor.Name();
    if (cursor.Take().OfKind(kind) != nullptr) names.emplace_back(name);
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

/// Appends the paths that differ in the two directories, and the pairs of subdirectories to compare
/// to `tasks`. A directory on one side only is listed at once.
void DiffDirectories(const DiffTask& task, Paths& paths, std::vector<DiffTask>& tasks) {
  PathText prefix = task.prefix;
  const auto visit = [&](auto name, const NamedEntries& of_a, const NamedEntries& of_b) {
    if (EntriesDiffer(EntryKind::kBlob, of_a, of_b)) paths.push_back(Joined(prefix, name));
    if (!EntriesDiffer(EntryKind::kTree, of_a, of_b)) return;
    const Tree* a = of_a.TreeObject();
    const Tree* b = of_b.TreeObject();
    PathText below = prefix;
    Descend(below, name);
    if (a != nullptr && b != nullptr) {
      tasks.push_back({std::move(below), a, b});
      TalUtils::PrefetchRange(TreeAccess::Entries(*a), TalUtils::kPrefetchedHead);
      TalUtils::PrefetchRange(TreeAccess::Entries(*b), TalUtils::kPrefetchedHead);
    } else if (const Tree* only = a != nullptr ? a : b) {
      CollectBlobPaths(*only, std::move(below), paths);
    }
  };
  VisitUnsharedNames(TreeAccess::Entries(*task.a), TreeAccess::Entries(*task.b), visit);
}

}  // namespace

std::vector<TalStringT<WideChar>> Tree::GetLocalBlobPaths() const {
  return LocalNames(m_entries, EntryKind::kBlob);
}

std::vector<TalStringT<WideChar>> Tree::GetLocalSubtreePaths() const {
  return LocalNames(m_entries, EntryKind::kTree);
}

std::vector<TalStringT<WideChar>> Tree::GetLocalObjectPaths() const {
  Paths names = GetLocalSubtreePaths();
  const Paths blobs = GetLocalBlobPaths();
  names.insert(names.end(), blobs.begin(), blobs.end());
  return names;
}

std::vector<TalStringT<WideChar>> Tree::GetDeepBlobPaths() const {
  Paths paths;
  CollectBlobPaths(*this, {}, paths);
  SortOnce(paths);
  return paths;
}

std::vector<TalStringT<WideChar>> Tree::GetLocalBlobDiffs(cow_ptr<Tree> other) const {
  return LocalDiffs(m_entries, other.get(), EntryKind::kBlob);
}

std::vector<TalStringT<WideChar>> Tree::GetLocalTreeDiffs(cow_ptr<Tree> other) const {
  return LocalDiffs(m_entries, other.get(), EntryKind::kTree);
}

std::vector<TalStringT<WideChar>> Tree::GetDeepBlobDiffs(cow_ptr<Tree> other) const {
  if (!other) return GetDeepBlobPaths();
  Paths paths;
  std::vector<DiffTask> tasks{{{}, this, other.get()}};
  while (!tasks.empty()) {
    const DiffTask task = std::move(tasks.back());
    tasks.pop_back();
    DiffDirectories(task, paths, tasks);
  }
  SortOnce(paths);
  return paths;
}

}  // namespace TalVcs
