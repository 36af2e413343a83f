#include <talvcs/objects/commit.h>
#include <talvcs/objects/commit_tree.h>
#include <talvcs/objects/internal/commit_loader.h>
#include <talvcs/objects/tree.h>

// The static functions that read one object with everything below it. Each call is a load of its
// own. `Blob::Deserialize` is in blob.cpp.

namespace TalVcs {

cow_ptr<Commit> Commit::Deserialize(const Id& id, Id& parentId, IRepository* repository,
                                    Delegate<StreamIO(const Id&)> getter) {
  if (repository == nullptr) return nullptr;
  return CommitLoader(*repository, getter).Load(id, parentId);
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
  if (repository == nullptr) return nullptr;
  LoadTarget target(*repository);
  return TreeLoader(target, getter).Load(id, nullptr);
}

}  // namespace TalVcs
