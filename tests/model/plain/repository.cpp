#include "repository.h"

namespace Model {
namespace {

template <class T>
Handle<T> Find(const std::map<Id, Handle<T>>& table, const Id& id) {
  const auto found = table.find(id);
  return found == table.end() ? Handle<T>() : found->second;
}

// The instance that the table holds, which is `object` itself if it held none.
template <class T>
Handle<T> Sync(std::map<Id, Handle<T>>& table, const Handle<T>& object) {
  return table.emplace(object->GetId(), object).first->second;
}

std::unique_ptr<Storage> Clone(const std::unique_ptr<Storage>& storage) {
  if (!storage) return nullptr;
  return std::make_unique<Storage>(*storage);
}

}  // namespace

Repository::Repository(const Repository& other)
    : m_storage(Clone(other.m_storage)), m_currentBranch(other.m_currentBranch) {}

Repository::Repository(Repository&& other) noexcept
    : m_storage(std::move(other.m_storage)),
      m_currentBranch(std::exchange(other.m_currentBranch, Text())) {}

Repository& Repository::operator=(const Repository& other) {
  if (this != &other) {
    m_storage = Clone(other.m_storage);
    m_currentBranch = other.m_currentBranch;
  }
  return *this;
}

Repository& Repository::operator=(Repository&& other) noexcept {
  if (this != &other) {
    m_storage = std::move(other.m_storage);
    m_currentBranch = std::exchange(other.m_currentBranch, Text());
  }
  return *this;
}

Handle<Commit> Repository::DoCommit(Commit& commit, const Stamp& now) {
  if (!m_storage) return {};
  if (commit.IsAmend() && !GetHead()) return {};
  commit.SetStamp(now);
  Handle<Commit> stored = GetCommitFromStorage(commit.GetId());
  if (!stored) stored = SyncWithStorage(Handle<Commit>(commit));
  m_storage->UpdateBranch(m_currentBranch, stored);
  return stored;
}

Handle<Commit> Repository::GetHead(const Text& branch) const {
  if (!m_storage || !m_storage->refs.contains(branch)) return {};
  return m_storage->refs.at(branch);
}

Handle<Commit> Repository::GetCommitFromStorage(const Id& id) const {
  return m_storage ? Find(m_storage->commits, id) : Handle<Commit>();
}

Handle<Tree> Repository::GetTreeFromStorage(const Id& id) const {
  return m_storage ? Find(m_storage->trees, id) : Handle<Tree>();
}

Handle<Blob> Repository::GetBlobFromStorage(const Id& id) const {
  return m_storage ? Find(m_storage->blobs, id) : Handle<Blob>();
}

Handle<Commit> Repository::SyncWithStorage(const Handle<Commit>& commit) {
  return commit && m_storage ? Sync(m_storage->commits, commit) : commit;
}

Handle<Tree> Repository::SyncWithStorage(const Handle<Tree>& tree) {
  return tree && m_storage ? Sync(m_storage->trees, tree) : tree;
}

Handle<Blob> Repository::SyncWithStorage(const Handle<Blob>& blob) {
  return blob && m_storage ? Sync(m_storage->blobs, blob) : blob;
}

bool Repository::BranchExist(const Text& name) const {
  return m_storage && m_storage->refs.contains(name);
}

bool Repository::Checkout(const Text& name) {
  if (!BranchExist(name)) return false;
  m_currentBranch = name;
  return true;
}

bool Repository::CreateBranch(const Text& name, const Handle<Commit>& commit) {
  if (!m_storage || BranchExist(name)) return false;
  return m_storage->CreateBranch(name, commit ? commit : GetHead());
}

bool Repository::MoveBranchTo(const Text& name, const Handle<Commit>& commit) {
  return m_storage && m_storage->UpdateBranch(name, commit);
}

bool Repository::RemoveBranch(const Text& name) {
  return m_storage && m_storage->refs.erase(name) != 0;
}

void Repository::UpdateStorage() {
  if (m_storage) m_storage->Purge();
}

bool Repository::FastForwardMerge(const Handle<Commit>& commit) {
  if (!commit) return false;
  const Handle<Commit> head = GetHead();
  if (GetCommonBase(head, commit) != head) return false;
  return MoveBranchTo(m_currentBranch, commit);
}

bool Repository::Merge3Way(const Handle<Commit>& commit, const Resolvers& resolvers,
                           const Stamp& now) {
  const Handle<Commit> head = GetHead();
  if (!commit || !head) return false;
  const Handle<Commit> base = GetCommonBase(head, commit);
  const MergeTrees trees{head->GetRoot(), base ? base->GetRoot() : Handle<Tree>(),
                         commit->GetRoot()};
  const Handle<Tree> merged = ThreeWayMerge(this, trees, resolvers);
  if (!merged) return false;
  Commit result(head, false);
  result.ReplaceRoot(this, merged);
  return static_cast<bool>(DoCommit(result, now));
}

bool Repository::Merge(const Handle<Commit>& commit, const Resolvers& resolvers, const Stamp& now) {
  if (!commit) return false;
  if (!GetHead()) return MoveBranchTo(m_currentBranch, commit);
  return FastForwardMerge(commit) || Merge3Way(commit, resolvers, now);
}

}  // namespace Model
