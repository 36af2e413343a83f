#include <talvcs/objects/internal/tree_loader.h>

#include <talvcs/format/internal/tree_format.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/objects/internal/loaded_entries.h>

#include <algorithm>
#include <utility>

// The trees on the way from the root to the one that is being read are open. A record with a
// subtree that is not known yet puts that one on top:
//
//   open:  root          "a" was read, the next record is that of "b"
//          root/b        ...
//          root/b/c      being read; after its end, root/b goes on after the record of "c"
//
// A tree can get another id than that of its stream, because entries are missing. Such a tree is
// read again, from its text, when an object that it lacks has been stored since: then it may be
// whole. Objects that are missing and come in by another way are rare, so the work for this has a
// limit: a few times the bytes of the store.

namespace TalVcs {

namespace {

// The share of the bytes read that trees may read again.
constexpr std::size_t kReadAgainFactor = 4;

bool IsEmptyId(const Id& id) noexcept { return id.View().IsEmpty(); }

Id IdOfText(TalStringViewT<char> text) { return Id(TalStringT<WideChar>(TalStringT<char>(text))); }

TalStringT<WideChar> WideName(TalStringViewT<char> name) {
  return TalStringT<WideChar>(TalStringT<char>(name));
}

/// True for a name without any component, so that no entry can have it.
bool HasNoComponent(TalStringViewT<char> name) noexcept {
  return std::all_of(name.text, name.text + name.length, [](char c) { return c == '/'; });
}

template <class T>
bool HasId(const cow_ptr<T>& object, const Id& id) {
  return object && object->GetId() == id;
}

}  // namespace

/// A tree whose text is being read.
struct TreeLoader::OpenTree {
  Id id;
  StreamText text;
  LoadedEntries entries;
  int position = 0;
  // The entry whose subtree is being read.
  TalStringT<char> waitingName;
  bool failed = false;
};

cow_ptr<Tree> TreeLoader::Load(const Id& id, const cow_ptr<Tree>& previous) {
  if (IsEmptyId(id)) return nullptr;
  if (cow_ptr<Tree> stored = m_target.FindTree(id)) return stored;
  if (!m_getter) return nullptr;
  if (const TreeResults::Result* known = FindResult(id)) return known->tree;
  std::vector<OpenTree> open;
  if (!Open(id, previous.get(), open)) return nullptr;
  for (;;) {
    const std::size_t depth = open.size();
    ReadRecords(open.back(), open);
    if (open.size() != depth) continue;
    OpenTree closed = std::move(open.back());
    open.pop_back();
    cow_ptr<Tree> tree = Close(closed);
    if (open.empty()) return tree;
    AddSubtree(open.back(), open.back().waitingName, closed.id, tree);
  }
}

// Returns the result that holds for the tree, or null if its text has to be read.
const TreeResults::Result* TreeLoader::FindResult(const Id& id) {
  const TreeResults::Result* const result = m_results.Find(id);
  if (result == nullptr || !result->isOutdated) return result;
  const auto bytes = result->text.Size();
  if (bytes == 0 || bytes > m_bytesToReadAgain) return result;
  m_bytesToReadAgain -= bytes;
  return nullptr;
}

// Begins to read a tree. Returns false if there is nothing to read. While a tree is open, its id
// counts as unreadable.
bool TreeLoader::Open(const Id& id, const Tree* previous, std::vector<OpenTree>& open) {
  OpenTree tree;
  tree.text = m_results.Begin(id);
  if (tree.text.IsEmpty() && !ReadText(id, tree.text)) return false;
  tree.id = id;
  // A tree that was in the repository before the load may hold objects that are not stored.
  if (m_ownTrees.contains(previous)) tree.entries = LoadedEntries(previous);
  open.push_back(std::move(tree));
  return true;
}

bool TreeLoader::ReadText(const Id& id, StreamText& text) {
  StreamIO stream = m_getter(id);
  if (!Helpers::ShiftObjectIdentifier(stream, Tree::kType)) return false;
  text = StreamText(stream);
  m_bytesToReadAgain += kReadAgainFactor * text.Size();
  return !text.IsEmpty();
}

// Reads records until the text ends or a subtree has to be read first. That one is then on top of
// `open`, and `tree` is not valid any more.
void TreeLoader::ReadRecords(OpenTree& tree, std::vector<OpenTree>& open) {
  const TalStringViewT<char> text = tree.text.View();
  for (;;) {
    tree.position += tree.entries.TakePrevious(text.Mid(tree.position, text.length));
    if (tree.position == text.length) return;
    const LooseTreeRecord record = ReadLooseRecord(text, tree.position);
    const Id id = IdOfText(record.id);
    if (record.type == Blob::kType) {
      ReadBlob(tree, record.name, id);
    } else if (record.type != Tree::kType) {
      tree.failed = true;
      return;
    } else if (!IsEmptyId(id) && !ReadSubtree(tree, record.name, id, open)) {
      return;
    }
  }
}

void TreeLoader::ReadBlob(OpenTree& tree, TalStringViewT<char> name, const Id& id) {
  if (HasNoComponent(name)) {
    m_blobs.ReadOnly(id);
    return;
  }
  const cow_ptr<Blob> blob = m_blobs.Load(id);
  NoteStored(blob);
  if (!HasId(blob, id)) m_results.AddLack(tree.id, EntryKind::Blob, id);
  if (!blob) return;
  const TalStringT<WideChar> wide = WideName(name);
  tree.entries.Add(m_target.GetRepository(), wide, blob, nullptr);
  NoteDirectories(tree, wide);
}

// Returns false if the subtree has to be read first.
bool TreeLoader::ReadSubtree(OpenTree& tree, TalStringViewT<char> name, const Id& id,
                             std::vector<OpenTree>& open) {
  cow_ptr<Tree> subtree = m_target.FindTree(id);
  if (!subtree) {
    if (const TreeResults::Result* known = FindResult(id)) {
      subtree = known->tree;
    } else {
      tree.waitingName = name;
      if (Open(id, tree.entries.PreviousSubtree(WideName(name)), open)) return false;
    }
  }
  AddSubtree(tree, name, id, subtree);
  return true;
}

// Adds what reading the subtree `id` gave, which may be null.
void TreeLoader::AddSubtree(OpenTree& tree, TalStringViewT<char> name, const Id& id,
                            const cow_ptr<Tree>& subtree) {
  if (!HasId(subtree, id)) m_results.AddLack(tree.id, EntryKind::Tree, id);
  if (!subtree) return;
  const TalStringT<WideChar> wide = WideName(name);
  tree.entries.Add(m_target.GetRepository(), wide, nullptr, subtree);
  NoteDirectories(tree, wide);
}

// Stores the tree that was read. A result that the repository returns for the id need not be
// remembered.
cow_ptr<Tree> TreeLoader::Close(OpenTree& tree) {
  cow_ptr<Tree> stored;
  if (!tree.failed) {
    cow_ptr<Tree> read = tree.entries.Finish();
    const Tree* const own = read.get();
    stored = m_target.Store(std::move(read));
    if (stored.get() == own) m_ownTrees.insert(own);
  }
  if (m_target.Returns(stored, tree.id)) {
    m_results.Forget(tree.id);
  } else {
    m_results.Finish(tree.id, stored, tree.text);
  }
  NoteStored(stored);
  return stored;
}

// Notes the directories that a name with "/" made: the trees on the path but its last component.
void TreeLoader::NoteDirectories(OpenTree& open, TalStringViewT<WideChar> path) {
  if (!m_results.LacksAny() || path.Find(TAL_WIDE("/")) < 0) return;
  const Tree& tree = open.entries.Current();
  auto names = Helpers::SplitVcsPath(path);
  if (names.empty()) return;
  names.pop_back();
  cow_ptr<Tree> directory;
  for (const auto& name : names) {
    directory = (directory ? *directory : tree).GetLocalTree(name);
    if (!directory) return;
    NoteStored(directory);
  }
}

void TreeLoader::NoteStored(const cow_ptr<Tree>& stored) {
  if (!m_results.LacksAny() || !stored) return;
  const Id id = stored->GetId();
  if (m_results.IsLacked(EntryKind::Tree, id) && m_target.FindTree(id)) {
    m_results.NoteStored(EntryKind::Tree, id);
  }
}

void TreeLoader::NoteStored(const cow_ptr<Blob>& stored) {
  if (!m_results.LacksAny() || !stored) return;
  const Id id = stored->GetId();
  if (m_results.IsLacked(EntryKind::Blob, id) && m_target.FindBlob(id)) {
    m_results.NoteStored(EntryKind::Blob, id);
  }
}

}  // namespace TalVcs
