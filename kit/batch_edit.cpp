#include <kit/batch_edit.h>
#include <kit/internal/parallel_ids.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/repository/irepository.h>

#include <algorithm>
#include <array>
#include <deque>
#include <optional>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <variant>

// The directories that edits touch are opened once and changed in place, unstored. A directory that
// is open isn't up to date in the one above it; what counts is then the open one. At the end all
// that changed are stored and put into the one above, from the bottom up:
//
//     add a/b/f, add a/c/g, remove a/b/h      open a, a/b, a/c;   store a/b, a/c, a
//
// In two cases the directories in between matter, and the edits are made one by one. An id that
// isn't stored may be that of such a directory. And where a path leads through a subtree that a
// blob of the same name hides, what the subtree holds depends on instances that the storage has:
// trees that differ in nothing but what is hidden have one id and so one instance.

namespace TalVcs::Kit {

struct Removal {};

struct BatchEdit::Edit {
  template <class T>
  Edit(TalStringViewT<WideChar> editedPath, T&& change)
      : path(editedPath), what(std::forward<T>(change)) {}

  TalStringT<WideChar> path;
  std::variant<Removal, Blob, Tree, Id> what;
};

namespace {

using Components = std::vector<TalStringViewT<WideChar>>;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);
constexpr std::size_t kIdsTogether = 16;
constexpr std::size_t kSmallestPiece = 16;
constexpr std::size_t kLargestPiece = 4096;

}  // namespace

/// A tree with the directories that are open in it.
class BatchEdit::Draft {
 public:
  Draft(IRepository& repository, const Tree& root) : m_repository(repository) {
    m_directories.push_back({root, kNone, {}, {}, false, true, false});
  }

  /// Puts an object at a path. Returns false, with nothing changed, for the empty path.
  template <class T>
  bool Add(TalStringViewT<WideChar> path, const T& object) {
    const auto [at, name] = OpenFor(path);
    if (at == kNone) return false;
    Directory& directory = m_directories[at];
    directory.changed = true;
    if constexpr (std::is_same_v<T, Tree>) {
      Close(at, name);
      directory.tree.AddTree(&m_repository, name, object);
    } else {
      directory.tree.AddBlob(&m_repository, name, object);
      if (!directory.below.empty()) Hide(directory, name);
    }
    return true;
  }

  /// True once an edit failed because its path leads through a hidden directory.
  bool MetHidden() const noexcept { return m_metHidden; }

  /// Removes what stands at a path, and what that leaves empty. Returns false, with nothing
  /// changed, if nothing stands there.
  bool Remove(TalStringViewT<WideChar> path) {
    ForgetLast();
    const Components components = Helpers::SplitVcsPath(path);
    std::size_t at = components.empty() ? kNone : OpenAbove(components, false);
    if (at == kNone || !Holds(at, components.back())) return false;
    for (TalStringViewT<WideChar> name = components.back();;) {
      Close(at, name);
      Directory& directory = m_directories[at];
      directory.tree.RemoveObject(&m_repository, name);
      directory.changed = true;
      if (at == 0 || !directory.tree.IsEmpty() || !directory.below.empty()) return true;
      // An emptied directory goes from the one above.
      name = directory.name;
      at = directory.above;
    }
  }

  /// Stores the open directories that changed, all but the root, and returns the root.
  Tree Finish() {
    // A directory stands behind the one above it.
    for (std::size_t index = m_directories.size(); --index > 0;) {
      Directory& directory = m_directories[index];
      if (!directory.exists || !directory.changed) continue;
      Directory& above = m_directories[directory.above];
      above.tree.AddTree(&m_repository, directory.name, directory.tree);
      above.changed = true;
      directory.tree = Tree();
    }
    return std::move(m_directories.front().tree);
  }

 private:
  struct Directory {
    Tree tree;  // without what is open below
    std::size_t above;
    TalStringT<WideChar> name;
    std::unordered_map<TalStringT<WideChar>, std::size_t> below;  // the open ones
    bool changed;
    bool exists;  // false once it was removed or replaced
    bool hidden;  // by a blob of the same name
  };

  /// The directory of an edit, and the name in it.
  struct Target {
    std::size_t at;
    TalStringViewT<WideChar> name;
  };

  /// Opens the directories above `path`. The target has kNone if one of them is hidden or the path
  /// is empty. Most edits are in the directory of the edit before, which then need not be looked
  /// for.
  Target OpenFor(TalStringViewT<WideChar> path) {
    int nameStart = path.length;
    while (nameStart > 0 && path.text[nameStart - 1] != TAL_WIDE('/')) --nameStart;
    const TalStringViewT<WideChar> above = path.Mid(0, nameStart);
    const TalStringViewT<WideChar> name = path.Mid(nameStart, path.length);
    if (!name.IsEmpty() && m_lastAt != kNone && above == m_lastAbove) return {m_lastAt, name};
    const Components components = Helpers::SplitVcsPath(path);
    if (components.empty()) return {kNone, {}};
    const std::size_t at = OpenAbove(components, true);
    if (!name.IsEmpty()) {
      m_lastAt = at;
      m_lastAbove = above;
    }
    return {at, components.back()};
  }

  void ForgetLast() noexcept { m_lastAt = kNone; }

  /// Notes that a new blob hides the open directory of its name, if there is one.
  void Hide(const Directory& above, TalStringViewT<WideChar> name) {
    const auto open = above.below.find(name);
    if (open == above.below.end()) return;
    m_directories[open->second].hidden = true;
    ForgetLast();
  }

  /// Returns the open directory of that name, opening it if need be; kNone if it is hidden, or if
  /// there is none and `make` is false.
  std::size_t Open(std::size_t above, TalStringViewT<WideChar> view, bool make) {
    const TalStringT<WideChar> name(view);
    const auto found = m_directories[above].below.find(name);
    if (found != m_directories[above].below.end()) {
      m_metHidden = m_metHidden || m_directories[found->second].hidden;
      return m_metHidden ? kNone : found->second;
    }
    const cow_ptr<Tree> held = m_directories[above].tree.GetLocalTree(name);
    m_metHidden = m_metHidden || HasBlob(m_directories[above].tree, name, held);
    if (m_metHidden || (!held && !make)) return kNone;
    const std::size_t index = m_directories.size();
    m_directories.push_back({held ? *held : Tree(), above, name, {}, !held, true, false});
    m_directories[above].below.emplace(name, index);
    return index;
  }

  std::size_t OpenAbove(const Components& path, bool make) {
    std::size_t at = 0;
    for (std::size_t level = 0; level + 1 < path.size() && at != kNone; ++level) {
      at = Open(at, path[level], make);
    }
    return at;
  }

  bool Holds(std::size_t at, TalStringViewT<WideChar> name) const {
    const Directory& directory = m_directories[at];
    return directory.tree.GetIdByPath(name) || directory.below.contains(name);
  }

  /// True if a tree has a blob of that name, given its subtree of that name. A blob has precedence
  /// there, and none is read.
  static bool HasBlob(const Tree& tree, const TalStringT<WideChar>& name,
                      const cow_ptr<Tree>& subtree) {
    const std::optional<Id> id = tree.GetIdByPath(name);
    return id && !(subtree && subtree->GetId() == *id);
  }

  /// Takes an open directory, if there is one, out of the draft with all below it.
  void Close(std::size_t above, TalStringViewT<WideChar> name) {
    const auto found = m_directories[above].below.find(name);
    if (found == m_directories[above].below.end()) return;
    ForgetLast();
    std::vector<std::size_t> closing{found->second};
    m_directories[above].below.erase(found);
    while (!closing.empty()) {
      Directory& directory = m_directories[closing.back()];
      closing.pop_back();
      directory.exists = false;
      for (const auto& [below, index] : directory.below) closing.push_back(index);
      directory.below.clear();
      directory.tree = Tree();
    }
  }

  IRepository& m_repository;
  std::deque<Directory> m_directories;  // the root is the first
  bool m_metHidden = false;
  // The directory of the last addition, or kNone, and its path in the edit, which outlives this.
  std::size_t m_lastAt = kNone;
  TalStringViewT<WideChar> m_lastAbove;
};

namespace {

cow_ptr<Object> AddStored(IRepository* repository, Commit& commit, TalStringViewT<WideChar> path,
                          const Tree& tree) {
  cow_ptr<Tree> stored;
  *stored.write() = tree;
  if (repository == nullptr || Helpers::SplitVcsPath(path).empty()) return nullptr;
  return commit.AddObject(repository, path, repository->SyncWithStorage(stored)->GetId());
}

cow_ptr<Object> AddStored(IRepository* repository, Tree& target, TalStringViewT<WideChar> path,
                          const Tree& tree) {
  return target.AddTree(repository, path, tree);
}

}  // namespace

BatchEdit::BatchEdit() = default;
BatchEdit::BatchEdit(const BatchEdit& other) = default;
BatchEdit::BatchEdit(BatchEdit&& other) noexcept = default;
BatchEdit& BatchEdit::operator=(const BatchEdit& other) = default;
BatchEdit& BatchEdit::operator=(BatchEdit&& other) noexcept = default;
BatchEdit::~BatchEdit() = default;

template <class T>
void BatchEdit::Append(TalStringViewT<WideChar> path, T&& what) {
  if (m_edits.empty() || m_edits.back().size() == m_edits.back().capacity()) {
    const std::size_t last = m_edits.empty() ? 0 : m_edits.back().capacity();
    std::vector<Edit> piece;
    piece.reserve(std::clamp(2 * last, kSmallestPiece, kLargestPiece));
    m_edits.push_back(std::move(piece));
  }
  m_edits.back().emplace_back(path, std::forward<T>(what));
}

void BatchEdit::AddBlob(TalStringViewT<WideChar> path, Blob blob) { Append(path, std::move(blob)); }
void BatchEdit::AddTree(TalStringViewT<WideChar> path, const Tree& tree) { Append(path, tree); }
void BatchEdit::AddObject(TalStringViewT<WideChar> path, const Id& id) { Append(path, id); }
void BatchEdit::RemoveObject(TalStringViewT<WideChar> path) { Append(path, Removal()); }

std::size_t BatchEdit::GetCount() const noexcept {
  std::size_t count = 0;
  for (const std::vector<Edit>& piece : m_edits) count += piece.size();
  return count;
}
void BatchEdit::Clear() noexcept { m_edits.clear(); }
void BatchEdit::SetThreadCount(unsigned count) noexcept { m_threadCount = count; }

template <class Target>
std::size_t BatchEdit::ApplyOneByOne(IRepository* repository, Target& target) const {
  const auto apply = [&](const Edit& edit) {
    if (const Blob* blob = std::get_if<Blob>(&edit.what)) {
      return target.AddBlob(repository, edit.path, *blob) != nullptr;
    }
    if (const Tree* tree = std::get_if<Tree>(&edit.what)) {
      return AddStored(repository, target, edit.path, *tree) != nullptr;
    }
    if (const Id* id = std::get_if<Id>(&edit.what)) {
      return repository != nullptr && target.AddObject(repository, edit.path, *id) != nullptr;
    }
    return target.RemoveObject(repository, edit.path);
  };
  std::size_t done = 0;
  for (const std::vector<Edit>& piece : m_edits) {
    for (const Edit& edit : piece) done += apply(edit) ? 1 : 0;
  }
  return done;
}

// Computes the ids of the blobs among the next edits, which soon will be asked for.
void BatchEdit::ComputeIds(std::span<const Edit> edits) {
  std::array<const Blob*, kIdsTogether> blobs{};
  const std::size_t count = std::min(edits.size(), blobs.size());
  for (std::size_t index = 0; index < count; ++index) {
    blobs[index] = std::get_if<Blob>(&edits[index].what);
  }
  // The contents of a large list are in no cache any more.
  for (const Edit& edit : edits.subspan(count).first(std::min(edits.size() - count, count))) {
    if (const Blob* blob = std::get_if<Blob>(&edit.what)) blob->GetData().Prefetch();
  }
  Blob::ComputeIds(std::span(blobs).first(count));
}

void BatchEdit::ComputeIdsOnAllThreads() const {
  std::vector<const Blob*> blobs;
  blobs.reserve(GetCount());
  for (const std::vector<Edit>& piece : m_edits) {
    for (const Edit& edit : piece) blobs.push_back(std::get_if<Blob>(&edit.what));
  }
  ComputeIdsOnThreads(blobs, m_threadCount);
}

// Makes an edit. Returns whether it took effect; nothing if all have to be made one by one.
std::optional<bool> BatchEdit::Apply(IRepository& repository, Draft& draft, const Edit& edit) {
  bool success = false;
  if (const Blob* blob = std::get_if<Blob>(&edit.what)) {
    success = draft.Add(edit.path, *blob);
  } else if (const Tree* tree = std::get_if<Tree>(&edit.what)) {
    success = draft.Add(edit.path, *tree);
  } else if (const Id* id = std::get_if<Id>(&edit.what)) {
    const cow_ptr<Blob> storedBlob = repository.GetBlobFromStorage(*id);
    const cow_ptr<Tree> storedTree = storedBlob ? nullptr : repository.GetTreeFromStorage(*id);
    if (!storedBlob && !storedTree) return std::nullopt;
    success = storedBlob ? draft.Add(edit.path, *storedBlob) : draft.Add(edit.path, *storedTree);
  } else {
    success = draft.Remove(edit.path);
  }
  return draft.MetHidden() ? std::nullopt : std::optional(success);
}

// Returns how many edits took effect; nothing if they have to be made one by one.
std::optional<std::size_t> BatchEdit::ApplyTo(IRepository& repository, Draft& draft) const {
  if (m_threadCount > 1) ComputeIdsOnAllThreads();
  std::size_t done = 0;
  for (const std::vector<Edit>& piece : m_edits) {
    for (std::size_t index = 0; index < piece.size(); ++index) {
      if (index % kIdsTogether == 0) ComputeIds(std::span(piece).subspan(index));
      const std::optional<bool> success = Apply(repository, draft, piece[index]);
      if (!success) return std::nullopt;
      done += *success ? 1 : 0;
    }
  }
  return done;
}

std::size_t BatchEdit::ApplyTo(IRepository* repository, Tree& tree) const {
  if (repository == nullptr) return ApplyOneByOne(repository, tree);
  Draft draft(*repository, tree);
  const std::optional<std::size_t> done = ApplyTo(*repository, draft);
  if (!done) return ApplyOneByOne(repository, tree);
  if (*done != 0) tree = draft.Finish();
  return *done;
}

std::size_t BatchEdit::ApplyTo(IRepository* repository, Commit& commit) const {
  if (repository == nullptr) return ApplyOneByOne(repository, commit);
  const cow_ptr<CommitTree> held = commit.GetTree();
  const cow_ptr<Tree> root = held ? held->GetRoot() : nullptr;
  Draft draft(*repository, root ? *root : Tree());
  const std::optional<std::size_t> done = ApplyTo(*repository, draft);
  // Where no edit takes effect, one by one costs nothing and leaves what failed edits leave.
  if (done.value_or(0) == 0) return ApplyOneByOne(repository, commit);
  cow_ptr<Tree> changed;
  *changed.write() = draft.Finish();
  commit.ReplaceRoot(repository, std::move(changed));
  // A new root alone keeps what the commit has cached of the old one.
  commit.SetDescription(commit.GetDesciption());
  return *done;
}

}  // namespace TalVcs::Kit
