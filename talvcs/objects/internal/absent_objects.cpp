#include <talvcs/objects/internal/absent_objects.h>
#include <talvcs/objects/internal/commit_access.h>

#include <memory>
#include <utility>
#include <vector>

// A commit that was read holds placeholders until a caller follows the links:
//
//   commit C -> AbsentCommit (id of B, source)        C -> B -> AbsentCommit (id of A, source)
//            -> handle -> AbsentTree (id, source)       -> handle -> AbsentTree
//
// All uses that need ids alone work with the placeholders, which know theirs.

namespace TalVcs {

AbsentCommit::AbsentCommit(const Id& id, ObjectSource& source)
    : m_source(SourcePtr::Share(&source)) {
  CommitAccess::MarkAbsent(*this);
  CacheId(id);
}

void Commit::OpenParent() const {
  const auto& absent = static_cast<const AbsentCommit&>(*m_parent);
  m_parent = absent.Open(CachedId());
}

void Commit::OpenTree() const {
  const auto& absent = static_cast<const AbsentTree&>(*m_tree->GetRoot());
  cow_ptr<CommitTree> handle;
  *handle.write() = CommitTree(absent.Open());
  m_tree = std::move(handle);
  m_isTreeAbsent = false;
}

const cow_ptr<Commit>& CommitAccess::PresentParent(const Commit& commit) noexcept {
  static const cow_ptr<Commit> none;
  return commit.IsParentAbsent() ? none : commit.m_parent;
}

cow_ptr<Tree> CommitAccess::PresentRoot(const Commit& commit) {
  return commit.m_tree && !commit.m_isTreeAbsent ? commit.m_tree->GetRoot() : nullptr;
}

const ObjectSource* CommitAccess::SourceOfParent(const Commit& commit) noexcept {
  if (!commit.IsParentAbsent()) return nullptr;
  return static_cast<const AbsentCommit&>(*commit.m_parent).Source();
}

const ObjectSource* CommitAccess::SourceOfRoot(const Commit& commit) noexcept {
  if (!commit.m_isTreeAbsent) return nullptr;
  return static_cast<const AbsentTree&>(*commit.m_tree->GetRoot()).Source();
}

void CommitAccess::ExpectRoots(std::span<const cow_ptr<Commit>> commits) {
  ObjectSource* source = nullptr;
  std::vector<ObjectSource::ExpectedTree> expected;
  for (const cow_ptr<Commit>& commit : commits) {
    if (!commit || !commit->m_isTreeAbsent) continue;
    const cow_ptr<Tree> root = commit->m_tree->GetRoot();
    ObjectSource* const own = static_cast<const AbsentTree&>(*root).Source();
    if (own != source && source != nullptr) {
      source->ExpectTrees(expected, false);
      expected.clear();
    }
    source = own;
    expected.push_back({root->GetId(), ObjectSource::kRootPlace});
  }
  if (source != nullptr) source->ExpectTrees(expected, false);
}

void CommitAccess::SetAbsentParent(const Commit& commit, const Id& id, ObjectSource& source) {
  commit.m_parent = cow_ptr<Commit>(std::make_shared<AbsentCommit>(id, source));
}

void CommitAccess::SetAbsentTree(const Commit& commit, const Id& id, ObjectSource& source) {
  cow_ptr<CommitTree> handle;
  *handle.write() = CommitTree(cow_ptr<Tree>(std::make_shared<AbsentTree>(id, source)));
  commit.m_tree = std::move(handle);
  commit.m_isTreeAbsent = true;
}

}  // namespace TalVcs
