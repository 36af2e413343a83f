#include <talvcs/directory/internal/tree_walk.h>
#include <talvcs/foundation/internal/path_components.h>
#include <talvcs/objects/internal/in_hand.h>
#include <talvcs/objects/tree.h>
#include <talvcs/repository/irepository.h>

#include <utility>

// An edit opens the directories on its path from the top, changes the last one, and then stores
// each from the bottom up and puts it into the one above:
//
//   AddBlob("a/b/f")   open a, a/b;   a/b gets f;   store a/b, a gets it;   store a, this gets it
//
// A handle on an opened directory shares with the entry that holds it, so that write access copies
// that one level and the stored tree stays as it is. A directory that is missing starts as a null
// handle, which write access turns into an empty tree.

namespace TalVcs {

namespace {

using TalUtils::PathComponents;

cow_ptr<Blob> FindStored(const IRepository& repository, const Blob& blob) {
  return repository.GetBlobFromStorage(blob.GetId());
}

cow_ptr<Tree> FindStored(const IRepository& repository, const Tree& tree) {
  return repository.GetTreeFromStorage(tree.GetId());
}

EntryKind KindOf(const Blob&) { return EntryKind::Blob; }
EntryKind KindOf(const Tree&) { return EntryKind::Tree; }

template <class T>
cow_ptr<T> Store(IRepository& repository, const T& object) {
  const LookUpInHand in_hand;
  cow_ptr<T> held = FindStored(repository, object);
  if (!held) held = TalUtils::cow_factory<T>::copy(object);
  return repository.SyncWithStorage(std::move(held));
}

// The caller holds the tree alone, so it may enter the storage itself.
cow_ptr<Tree> StoreOwn(IRepository& repository, cow_ptr<Tree> tree) {
  const LookUpInHand in_hand;
  cow_ptr<Tree> stored = FindStored(repository, *tree);
  return repository.SyncWithStorage(stored ? std::move(stored) : std::move(tree));
}

}  // namespace

cow_ptr<Blob> Tree::AddBlob(IRepository* repository, TalStringViewT<WideChar> path,
                            const Blob& blob) {
  return AddAt(repository, PathComponents(path).Get(), blob);
}

cow_ptr<Tree> Tree::AddTree(IRepository* repository, TalStringViewT<WideChar> path,
                            const Tree& tree) {
  return AddAt(repository, PathComponents(path).Get(), tree);
}

template <class T>
cow_ptr<T> Tree::AddAt(IRepository* repository, Components path, const T& object) {
  if (path.empty() || repository == nullptr) return nullptr;
  const Components directories = path.without_last(1);
  std::vector<cow_ptr<Tree>> opened = OpenDirectories(directories);
  cow_ptr<T> stored = Store(*repository, object);
  Tree& directory = opened.empty() ? *this : *opened.back().write();
  directory.SetEntry(path.back(), KindOf(object), stored);
  StoreDirectories(*repository, directories, opened);
  return stored;
}

cow_ptr<Object> Tree::AddObject(IRepository* repository, TalStringViewT<WideChar> path,
                                const Id& id) {
  if (const cow_ptr<Blob> blob = repository->GetBlobFromStorage(id)) {
    return AddBlob(repository, path, *blob);
  }
  if (const cow_ptr<Tree> tree = repository->GetTreeFromStorage(id)) {
    return AddTree(repository, path, *tree);
  }
  return nullptr;
}

bool Tree::RemoveObject(IRepository* repository, TalStringViewT<WideChar> path) {
  return RemoveObjectFromTree(repository, PathComponents(path).Get());
}

bool Tree::RemoveObjectFromTree(IRepository* repository, Components path) {
  if (path.empty()) return false;
  const Tree* holder = path.size() == 1 ? this : FindTree(path.without_last(1));
  if (holder == nullptr || !holder->LocalObjectExists(path.back())) return false;
  Components left = path.without_last(1);
  std::vector<cow_ptr<Tree>> opened = OpenDirectories(left);
  TalStringViewT<WideChar> name = path.back();
  while (!opened.empty()) {
    Tree& directory = *opened.back().write();
    directory.EraseEntries(name);
    if (!directory.IsEmpty()) {
      if (repository != nullptr) StoreDirectories(*repository, left, opened);
      return true;
    }
    // An emptied directory goes from the one above.
    name = left.back();
    left = left.without_last(1);
    opened.pop_back();
  }
  EraseEntries(name);
  return true;
}

// Returns handles on the trees along the path, the topmost first; null for each that is missing.
std::vector<cow_ptr<Tree>> Tree::OpenDirectories(Components directories) const {
  std::vector<cow_ptr<Tree>> opened;
  opened.reserve(directories.size());
  const Tree* at = this;
  for (const auto& name : directories) {
    opened.push_back(at == nullptr ? nullptr : at->GetLocalTree(name));
    at = opened.back().get();
  }
  return opened;
}

void Tree::StoreDirectories(IRepository& repository, Components directories,
                            std::vector<cow_ptr<Tree>>& opened) {
  while (!opened.empty()) {
    cow_ptr<Tree> changed = std::move(opened.back());
    opened.pop_back();
    const cow_ptr<Tree> stored = StoreOwn(repository, std::move(changed));
    Tree& above = opened.empty() ? *this : *opened.back().write();
    above.SetEntry(directories[opened.size()], EntryKind::Tree, stored);
  }
}

void Tree::SetEntry(TalStringViewT<WideChar> name, EntryKind kind, const cow_ptr<Object>& child) {
  TreeEntries::Set(m_entries, name, kind, child);
  ResetState();
}

void Tree::EraseEntries(TalStringViewT<WideChar> name) {
  TreeEntries::Erase(m_entries, name);
  ResetState();
}

bool Tree::LocalObjectExists(TalStringViewT<WideChar> name) const noexcept {
  return TreeEntries::Find(m_entries.get(), name, EntryKind::Blob) ||
         TreeEntries::Find(m_entries.get(), name, EntryKind::Tree);
}

cow_ptr<Blob> Tree::GetLocalBlob(TalStringViewT<WideChar> name) const {
  return TreeEntries::Find(m_entries.get(), name, EntryKind::Blob).Open().as<Blob>();
}

cow_ptr<Tree> Tree::GetLocalTree(TalStringViewT<WideChar> name) const {
  return TreeEntries::Find(m_entries.get(), name, EntryKind::Tree).Open().as<Tree>();
}

cow_ptr<Object> Tree::GetLocalObject(TalStringViewT<WideChar> name) const {
  if (cow_ptr<Object> blob = GetLocalBlob(name)) return blob;
  return GetLocalTree(name);
}

// Returns the tree at the path, which its holder keeps, or null; this tree for an empty path.
const Tree* Tree::FindTree(Components components) const {
  const Tree* at = this;
  for (const auto& name : components) {
    at = OpenTree(TreeEntries::Find(at->m_entries.get(), name, EntryKind::Tree));
    if (at == nullptr) return nullptr;
  }
  return at;
}

cow_ptr<Tree> Tree::GetDeepTree(Components components) const {
  if (components.empty()) return nullptr;
  const Tree* holder = FindTree(components.without_last(1));
  return holder == nullptr ? nullptr : holder->GetLocalTree(components.back());
}

cow_ptr<Blob> Tree::GetDeepBlob(Components components) const {
  if (components.empty()) return nullptr;
  const Tree* holder = FindTree(components.without_last(1));
  return holder == nullptr ? nullptr : holder->GetLocalBlob(components.back());
}

cow_ptr<Object> Tree::GetDeepObject(Components components) const {
  if (components.empty()) return nullptr;
  const Tree* holder = FindTree(components.without_last(1));
  return holder == nullptr ? nullptr : holder->GetLocalObject(components.back());
}

cow_ptr<Tree> Tree::GetDeepTree(TalStringViewT<WideChar> path) const {
  return GetDeepTree(PathComponents(path).Get());
}

cow_ptr<Blob> Tree::GetDeepBlob(TalStringViewT<WideChar> path) const {
  return GetDeepBlob(PathComponents(path).Get());
}

cow_ptr<Object> Tree::GetDeepObject(TalStringViewT<WideChar> path) const {
  return GetDeepObject(PathComponents(path).Get());
}

// The last component's id stands in its record, so nothing is read for it.
std::optional<Id> Tree::GetIdByPath(TalStringViewT<WideChar> path) const {
  const PathComponents split(path);
  const Components components = split.Get();
  if (components.empty()) return std::nullopt;
  const Tree* holder = FindTree(components.without_last(1));
  if (holder == nullptr) return std::nullopt;
  const NamedEntries entries = EntriesUnder(holder->m_entries.get(), components.back());
  if (!entries.Local().HasObject()) return std::nullopt;
  return IdOf(entries.Local());
}

}  // namespace TalVcs
