#include <talvcs/objects/internal/in_hand.h>
#include <talvcs/repository/repository.h>

#include <utility>

namespace TalVcs {

namespace {

std::unique_ptr<IObjectsStorage> CloneOf(const std::unique_ptr<IObjectsStorage>& storage) {
  return storage == nullptr ? nullptr : storage->Clone();
}

}  // namespace

Repository::Repository(std::unique_ptr<IObjectsStorage>&& storage)
    : m_storage(std::move(storage)), m_currentBranch(TAL_WIDE("master")) {}

Repository::Repository(const Repository& other)
    : IRepository(other),
      m_storage(CloneOf(other.m_storage)),
      m_currentBranch(other.m_currentBranch) {}

Repository::Repository(Repository&& other) noexcept = default;

Repository& Repository::operator=(const Repository& other) {
  if (this == &other) return *this;
  m_storage = CloneOf(other.m_storage);
  m_currentBranch = other.m_currentBranch;
  return *this;
}

Repository& Repository::operator=(Repository&& other) noexcept {
  if (this == &other) return *this;
  m_storage = std::move(other.m_storage);
  m_currentBranch = std::move(other.m_currentBranch);
  return *this;
}

Repository::~Repository() = default;

cow_ptr<Commit> Repository::DoCommit(Commit& commit) {
  if (m_storage == nullptr) return nullptr;
  IRepository& self = *this;
  if (commit.IsAmend() && !self.GetHead()) return nullptr;
  const Time now = Time::FromTimeT(Time::Now().ToTimeT());
  commit.SetCommitTime(now);
  commit.SetCommitTimezoneBias(TalUtils::DateTime::GetCurrentTimezoneBias(now));
  const LookUpInHand in_hand;
  cow_ptr<Commit> stored = self.GetCommitFromStorage(commit.GetId());
  if (!stored) {
    stored = self.SyncWithStorage(cow_ptr<Commit>(TalUtils::cow_factory<Commit>::copy(commit)));
  }
  // A current branch that doesn't exist stays so; the commit is stored all the same.
  m_storage->UpdateBranch(m_currentBranch, stored);
  return stored;
}

cow_ptr<Commit> Repository::GetHead(TalStringViewT<WideChar> branch) const {
  return m_storage == nullptr ? nullptr : m_storage->GetHead(branch);
}

cow_ptr<Commit> Repository::GetHead() const {
  const IRepository& self = *this;
  return self.GetHead(m_currentBranch);
}

TalStringT<WideChar> Repository::GetCurentBranch() const { return m_currentBranch; }

cow_ptr<Commit> Repository::GetCommitFromStorage(const Id& id) const {
  return m_storage == nullptr ? nullptr : m_storage->GetCommit(id);
}

cow_ptr<Tree> Repository::GetTreeFromStorage(const Id& id) const {
  return m_storage == nullptr ? nullptr : m_storage->GetTree(id);
}

cow_ptr<Blob> Repository::GetBlobFromStorage(const Id& id) const {
  return m_storage == nullptr ? nullptr : m_storage->GetBlob(id);
}

cow_ptr<Blob> Repository::SyncWithStorage(cow_ptr<Blob> blob) {
  if (!blob) return blob;
  const LookUpInHand in_hand;
  const IRepository& self = *this;
  if (cow_ptr<Blob> stored = self.GetBlobFromStorage(blob->GetId())) return stored;
  AddBlobToStorage(blob);
  return blob;
}

cow_ptr<Tree> Repository::SyncWithStorage(cow_ptr<Tree> tree) {
  if (!tree) return tree;
  const LookUpInHand in_hand;
  const IRepository& self = *this;
  if (cow_ptr<Tree> stored = self.GetTreeFromStorage(tree->GetId())) return stored;
  AddTreeToStorage(tree);
  return tree;
}

cow_ptr<Commit> Repository::SyncWithStorage(cow_ptr<Commit> commit) {
  if (!commit) return commit;
  const LookUpInHand in_hand;
  const IRepository& self = *this;
  if (cow_ptr<Commit> stored = self.GetCommitFromStorage(commit->GetId())) return stored;
  AddCommitToStorage(commit);
  return commit;
}

void Repository::AddCommitToStorage(cow_ptr<Commit> commit) {
  if (m_storage != nullptr) m_storage->AddCommit(std::move(commit));
}

void Repository::AddTreeToStorage(cow_ptr<Tree> tree) {
  if (m_storage != nullptr) m_storage->AddTree(std::move(tree));
}

void Repository::AddBlobToStorage(cow_ptr<Blob> blob) {
  if (m_storage != nullptr) m_storage->AddBlob(std::move(blob));
}

std::uint64_t Repository::GetCommitCount() const {
  return m_storage == nullptr ? 0 : m_storage->GetCommitCount();
}

std::uint64_t Repository::GetTreeCount() const {
  return m_storage == nullptr ? 0 : m_storage->GetTreeCount();
}

std::uint64_t Repository::GetBlobCount() const {
  return m_storage == nullptr ? 0 : m_storage->GetBlobCount();
}

void Repository::UpdateStorage() {
  if (m_storage != nullptr) m_storage->PurgeUnusedObjects();
}

IObjectsStorage* Repository::GetStorage() { return m_storage.get(); }
const IObjectsStorage* Repository::GetStorage() const { return m_storage.get(); }

}  // namespace TalVcs
