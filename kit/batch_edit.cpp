#include <kit/batch_edit.h>
#include <kit/internal/edit_draft.h>
#include <kit/internal/parallel_ids.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/repository/irepository.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <variant>

// The edits are made on a draft, in which each directory is opened once. In two cases the
// directories in between matter, and the edits are made one by one. An id that isn't stored may be
// that of such a directory. And where a path leads through a subtree that a blob of the same name
// hides, what the subtree holds depends on instances that the storage has: trees that differ in
// nothing but what is hidden have one id and so one instance.

namespace TalVcs::Kit {

struct Removal {};

/// What stands at the path of the edit in another tree.
struct Copied {
  Tree from;
};

struct BatchEdit::Edit {
  template <class T>
  Edit(TalStringViewT<WideChar> editedPath, T&& change)
      : path(editedPath), what(std::forward<T>(change)) {}

  TalStringT<WideChar> path;
  std::variant<Removal, Blob, Tree, Id, Copied> what;
};

namespace {

constexpr std::size_t kIdsTogether = 16;
constexpr std::size_t kSmallestPiece = 16;
constexpr std::size_t kLargestPiece = 4096;

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
void BatchEdit::CopyObject(TalStringViewT<WideChar> path, const Tree& from) {
  Append(path, Copied{from});
}

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
    if (const Copied* copied = std::get_if<Copied>(&edit.what)) {
      const std::optional<Id> id = copied->from.GetIdByPath(edit.path);
      return repository != nullptr && id && target.AddObject(repository, edit.path, *id) != nullptr;
    }
    return target.RemoveObject(repository, edit.path);
  };
  std::size_t done = 0;
  for (const std::vector<Edit>& piece : m_edits) {
    for (const Edit& edit : piece) done += apply(edit) ? 1 : 0;
  }
  return done;
}

// Computes the ids of the blobs among the next edits, which need them soon.
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
std::optional<bool> BatchEdit::Apply(IRepository& repository, EditDraft& draft, const Edit& edit) {
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
  } else if (const Copied* copied = std::get_if<Copied>(&edit.what)) {
    success = draft.Copy(edit.path, copied->from);
  } else {
    success = draft.Remove(edit.path);
  }
  return draft.MetHidden() ? std::nullopt : std::optional(success);
}

// Returns how many edits took effect; nothing if they have to be made one by one.
std::optional<std::size_t> BatchEdit::ApplyTo(IRepository& repository, EditDraft& draft) const {
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
  EditDraft draft(*repository, tree);
  const std::optional<std::size_t> done = ApplyTo(*repository, draft);
  if (!done) return ApplyOneByOne(repository, tree);
  if (*done != 0) tree = draft.Finish();
  return *done;
}

std::size_t BatchEdit::ApplyTo(IRepository* repository, Commit& commit) const {
  if (repository == nullptr) return ApplyOneByOne(repository, commit);
  const cow_ptr<CommitTree> held = commit.GetTree();
  const cow_ptr<Tree> root = held ? held->GetRoot() : nullptr;
  EditDraft draft(*repository, root ? *root : Tree());
  const std::optional<std::size_t> done = ApplyTo(*repository, draft);
  // Where no edit takes effect, one by one costs nothing and leaves what failed edits leave.
  if (done.value_or(0) == 0) return ApplyOneByOne(repository, commit);
  cow_ptr<Tree> changed;
  *changed.write() = draft.Finish();
  // A new root alone keeps what the commit has cached of the old one. The caches go first, so that
  // they don't show an old state if storing the root runs out of memory.
  commit.SetDescription(commit.GetDesciption());
  commit.ReplaceRoot(repository, std::move(changed));
  return *done;
}

}  // namespace TalVcs::Kit
