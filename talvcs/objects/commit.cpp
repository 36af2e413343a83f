#include <talvcs/objects/commit.h>

#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/objects/internal/in_hand.h>
#include <talvcs/repository/irepository.h>

#include <utility>

namespace TalVcs {

Commit::Commit() = default;

Commit::Commit(IRepository* repository, bool amend)
    : Commit(repository == nullptr ? nullptr : repository->GetHead(), amend) {}

Commit::Commit(cow_ptr<Commit> head, bool amend) : m_isAmend(amend) {
  if (head) {
    m_tree = head->m_tree;
    m_isTreeAbsent = head->m_isTreeAbsent;
    m_parent = amend ? head->m_parent : head;
    if (amend) ResetPropertiesForAmend(*head);
  }
  if (!m_tree) m_tree.write();
}

Commit::Commit(const Commit& other) = default;

// The source keeps its caches, as the base class has copies only.
Commit::Commit(Commit&& other)
    : Object((other.CompleteAllCaches(), other)),
      m_tree(std::move(other.m_tree)),
      m_parent(std::move(other.m_parent)),
      m_description(std::move(other.m_description)),
      m_authorName(std::move(other.m_authorName)),
      m_authorEmail(std::move(other.m_authorEmail)),
      m_commitTime(other.m_commitTime),
      m_commitTimezoneBias(other.m_commitTimezoneBias),
      m_isAmend(other.m_isAmend),
      m_isTreeAbsent(std::exchange(other.m_isTreeAbsent, false)),
      m_data(std::move(other.m_data)) {}

// In both assignments the old parent ends last: it may be what keeps `other` alive.
Commit& Commit::operator=(const Commit& other) {
  if (this == &other) return *this;
  Object::operator=(other);
  m_data = other.m_data;
  const cow_ptr<Commit> old_parent = std::exchange(m_parent, other.m_parent);
  m_tree = other.m_tree;
  m_isTreeAbsent = other.m_isTreeAbsent;
  m_description = other.m_description;
  m_authorName = other.m_authorName;
  m_authorEmail = other.m_authorEmail;
  m_commitTime = other.m_commitTime;
  m_commitTimezoneBias = other.m_commitTimezoneBias;
  m_isAmend = other.m_isAmend;
  return *this;
}

Commit& Commit::operator=(Commit&& other) {
  if (this == &other) return *this;
  other.CompleteAllCaches();
  Object::operator=(other);
  m_tree = std::move(other.m_tree);
  m_isTreeAbsent = std::exchange(other.m_isTreeAbsent, false);
  const cow_ptr<Commit> old_parent = std::exchange(m_parent, std::move(other.m_parent));
  m_description = std::move(other.m_description);
  m_authorName = std::move(other.m_authorName);
  m_authorEmail = std::move(other.m_authorEmail);
  m_commitTime = other.m_commitTime;
  m_commitTimezoneBias = other.m_commitTimezoneBias;
  m_isAmend = other.m_isAmend;
  m_data = std::move(other.m_data);
  return *this;
}

// A history that dies with its tip is taken apart link by link, so that its length doesn't matter:
// the parent of a commit that goes with its child waits until the commit is gone. Where one waits
// already, because a host's class holds more commits, it is taken apart at once.
Commit::~Commit() {
  thread_local cow_ptr<Commit>* waiting = nullptr;
  cow_ptr<Commit> next = std::move(m_parent);
  if (waiting != nullptr && *waiting == nullptr) {
    *waiting = std::move(next);
    return;
  }
  cow_ptr<Commit>* const above = std::exchange(waiting, &next);
  while (next) const cow_ptr<Commit> dying = std::exchange(next, nullptr);
  waiting = above;
}

void Commit::ResetPropertiesForAmend(const Commit& head) {
  SetAuthorName(head.m_authorName);
  SetAuthorEmail(head.m_authorEmail);
  SetDescription(head.m_description);
}

void Commit::ResetState() {
  Object::ResetState();
  m_data = Buffer();
}

void Commit::SetParent(cow_ptr<Commit> parent) {
  m_parent = std::move(parent);
  ResetState();
}

void Commit::SetDescription(const TalStringT<WideChar>& description) {
  m_description = description;
  ResetState();
}

void Commit::SetAuthorName(const TalStringT<WideChar>& name) {
  m_authorName = name;
  ResetState();
}

void Commit::SetAuthorEmail(const TalStringT<WideChar>& email) {
  m_authorEmail = email;
  ResetState();
}

void Commit::SetCommitTime(const Time& time) {
  m_commitTime = time;
  ResetState();
}

void Commit::SetCommitTimezoneBias(const TimeDelta& bias) {
  m_commitTimezoneBias = bias;
  ResetState();
}

cow_ptr<Blob> Commit::GetBlob(TalStringViewT<WideChar> path) const {
  if (m_isTreeAbsent) OpenTree();
  return m_tree ? m_tree->GetBlob(path) : nullptr;
}

cow_ptr<CommitTree> Commit::GetTree(TalStringViewT<WideChar> path) const {
  if (m_isTreeAbsent) OpenTree();
  cow_ptr<Tree> found = m_tree ? m_tree->GetTree(path) : nullptr;
  if (!found) return nullptr;
  cow_ptr<CommitTree> handle;
  *handle.write() = CommitTree(std::move(found));
  return handle;
}

bool Commit::HasRoot() const noexcept { return m_tree && m_tree->GetRoot(); }

cow_ptr<Blob> Commit::AddBlob(IRepository* repository, TalStringViewT<WideChar> path,
                              const Blob& blob) {
  if (m_isTreeAbsent) OpenTree();
  if (!HasRoot()) CompleteAllCaches();
  cow_ptr<Blob> added = m_tree.write()->AddBlob(repository, path, blob);
  if (added) FinishEdit(repository);
  return added;
}

cow_ptr<Object> Commit::AddObject(IRepository* repository, TalStringViewT<WideChar> path,
                                  const Id& id) {
  if (m_isTreeAbsent) OpenTree();
  if (!HasRoot()) CompleteAllCaches();
  cow_ptr<Object> added = m_tree.write()->AddObject(repository, path, id);
  if (added) FinishEdit(repository);
  return added;
}

bool Commit::RemoveObject(IRepository* repository, TalStringViewT<WideChar> path) {
  if (m_isTreeAbsent) OpenTree();
  if (!m_tree || !m_tree.write()->RemoveObject(repository, path)) return false;
  FinishEdit(repository);
  return true;
}

void Commit::ReplaceRoot(IRepository* repository, cow_ptr<Tree> tree) {
  CompleteAllCaches();
  m_tree.write()->ReplaceRoot(repository, std::move(tree));
  m_isTreeAbsent = false;
  RebuildTree(repository);
}

// The caches are reset first: if storing the root runs out of memory, they don't show an old state.
void Commit::FinishEdit(IRepository* repository) {
  ResetState();
  RebuildTree(repository);
}

// Makes the root the instance that the storage holds, and stores it if it is new.
void Commit::RebuildTree(IRepository* repository) {
  const Id id = m_tree ? m_tree->GetRootId() : Id();
  if (repository == nullptr) return;
  const LookUpInHand in_hand;
  cow_ptr<Tree> stored = repository->GetTreeFromStorage(id);
  if (!stored) {
    cow_ptr<Tree> root = m_tree ? m_tree->GetRoot() : nullptr;
    if (!root) return;
    stored = repository->SyncWithStorage(std::move(root));
  }
  m_tree.write()->ReplaceRoot(repository, std::move(stored));
}

void CommitAccess::Rewrite(cow_ptr<Commit>& commit, cow_ptr<Commit> parent,
                           IRepository& repository) {
  commit.write()->SetParent(std::move(parent));
  commit = repository.SyncWithStorage(commit);
}

// The list keeps its handles while the storage works: should that throw, no commit is lost.
bool Commit::MakeCommitLinksInOrder(std::vector<cow_ptr<Commit>>& commits,
                                    IRepository* repository) {
  if (repository == nullptr || commits.empty()) return false;
  commits.back().write()->ResetState();
  commits.back() = repository->SyncWithStorage(commits.back());
  for (std::size_t index = commits.size() - 1; index-- > 0;) {
    const cow_ptr<Commit>& parent = commits[index + 1];
    if (commits[index] && parent) CommitAccess::Rewrite(commits[index], parent, *repository);
  }
  return true;
}

}  // namespace TalVcs
