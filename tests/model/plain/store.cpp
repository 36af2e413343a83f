#include "store.h"

namespace Model {
namespace {

class StoreLoad : public Load {
 public:
  StoreLoad(const Store& store, const Text& rootPath) : m_store(store), m_rootPath(rootPath) {}
  std::optional<Bytes> ObjectStream(const Id& id) const override {
    if (id.empty()) return Bytes();
    const auto found = m_store.find(ObjectPath(m_rootPath, id));
    return found == m_store.end() ? std::nullopt : std::optional<Bytes>(found->second);
  }

 private:
  const Store& m_store;
  const Text& m_rootPath;
};

bool DeserializeBranch(Repository* repository, const Id& headId, Load& load) {
  std::vector<Handle<Commit>> chain;
  load.line.clear();
  for (Id current = headId; !current.empty();) {
    Id parent;
    const Handle<Commit> commit = Commit::Deserialize(current, parent, repository, load);
    if (commit) chain.push_back(commit);
    current = parent;
  }
  return Commit::MakeCommitLinksInOrder(chain, repository);
}

template <class T>
void WriteObjects(const std::map<Id, Handle<T>>& table, Store& store, const Text& rootPath) {
  for (const auto& [id, object] : table) {
    store[ObjectPath(rootPath, id)] = object->GetPackedData();
  }
}

}  // namespace

Text BranchesPath(const Text& rootPath) {
  return JoinPath(JoinPath(JoinPath(rootPath, u".vcs"), u"refs"), u"heads");
}

Text ObjectPath(const Text& rootPath, const Id& id) {
  const Text text = DecodeUtf8(id);
  const Text directory =
      JoinPath(JoinPath(JoinPath(rootPath, u".vcs"), u"objects"), text.substr(0, 2));
  return JoinPath(directory, text.substr(std::min<std::size_t>(2, text.size())));
}

std::vector<Text> BranchNames(const Store& store, const Text& branchesPath) {
  std::vector<Text> names;
  for (const auto& [path, bytes] : store) {
    if (path.starts_with(branchesPath + u"/"))
      names.push_back(path.substr(branchesPath.size() + 1));
  }
  return names;
}

void Serialize(const Storage* storage, Store& store, const Text& rootPath) {
  store.clear();
  if (storage == nullptr) return;
  WriteObjects(storage->commits, store, rootPath);
  WriteObjects(storage->blobs, store, rootPath);
  WriteObjects(storage->trees, store, rootPath);
  for (const auto& [name, head] : storage->refs) {
    if (head) store[JoinPath(BranchesPath(rootPath), name)] = head->GetId();
  }
}

bool Deserialize(const Store& store, const Text& rootPath, Repository* repository) {
  if (repository == nullptr) return false;
  StoreLoad load(store, rootPath);
  bool complete = true;
  for (const Text& name : BranchNames(store, BranchesPath(rootPath))) {
    const auto ref = store.find(JoinPath(BranchesPath(rootPath), name));
    const Id id = ref == store.end() ? Id() : ReadId(ref->second);
    const bool loaded = !id.empty() && DeserializeBranch(repository, id, load) &&
                        (repository->BranchExist(name) || repository->CreateBranch(name, {})) &&
                        repository->MoveBranchTo(name, repository->GetCommitFromStorage(id));
    complete = complete && loaded;
  }
  return complete;
}

}  // namespace Model
