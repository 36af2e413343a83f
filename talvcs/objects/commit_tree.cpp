#include <talvcs/objects/commit_tree.h>
#include <talvcs/objects/internal/in_hand.h>

#include <talvcs/repository/irepository.h>

namespace TalVcs {

cow_ptr<Blob> CommitTree::AddBlob(IRepository* repository, TalStringViewT<WideChar> path,
                                  const Blob& blob) {
  return m_root.write()->AddBlob(repository, path, blob);
}

cow_ptr<Tree> CommitTree::AddTree(IRepository* repository, TalStringViewT<WideChar> path,
                                  const Tree& tree) {
  return m_root.write()->AddTree(repository, path, tree);
}

cow_ptr<Object> CommitTree::AddObject(IRepository* repository, TalStringViewT<WideChar> path,
                                      const Id& id) {
  return m_root.write()->AddObject(repository, path, id);
}

bool CommitTree::RemoveObject(IRepository* repository, TalStringViewT<WideChar> path) {
  return m_root && m_root.write()->RemoveObject(repository, path);
}

cow_ptr<Blob> CommitTree::GetBlob(TalStringViewT<WideChar> path) const {
  return m_root ? m_root->GetDeepBlob(path) : nullptr;
}

cow_ptr<Tree> CommitTree::GetTree(TalStringViewT<WideChar> path) const {
  return m_root ? m_root->GetDeepTree(path) : nullptr;
}

Id CommitTree::GetRootId() const { return m_root ? m_root->GetId() : Id(); }

void CommitTree::ReplaceRoot(IRepository* repository, cow_ptr<Tree> tree) {
  if (repository != nullptr && tree) {
    const LookUpInHand in_hand;
    if (cow_ptr<Tree> stored = repository->GetTreeFromStorage(tree->GetId())) {
      tree = std::move(stored);
    }
  }
  m_root = std::move(tree);
}

bool CommitTree::IsEmpty() const noexcept { return !m_root || m_root->IsEmpty(); }

std::optional<Id> CommitTree::GetIdByPath(TalStringViewT<WideChar> path) const {
  return m_root ? m_root->GetIdByPath(path) : std::nullopt;
}

std::vector<TalStringT<WideChar>> CommitTree::GetBlobDiffs(cow_ptr<CommitTree> other) const {
  const cow_ptr<Tree> other_root = other ? other->GetRoot() : nullptr;
  if (m_root) return m_root->GetDeepBlobDiffs(other_root);
  if (other_root) return other_root->GetDeepBlobPaths();
  return {};
}

std::vector<TalStringT<WideChar>> CommitTree::GetAllBlobPaths() const {
  if (!m_root) return {};
  return m_root->GetDeepBlobPaths();
}

std::uint64_t CommitTree::GetBlobCount() const { return m_root ? m_root->GetDeepBlobCount() : 0; }

}  // namespace TalVcs
