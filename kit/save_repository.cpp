#include <kit/save_repository.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/tree.h>
#include <talvcs/persistence/serializer.h>
#include <talvcs/repository/irepository.h>
#include <talvcs/storage/on_demand_storage.h>

#include <unordered_set>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

namespace {

/// Visits all that commits reach, each object once, and stores it.
class Reach {
 public:
  explicit Reach(IRepository& repository) : m_repository(repository) {}

  /// Stores `tip` and its history, oldest first, so that each tree can be compared with the one
  /// that it was made from.
  void StoreHistory(const cow_ptr<Commit>& tip) {
    std::vector<cow_ptr<Commit>> history;
    for (cow_ptr<Commit> commit = tip; commit; commit = commit->GetParent()) {
      if (!m_known.insert(commit->GetId()).second) break;
      history.push_back(commit);
    }
    for (; !history.empty(); history.pop_back()) {
      const cow_ptr<Commit>& commit = history.back();
      m_repository.SyncWithStorage(commit);
      const cow_ptr<Commit> parent = commit->GetParent();
      StoreTree(RootOf(*commit), parent ? RootOf(*parent) : nullptr);
    }
  }

 private:
  /// A tree, and one whose entries have been visited already or will be.
  struct Pair {
    cow_ptr<Tree> tree;
    cow_ptr<Tree> known;
  };

  static cow_ptr<Tree> RootOf(const Commit& commit) {
    const cow_ptr<CommitTree> tree = commit.GetTree();
    return tree ? tree->GetRoot() : nullptr;
  }

  void StoreTree(const cow_ptr<Tree>& root, const cow_ptr<Tree>& known) {
    Push(root, known);
    while (!m_pending.empty()) {
      const Pair pair = std::move(m_pending.back());
      m_pending.pop_back();
      m_repository.SyncWithStorage(pair.tree);
      for (const TalStringT<WideChar>& name : pair.tree->GetLocalBlobDiffs(pair.known)) {
        const cow_ptr<Blob> blob = pair.tree->GetLocalBlob(name);
        if (blob) m_repository.SyncWithStorage(blob);
      }
      for (const TalStringT<WideChar>& name : pair.tree->GetLocalTreeDiffs(pair.known)) {
        Push(pair.tree->GetLocalTree(name), pair.known ? pair.known->GetLocalTree(name) : nullptr);
      }
    }
  }

  void Push(cow_ptr<Tree> tree, cow_ptr<Tree> known) {
    if (tree && m_known.insert(tree->GetId()).second) {
      m_pending.push_back({std::move(tree), std::move(known)});
    }
  }

  IRepository& m_repository;
  std::unordered_set<Id> m_known;  // commits and trees
  std::vector<Pair> m_pending;
};

}  // namespace

bool StoreReachable(IRepository& repository) {
  const IObjectsStorage* storage = repository.GetStorage();
  if (storage == nullptr || OnDemandStorage::From(storage) != nullptr) return false;
  // Storing changes the tables, so the list of commits to begin with is made first.
  std::vector<cow_ptr<Commit>> tips;
  for (const auto& [name, head] : storage->GetRefs()) tips.push_back(head);
  for (const auto& [id, commit] : storage->GetCommits()) tips.push_back(commit);
  Reach reach(repository);
  for (const cow_ptr<Commit>& tip : tips) reach.StoreHistory(tip);
  return true;
}

bool SaveRepository(IRepository& repository, IBlobWriter& writer,
                    const TalStringT<WideChar>& rootPath) {
  return StoreReachable(repository) &&
         Serializer(&writer, rootPath).Serialize(repository.GetStorage());
}

}  // namespace TalVcs::Kit
