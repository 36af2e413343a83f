#include <talvcs/objects/internal/object_loader.h>

#include <talvcs/directory/internal/former_entries.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/repository/irepository.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

namespace TalVcs {

namespace {

constexpr int kIdLength = 64;

bool IsEmptyId(const Id& id) noexcept { return id.View().IsEmpty(); }

Id IdOfText(TalStringViewT<char> text) { return Id(TalStringT<WideChar>(TalStringT<char>(text))); }

/// True for a name under which nothing can stand: it has no component.
bool IsNoName(TalStringViewT<char> name) noexcept {
  return std::all_of(name.text, name.text + name.length, [](char c) { return c == '/'; });
}

/// Cuts a text into pieces, each up to a separator. A separator that is missing gives the rest.
class TextCutter {
 public:
  TextCutter(TalStringViewT<char> text, int position) noexcept
      : m_text(text), m_position(position) {}

  TalStringViewT<char> UpTo(char separator) noexcept {
    const int found = m_text.Find(separator, m_position);
    const int end = found < 0 ? m_text.length : found;
    const TalStringViewT<char> piece = m_text.Mid(m_position, end - m_position);
    m_position = std::min(end + 1, m_text.length);
    return piece;
  }
  TalStringViewT<char> Next(int count) noexcept {
    const TalStringViewT<char> piece = m_text.Mid(m_position, count);
    m_position += piece.length;
    return piece;
  }
  int Position() const noexcept { return m_position; }

 private:
  TalStringViewT<char> m_text;
  int m_position;
};

}  // namespace

/// A tree whose stream is being read.
struct ObjectLoader::OpenTree {
  Id id;
  TalStringT<char> text;
  int position = 0;
  // The tree grows in the builder while names ascend, as in every stream that the library wrote,
  // and by single edits from the first name on that doesn't.
  std::unique_ptr<TreeEntriesBuilder> builder = std::make_unique<TreeEntriesBuilder>();
  cow_ptr<Tree> tree;
  TalStringT<WideChar> last_name;
  // A former state of the directory, from its first entry behind the last name on.
  FormerEntries former;
  // The entry whose subtree is being read.
  TalStringT<char> waiting_name;
  bool failed = false;
};

ObjectLoader::ObjectLoader(IRepository* repository, Getter getter)
    : m_repository(repository), m_getter(getter) {}

void ObjectLoader::BeginHistory() {
  ++m_history;
  m_historyIds.clear();
}

void ObjectLoader::ForgetHistory() {
  for (const Id& id : m_historyIds) m_commits.erase(id);
}

cow_ptr<Commit> ObjectLoader::LoadCommit(const Id& id, Id& parentId) {
  if (IsEmptyId(id) || m_repository == nullptr) return nullptr;
  if (cow_ptr<Commit> stored = m_repository->GetCommitFromStorage(id)) return stored;
  if (!m_getter) return nullptr;
  const auto [known, added] = m_commits.try_emplace(id);
  KnownCommit& parsed = known->second;
  if (added) {
    parsed.text = ParseCommit(m_getter(id));
  } else if (parsed.history == m_history) {
    return nullptr;  // the commit is its own ancestor
  }
  parsed.history = m_history;
  m_historyIds.push_back(id);
  if (!parsed.text.readable) return nullptr;
  parentId = parsed.text.parentId;

  cow_ptr<Commit> commit = std::make_shared<Commit>(m_repository, false);
  Commit& fresh = *commit.write();
  fresh.SetAuthorName(parsed.text.authorName);
  fresh.SetAuthorEmail(parsed.text.authorEmail);
  fresh.SetDescription(parsed.text.description);
  fresh.SetCommitTime(parsed.text.time);
  fresh.SetCommitTimezoneBias(parsed.text.bias);
  if (IsEmptyId(parsed.text.treeId)) {
    CommitAccess::RebuildTree(fresh, m_repository);
    return commit;
  }
  cow_ptr<CommitTree> handle;
  if (cow_ptr<Tree> root = LoadTree(parsed.text.treeId)) {
    m_lastRoot = root;
    *handle.write() = CommitTree(std::move(root));
  }
  CommitAccess::SetTree(fresh, std::move(handle), m_repository);
  return commit;
}

cow_ptr<Tree> ObjectLoader::LoadTree(const Id& id) {
  if (IsEmptyId(id) || m_repository == nullptr) return nullptr;
  if (cow_ptr<Tree> stored = m_repository->GetTreeFromStorage(id)) return stored;
  if (!m_getter) return nullptr;
  const auto other = m_otherTrees.find(id);
  if (other != m_otherTrees.end()) return other->second;
  std::vector<OpenTree> open;
  if (!OpenTreeStream(id, m_lastRoot.get(), open)) return nullptr;
  for (;;) {
    const std::size_t depth = open.size();
    ReadEntries(open.back(), open);
    if (open.size() != depth) continue;
    OpenTree closed = std::move(open.back());
    open.pop_back();
    cow_ptr<Tree> tree = CloseTree(closed);
    if (open.empty()) return tree;
    if (tree) AddEntry(open.back(), open.back().waiting_name, nullptr, tree);
  }
}

// Starts to read a tree. Returns false, and remembers it, if the stream has nothing to read. While
// a tree is open, its id stands for nothing.
bool ObjectLoader::OpenTreeStream(const Id& id, const Tree* reference,
                                  std::vector<OpenTree>& open) {
  m_otherTrees.try_emplace(id);
  StreamIO stream = m_getter(id);
  if (!Helpers::ShiftObjectIdentifier(stream, Tree::kType)) return false;
  OpenTree tree;
  tree.text = Helpers::StreamToStringA(stream);
  if (tree.text.IsEmpty()) return false;
  tree.id = id;
  // A tree that stood in the repository before the load may hold objects that don't stand there.
  if (m_ownTrees.contains(reference)) tree.former = FormerEntries(reference);
  open.push_back(std::move(tree));
  return true;
}

// Reads entries until the text ends or a subtree has to be read first, which is then on top of
// `open`; `tree` is not valid any more in that case.
void ObjectLoader::ReadEntries(OpenTree& tree, std::vector<OpenTree>& open) {
  while (tree.position < tree.text.GetLength()) {
    TakeFormerEntries(tree);
    if (tree.position == tree.text.GetLength()) return;
    TextCutter cutter(tree.text, tree.position);
    cutter.UpTo(' ');  // the mode says nothing that the type doesn't
    const TalStringViewT<char> type = cutter.UpTo(' ');
    const TalStringViewT<char> name = cutter.UpTo('\0');
    const Id id = IdOfText(cutter.Next(kIdLength));
    tree.position = cutter.Position();
    if (type == Blob::kType) {
      if (IsNoName(name)) {
        ReadBlobWithoutName(id);
      } else if (const cow_ptr<Blob> blob = LoadBlob(id)) {
        AddEntry(tree, name, blob, nullptr);
      }
      continue;
    }
    if (type != Tree::kType) {
      tree.failed = true;
      return;
    }
    if (IsEmptyId(id)) continue;
    cow_ptr<Tree> subtree = m_repository->GetTreeFromStorage(id);
    if (!subtree) {
      const auto other = m_otherTrees.find(id);
      if (other == m_otherTrees.end()) {
        tree.waiting_name = name;
        const TalStringT<WideChar> wide{TalStringT<char>(name)};
        if (OpenTreeStream(id, tree.former.Subtree(wide), open)) return;
        continue;
      }
      subtree = other->second;
    }
    if (subtree) AddEntry(tree, name, nullptr, subtree);
  }
}

// Most directories of a history are a former state with one entry changed. Where the text goes on
// with the very bytes of a chunk of that state, or of a record, the entries are taken from there
// and needn't be looked up.
void ObjectLoader::TakeFormerEntries(OpenTree& tree) {
  if (!tree.builder) return;
  tree.former.SkipThrough(tree.last_name);
  while (!tree.former.AtEnd()) {
    const TalStringViewT<char> rest(tree.text.GetString() + tree.position,
                                    tree.text.GetLength() - tree.position);
    if (EntryChunk* chunk = tree.former.ChunkThatBegins(rest)) {
      tree.builder->Append(*chunk);
      tree.last_name = chunk->Name(chunk->Count() - 1);
      tree.position += static_cast<int>(chunk->Records().size());
      tree.former.SkipChunk();
    } else if (const std::optional<EntryChunk::Slot> slot = tree.former.EntryThatBegins(rest)) {
      tree.builder->Append(slot->name, slot->kind, *slot->child);
      tree.last_name = slot->name;
      tree.position += slot->record.length;
      tree.former.SkipEntry();
    } else {
      return;
    }
  }
}

void ObjectLoader::AddEntry(OpenTree& tree, TalStringViewT<char> name, const cow_ptr<Blob>& blob,
                            const cow_ptr<Tree>& subtree) {
  TalStringT<WideChar> wide{TalStringT<char>(name)};
  const bool plain = !wide.IsEmpty() && TalStringViewT<WideChar>(wide).Find(TAL_WIDE('/')) < 0 &&
                     wide.Compare(tree.last_name) > 0;
  if (tree.builder && plain) {
    if (blob) {
      tree.builder->Append(wide, EntryKind::Blob, blob);
    } else {
      tree.builder->Append(wide, EntryKind::Tree, subtree);
    }
    tree.last_name = std::move(wide);
    return;
  }
  if (tree.builder) {
    TreeAccess::AdoptEntries(*tree.tree.write(), *tree.builder, tree.former.List());
    tree.builder.reset();
  }
  if (blob) {
    tree.tree.write()->AddBlob(m_repository, wide, *blob);
  } else {
    tree.tree.write()->AddTree(m_repository, wide, *subtree);
  }
}

// Stores the tree that was read. One that the storage has under the id of its stream can be found
// there, any other is remembered.
cow_ptr<Tree> ObjectLoader::CloseTree(OpenTree& tree) {
  if (tree.failed) return nullptr;
  if (tree.builder) TreeAccess::AdoptEntries(*tree.tree.write(), *tree.builder, tree.former.List());
  const Tree* own = tree.tree.get();
  cow_ptr<Tree> stored = m_repository->SyncWithStorage(std::move(tree.tree));
  if (stored.get() == own) m_ownTrees.insert(own);
  if (!m_findsAgain) m_findsAgain = stored && m_repository->GetTreeFromStorage(tree.id);
  if (m_findsAgain && stored && stored->GetId() == tree.id) {
    m_otherTrees.erase(tree.id);
  } else {
    m_otherTrees[tree.id] = stored;
  }
  return stored;
}

cow_ptr<Blob> ObjectLoader::LoadBlob(const Id& id) {
  if (cow_ptr<Blob> stored = m_repository->GetBlobFromStorage(id)) return stored;
  const auto other = m_otherBlobs.find(id);
  if (other != m_otherBlobs.end()) return m_repository->SyncWithStorage(other->second);
  StreamIO stream = m_getter(id);
  cow_ptr<Blob> blob = Blob::Deserialize(stream);
  if (blob) blob = m_repository->SyncWithStorage(std::move(blob));
  if (!m_findsAgain) m_findsAgain = blob && m_repository->GetBlobFromStorage(id);
  if (!(m_findsAgain && blob && blob->GetId() == id)) m_otherBlobs.emplace(id, blob);
  return blob;
}

// The stream of a blob that has no place in its tree is read like any other, but nothing is stored.
void ObjectLoader::ReadBlobWithoutName(const Id& id) {
  if (m_repository->GetBlobFromStorage(id) || m_otherBlobs.contains(id)) return;
  StreamIO stream = m_getter(id);
  m_otherBlobs.emplace(id, Blob::Deserialize(stream));
}

cow_ptr<Commit> Commit::Deserialize(const Id& id, Id& parentId, IRepository* repository,
                                    Delegate<StreamIO(const Id&)> getter) {
  return ObjectLoader(repository, getter).LoadCommit(id, parentId);
}

cow_ptr<CommitTree> CommitTree::Deserialize(const Id& id, IRepository* repository,
                                            Delegate<StreamIO(const Id&)> getter) {
  cow_ptr<Tree> root = Tree::Deserialize(id, repository, getter);
  if (!root) return nullptr;
  cow_ptr<CommitTree> handle;
  *handle.write() = CommitTree(std::move(root));
  return handle;
}

cow_ptr<Tree> Tree::Deserialize(const Id& id, IRepository* repository,
                                Delegate<StreamIO(const Id&)> getter) {
  return ObjectLoader(repository, getter).LoadTree(id);
}

}  // namespace TalVcs
