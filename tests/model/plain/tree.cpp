#include "objects.h"
#include "repository.h"

#include <set>

namespace Model {
namespace {

Components Head(const Components& path) {
  return Components(path.begin(), path.end() - static_cast<std::ptrdiff_t>(path.size() / 2));
}

Components Tail(const Components& path) {
  return Components(path.end() - static_cast<std::ptrdiff_t>(path.size() / 2), path.end());
}

Components AllButLast(const Components& path) { return Components(path.begin(), path.end() - 1); }

template <class T>
Handle<T> Lookup(const std::map<Text, Handle<T>>& table, const Text& name) {
  const auto found = table.find(name);
  return found == table.end() ? Handle<T>() : found->second;
}

template <class T>
std::vector<Text> Names(const std::map<Text, Handle<T>>& table) {
  std::vector<Text> names;
  names.reserve(table.size());
  for (const auto& [name, child] : table) names.push_back(name);
  return names;
}

std::vector<Text> SortedUnique(const std::vector<Text>& texts) {
  const std::set<Text> sorted(texts.begin(), texts.end());
  return std::vector<Text>(sorted.begin(), sorted.end());
}

void AppendBelow(std::vector<Text>& paths, const Text& name, const std::vector<Text>& below) {
  for (const Text& path : below) paths.push_back(JoinPath(name, path));
}

// The names in `table` whose object the tree `other` lacks or has with another id.
template <class T>
void AppendDifferent(std::vector<Text>& names, const std::map<Text, Handle<T>>& table,
                     const Tree* other) {
  for (const auto& [name, child] : table) {
    const Entry counterpart = other == nullptr ? Entry() : other->GetLocalObject(name);
    if (!counterpart || counterpart.GetId() != child->GetId()) names.push_back(name);
  }
}

}  // namespace

void Tree::ResetState() {
  Object::ResetState();
  m_treeData.reset();
}

const Bytes& Tree::GetData() const {
  if (m_treeData) return *m_treeData;
  std::map<Text, Bytes> records;
  for (const auto& [name, blob] : m_blobs) {
    records.emplace(name, "100644 blob " + EncodeTerminated(name) + '\0' + blob->GetId());
  }
  for (const auto& [name, tree] : m_trees) {
    records.emplace(name, "40000 tree " + EncodeTerminated(name) + '\0' + tree->GetId());
  }
  m_treeData = Bytes();
  for (const auto& [name, record] : records) *m_treeData += record;
  return *m_treeData;
}

std::uint64_t Tree::GetDeepBlobCount() const {
  std::uint64_t count = m_blobs.size();
  for (const auto& [name, tree] : m_trees) count += tree->GetDeepBlobCount();
  return count;
}

template <class T>
Handle<T> Tree::AddAt(Repository* repository, const Components& path, const T& object,
                      std::map<Text, Handle<T>> Tree::*table) {
  if (path.empty() || repository == nullptr) return {};
  if (path.size() >= 2) {
    Handle<Tree> sub = GetDeepTree(Head(path));
    Handle<T> result = sub.write()->AddAt(repository, Tail(path), object, table);
    AddAt(repository, Head(path), *sub, &Tree::m_trees);
    return result;
  }
  Handle<T> stored = repository->SyncWithStorage(Handle<T>(object));
  (this->*table)[path[0]] = stored;
  ResetState();
  return stored;
}

Handle<Blob> Tree::AddBlob(Repository* repository, const Text& path, const Blob& blob) {
  return AddAt(repository, SplitPath(path), blob, &Tree::m_blobs);
}

Handle<Tree> Tree::AddTree(Repository* repository, const Text& path, const Tree& tree) {
  return AddAt(repository, SplitPath(path), tree, &Tree::m_trees);
}

Entry Tree::AddObject(Repository* repository, const Text& path, const Id& id) {
  if (const Handle<Blob> blob = repository->GetBlobFromStorage(id)) {
    return Entry{AddBlob(repository, path, *blob), {}};
  }
  if (const Handle<Tree> tree = repository->GetTreeFromStorage(id)) {
    return Entry{{}, AddTree(repository, path, *tree)};
  }
  return {};
}

bool Tree::RemoveObject(Repository* repository, const Text& path) {
  return RemoveAt(repository, SplitPath(path));
}

bool Tree::RemoveAt(Repository* repository, const Components& path) {
  if (path.empty()) return false;
  if (path.size() == 1) {
    const std::size_t erased = m_trees.erase(path[0]) + m_blobs.erase(path[0]);
    if (erased == 0) return false;
    ResetState();
    return true;
  }
  Handle<Tree> sub = GetDeepTree(Head(path));
  if (!sub || !sub.write()->RemoveAt(repository, Tail(path))) return false;
  if (sub->IsEmpty()) {
    RemoveAt(repository, Head(path));
  } else {
    AddAt(repository, Head(path), *sub, &Tree::m_trees);
  }
  return true;
}

Handle<Blob> Tree::GetLocalBlob(const Text& name) const { return Lookup(m_blobs, name); }

Handle<Tree> Tree::GetLocalTree(const Text& name) const { return Lookup(m_trees, name); }

Entry Tree::GetLocalObject(const Text& name) const {
  if (const Handle<Blob> blob = GetLocalBlob(name)) return Entry{blob, {}};
  return Entry{{}, GetLocalTree(name)};
}

Handle<Tree> Tree::GetDeepTree(const Components& path) const {
  if (path.empty()) return {};
  if (path.size() == 1) return GetLocalTree(path[0]);
  const Handle<Tree> sub = GetDeepTree(Head(path));
  return sub ? sub->GetDeepTree(Tail(path)) : Handle<Tree>();
}

Handle<Blob> Tree::GetDeepBlob(const Components& path) const {
  if (path.empty()) return {};
  if (path.size() == 1) return GetLocalBlob(path[0]);
  const Handle<Tree> sub = GetDeepTree(AllButLast(path));
  return sub ? sub->GetLocalBlob(path.back()) : Handle<Blob>();
}

Entry Tree::GetDeepObject(const Components& path) const {
  if (path.empty()) return {};
  if (path.size() == 1) return GetLocalObject(path[0]);
  const Handle<Tree> sub = GetDeepTree(AllButLast(path));
  return sub ? sub->GetLocalObject(path.back()) : Entry();
}

std::optional<Id> Tree::GetIdByPath(const Text& path) const {
  const Entry entry = GetDeepObject(SplitPath(path));
  return entry ? std::optional<Id>(entry.GetId()) : std::nullopt;
}

std::vector<Text> Tree::GetLocalBlobPaths() const { return Names(m_blobs); }

std::vector<Text> Tree::GetLocalSubtreePaths() const { return Names(m_trees); }

std::vector<Text> Tree::GetLocalObjectPaths() const {
  std::vector<Text> names = GetLocalSubtreePaths();
  const std::vector<Text> blobs = GetLocalBlobPaths();
  names.insert(names.end(), blobs.begin(), blobs.end());
  return names;
}

std::vector<Text> Tree::GetDeepBlobPaths() const {
  std::vector<Text> paths = GetLocalBlobPaths();
  for (const auto& [name, tree] : m_trees) AppendBelow(paths, name, tree->GetDeepBlobPaths());
  return SortedUnique(paths);
}

std::vector<Text> Tree::GetLocalBlobDiffs(const Handle<Tree>& other) const {
  std::vector<Text> names;
  AppendDifferent(names, m_blobs, other.get());
  if (other) AppendDifferent(names, other->m_blobs, this);
  return SortedUnique(names);
}

std::vector<Text> Tree::GetLocalTreeDiffs(const Handle<Tree>& other) const {
  std::vector<Text> names;
  AppendDifferent(names, m_trees, other.get());
  if (other) AppendDifferent(names, other->m_trees, this);
  return SortedUnique(names);
}

std::vector<Text> Tree::GetDeepBlobDiffs(const Handle<Tree>& other) const {
  if (!other) return GetDeepBlobPaths();
  std::vector<Text> paths = GetLocalBlobDiffs(other);
  for (const Text& name : GetLocalTreeDiffs(other)) {
    const Handle<Tree> a = GetLocalTree(name);
    const Handle<Tree> b = other->GetLocalTree(name);
    if (a && b) {
      AppendBelow(paths, name, a->GetDeepBlobDiffs(b));
    } else if (a) {
      AppendBelow(paths, name, a->GetDeepBlobPaths());
    } else if (b) {
      AppendBelow(paths, name, b->GetDeepBlobPaths());
    }
  }
  return SortedUnique(paths);
}

}  // namespace Model
