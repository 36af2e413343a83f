#include <talvcs/storage/internal/find_in.h>
#include <talvcs/storage/mem_objects_storage.h>

#include <utility>

namespace TalVcs {

namespace {

template <class T>
void AddObject(std::unordered_map<Id, cow_ptr<T>>& table, cow_ptr<T> object) {
  Id id = object->GetId();
  table.try_emplace(std::move(id), std::move(object));
}

}  // namespace

MemObjectsStorage::MemObjectsStorage() : MemObjectsStorage({TAL_WIDE("master")}) {}

MemObjectsStorage::MemObjectsStorage(std::initializer_list<TalStringViewT<WideChar>> names) {
  for (const auto& name : names) m_refs[name.ToString()] = nullptr;
}

MemObjectsStorage::MemObjectsStorage(const MemObjectsStorage& other) = default;

MemObjectsStorage::MemObjectsStorage(MemObjectsStorage&& other) noexcept
    : m_commits(std::exchange(other.m_commits, {})),
      m_trees(std::exchange(other.m_trees, {})),
      m_blobs(std::exchange(other.m_blobs, {})),
      m_refs(std::exchange(other.m_refs, {})) {}

MemObjectsStorage& MemObjectsStorage::operator=(const MemObjectsStorage& other) {
  if (this != &other) *this = MemObjectsStorage(other);
  return *this;
}

MemObjectsStorage& MemObjectsStorage::operator=(MemObjectsStorage&& other) noexcept {
  if (this == &other) return *this;
  m_commits = std::exchange(other.m_commits, {});
  m_trees = std::exchange(other.m_trees, {});
  m_blobs = std::exchange(other.m_blobs, {});
  m_refs = std::exchange(other.m_refs, {});
  return *this;
}

MemObjectsStorage::~MemObjectsStorage() = default;

std::unique_ptr<IObjectsStorage> MemObjectsStorage::Clone() const {
  return std::make_unique<MemObjectsStorage>(*this);
}

cow_ptr<Commit> MemObjectsStorage::GetCommit(const Id& id) const { return FindIn(m_commits, id); }
cow_ptr<Tree> MemObjectsStorage::GetTree(const Id& id) const { return FindIn(m_trees, id); }
cow_ptr<Blob> MemObjectsStorage::GetBlob(const Id& id) const { return FindIn(m_blobs, id); }

void MemObjectsStorage::AddCommit(cow_ptr<Commit> commit) {
  AddObject(m_commits, std::move(commit));
}
void MemObjectsStorage::AddTree(cow_ptr<Tree> tree) { AddObject(m_trees, std::move(tree)); }
void MemObjectsStorage::AddBlob(cow_ptr<Blob> blob) { AddObject(m_blobs, std::move(blob)); }

std::uint64_t MemObjectsStorage::GetCommitCount() const { return m_commits.size(); }
std::uint64_t MemObjectsStorage::GetTreeCount() const { return m_trees.size(); }
std::uint64_t MemObjectsStorage::GetBlobCount() const { return m_blobs.size(); }

const CommitTable& MemObjectsStorage::GetCommits() const { return m_commits; }
const TreeTable& MemObjectsStorage::GetTrees() const { return m_trees; }
const BlobTable& MemObjectsStorage::GetBlobs() const { return m_blobs; }
const RefTable& MemObjectsStorage::GetRefs() const { return m_refs; }

bool MemObjectsStorage::BranchExist(TalStringViewT<WideChar> name) const {
  return m_refs.contains(name.ToString());
}

bool MemObjectsStorage::CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) {
  if (name.IsEmpty()) return false;
  return m_refs.try_emplace(name.ToString(), std::move(commit)).second;
}

bool MemObjectsStorage::RemoveBranch(TalStringViewT<WideChar> name) {
  return m_refs.erase(name.ToString()) != 0;
}

bool MemObjectsStorage::UpdateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) {
  if (name.IsEmpty() || !commit) return false;
  const auto found = m_refs.find(name.ToString());
  if (found == m_refs.end()) return false;
  found->second = std::move(commit);
  return true;
}

cow_ptr<Commit> MemObjectsStorage::GetHead(TalStringViewT<WideChar> name) const {
  const IObjectsStorage& self = *this;
  if (!self.BranchExist(name)) return nullptr;
  const auto found = m_refs.find(name.ToString());
  return found == m_refs.end() ? nullptr : found->second;
}

std::vector<TalStringT<WideChar>> MemObjectsStorage::GetCommitBranches(
    cow_ptr<Commit> commit) const {
  std::vector<TalStringT<WideChar>> names;
  for (const auto& [name, head] : m_refs) {
    if (head == commit) names.push_back(name);
  }
  return names;
}

}  // namespace TalVcs
