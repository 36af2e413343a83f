#include <talvcs/directory/internal/entry_ref.h>
#include <talvcs/directory/internal/tree_entries.h>
#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/objects/internal/in_hand.h>
#include <talvcs/objects/internal/tree_access.h>
#include <talvcs/storage/internal/find_in.h>
#include <talvcs/storage/internal/purge_table.h>
#include <talvcs/storage/internal/store_source.h>
#include <talvcs/storage/internal/unsaved_walk.h>
#include <talvcs/storage/on_demand_storage.h>

#include <functional>
#include <map>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <variant>

namespace TalVcs {

namespace {

/// Moves objects from what is new to what the store has. The instance in the table is the canonical
/// one.
struct MoveToSource {
  StoreSource& source;
  StoreSource::NewObjects& news;

  void operator()(const cow_ptr<Commit>& commit) const { MoveOne(news.commits, commit); }
  void operator()(const cow_ptr<Tree>& tree) const { MoveOne(news.trees, tree); }
  void operator()(const cow_ptr<Blob>& blob) const { MoveOne(news.blobs, blob); }

  template <class T>
  void MoveOne(std::unordered_map<Id, cow_ptr<T>>& table, const cow_ptr<T>& object) const {
    const auto found = table.find(object->GetId());
    source.AddSaved(found == table.end() ? object : found->second);
    if (found != table.end()) table.erase(found);
  }
};

/// Hashes all units of a name. The hash of the tables looks at ten of them: of some hundred
/// thousand branches with long names and numbers at the end, thousands would share one.
struct WholeNameHash {
  std::size_t operator()(const TalStringT<WideChar>& name) const noexcept {
    const TalStringViewT<WideChar> view(name);
    const std::basic_string_view<WideChar> units(view.text, static_cast<std::size_t>(view.length));
    return std::hash<std::basic_string_view<WideChar>>()(units);
  }
};

#ifndef __cpp_rtti
// The storage on demand that this thread asked last for its number of commits.
constinit thread_local const OnDemandStorage* s_counted = nullptr;
#endif

}  // namespace

/// The state of a storage. What it hands to the source stays at its address.
class OnDemandStorage::Impl {
 public:
  explicit Impl(TalUtils::CountedPtr<StoreSource> store) : held(std::move(store)), source(*held) {
    source.Attach(news);
  }
  Impl(const Impl& other)
      : held(other.held),
        source(*held),
        news(other.news),
        refs(other.refs),
        unread(other.unread),
        deleted(other.deleted) {
    source.Attach(news);
  }
  Impl& operator=(const Impl&) = delete;
  // The handles on objects go before the source forgets its own.
  ~Impl() {
    refs.clear();
    passed.clear();
    news = {};
    source.Detach(news);
  }

  /// Returns the head, which is read at the first call.
  cow_ptr<Commit> OpenHead(const TalStringT<WideChar>& name) {
    const auto head = refs.find(name);
    if (head == refs.end()) return nullptr;
    const auto id = unread.find(name);
    if (id != unread.end()) {
      head->second = source.OpenHead(id->second);
      unread.erase(id);
    }
    return head->second;
  }

  /// Removes the new objects that the store turned out to have.
  template <class IsStored>
  void DropStored(IsStored isStored) {
    const auto is_stored = [&](const auto& entry) { return isStored(entry.second); };
    std::erase_if(news.commits, is_stored);
    std::erase_if(news.trees, is_stored);
    std::erase_if(news.blobs, is_stored);
  }

  void OpenAllHeads() {
    std::vector<Id> ids;
    for (const auto& [name, id] : unread) ids.push_back(id);
    source.ExpectCommits(ids);
    while (!unread.empty()) {
      const TalStringT<WideChar> name = unread.begin()->first;
      OpenHead(name);
    }
  }

  const TalUtils::CountedPtr<StoreSource> held;
  StoreSource& source;
  StoreSource::NewObjects news;
  // A head that wasn't read yet is null here, and its id stands among the unread ones.
  RefTable refs;
  std::unordered_map<TalStringT<WideChar>, Id, WholeNameHash> unread;
  // Stored commits that were deleted here.
  std::unordered_set<Id> deleted;
  // What the last visit of what is unsaved has passed on.
  std::vector<UnsavedWalk::Object> passed;
};

OnDemandStorage::OnDemandStorage(std::shared_ptr<IObjectReader> reader,
                                 const std::vector<BranchHead>& heads) {
  TalUtils::CountedPtr<StoreSource> source(new StoreSource(std::move(reader)));
  m_impl = std::make_unique<Impl>(std::move(source));
  for (const auto& [name, id] : heads) {
    m_impl->refs.emplace(name, nullptr);
    if (!id.View().IsEmpty()) m_impl->unread.emplace(name, id);
  }
}

OnDemandStorage::OnDemandStorage(const OnDemandStorage& other)
    : IObjectsStorage(other), m_impl(std::make_unique<Impl>(*other.m_impl)) {}

OnDemandStorage::~OnDemandStorage() = default;

OnDemandStorage* OnDemandStorage::From(IObjectsStorage* storage) {
  return const_cast<OnDemandStorage*>(From(static_cast<const IObjectsStorage*>(storage)));
}

// Without type information, an object of the class notes the call. The addresses are compared
// because a host's storage may pass the call on to a storage that it wraps.
const OnDemandStorage* OnDemandStorage::From(const IObjectsStorage* storage) {
#ifdef __cpp_rtti
  return dynamic_cast<const OnDemandStorage*>(storage);
#else
  if (storage == nullptr) return nullptr;
  s_counted = nullptr;
  storage->GetCommitCount();
  return s_counted == storage ? s_counted : nullptr;
#endif
}

std::unique_ptr<IObjectsStorage> OnDemandStorage::Clone() const {
  return std::make_unique<OnDemandStorage>(*this);
}

cow_ptr<Commit> OnDemandStorage::GetCommit(const Id& id) const {
  if (cow_ptr<Commit> found = FindIn(m_impl->news.commits, id)) return found;
  if (m_impl->deleted.contains(id)) return nullptr;
  return m_impl->source.FindCommit(id, LookUpInHand::IsActive());
}

cow_ptr<Tree> OnDemandStorage::GetTree(const Id& id) const {
  if (cow_ptr<Tree> found = FindIn(m_impl->news.trees, id)) return found;
  return m_impl->source.FindTree(id, LookUpInHand::IsActive());
}

cow_ptr<Blob> OnDemandStorage::GetBlob(const Id& id) const {
  if (cow_ptr<Blob> found = FindIn(m_impl->news.blobs, id)) return found;
  return m_impl->source.FindBlob(id, LookUpInHand::IsActive());
}

// A commit that was deleted and is made again has a new instance, as in any storage.
void OnDemandStorage::AddCommit(cow_ptr<Commit> commit) {
  Id id = commit->GetId();
  if (m_impl->deleted.erase(id) == 0 && m_impl->source.Has(*commit)) return;
  m_impl->news.commits.try_emplace(std::move(id), std::move(commit));
}

void OnDemandStorage::AddTree(cow_ptr<Tree> tree) {
  if (m_impl->source.Has(*tree)) return;
  Id id = tree->GetId();
  m_impl->news.trees.try_emplace(std::move(id), std::move(tree));
}

void OnDemandStorage::AddBlob(cow_ptr<Blob> blob) {
  if (m_impl->source.Has(*blob)) return;
  Id id = blob->GetId();
  m_impl->news.blobs.try_emplace(std::move(id), std::move(blob));
}

std::uint64_t OnDemandStorage::GetCommitCount() const {
#ifndef __cpp_rtti
  s_counted = this;
#endif
  return m_impl->news.commits.size();
}
std::uint64_t OnDemandStorage::GetTreeCount() const { return m_impl->news.trees.size(); }
std::uint64_t OnDemandStorage::GetBlobCount() const { return m_impl->news.blobs.size(); }
const CommitTable& OnDemandStorage::GetCommits() const { return m_impl->news.commits; }
const TreeTable& OnDemandStorage::GetTrees() const { return m_impl->news.trees; }
const BlobTable& OnDemandStorage::GetBlobs() const { return m_impl->news.blobs; }

const RefTable& OnDemandStorage::GetRefs() const {
  m_impl->OpenAllHeads();
  return m_impl->refs;
}

std::vector<OnDemandStorage::BranchHead> OnDemandStorage::GetHeadIds() const {
  std::map<TalStringT<WideChar>, Id> ids;
  for (const auto& [name, head] : m_impl->refs) {
    const auto unread = m_impl->unread.find(name);
    if (unread != m_impl->unread.end()) {
      ids.emplace(name, unread->second);
    } else {
      ids.emplace(name, head ? head->GetId() : Id());
    }
  }
  return {ids.begin(), ids.end()};
}

void OnDemandStorage::ExpectCommits(std::span<const Id> ids) { m_impl->source.ExpectCommits(ids); }

void OnDemandStorage::ExpectBlobs(std::span<const Id> ids) { m_impl->source.ExpectBlobs(ids); }

void OnDemandStorage::ExpectRoots(std::span<const cow_ptr<Commit>> commits) {
  CommitAccess::ExpectRoots(commits);
}

void OnDemandStorage::ExpectSubtrees(std::span<const Subtree> subtrees) {
  std::vector<EntryRef> entries;
  for (const auto& [tree, name] : subtrees) {
    if (!tree) continue;
    entries.push_back(TreeEntries::Find(TreeAccess::Entries(*tree), name, EntryKind::Tree));
  }
  ExpectTrees(entries);
}

std::optional<ObjectType> OnDemandStorage::CopyEntry(const Tree& from,
                                                     TalStringViewT<WideChar> name, Tree& to) {
  for (const EntryKind kind : {EntryKind::Blob, EntryKind::Tree}) {
    const EntryRef entry = TreeEntries::Find(TreeAccess::Entries(from), name, kind);
    if (!entry.HasObject()) continue;
    TreeAccess::SetLike(to, entry);
    return kind == EntryKind::Blob ? ObjectType::Blob : ObjectType::Tree;
  }
  return std::nullopt;
}

// A commit of the store may have an instance of its id among the new ones as well.
void OnDemandStorage::DeleteCommit(cow_ptr<Commit> commit) {
  if (!commit) return;
  const Id id = commit->GetId();
  m_impl->news.commits.erase(id);
  m_impl->deleted.insert(id);
}

// What the last visit passed on is held for a save alone, and is visited again.
void OnDemandStorage::PurgeUnusedObjects() {
  m_impl->passed.clear();
  PurgeTable(m_impl->news.commits);
  PurgeTable(m_impl->news.trees);
  PurgeTable(m_impl->news.blobs);
}

bool OnDemandStorage::BranchExist(TalStringViewT<WideChar> name) const {
  return m_impl->refs.contains(name.ToString());
}

bool OnDemandStorage::CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) {
  if (name.IsEmpty()) return false;
  return m_impl->refs.try_emplace(name.ToString(), std::move(commit)).second;
}

bool OnDemandStorage::RemoveBranch(TalStringViewT<WideChar> name) {
  const TalStringT<WideChar> text = name.ToString();
  m_impl->unread.erase(text);
  return m_impl->refs.erase(text) != 0;
}

bool OnDemandStorage::UpdateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) {
  if (name.IsEmpty() || !commit) return false;
  const auto found = m_impl->refs.find(name.ToString());
  if (found == m_impl->refs.end()) return false;
  found->second = std::move(commit);
  m_impl->unread.erase(found->first);
  return true;
}

cow_ptr<Commit> OnDemandStorage::GetHead(TalStringViewT<WideChar> name) const {
  return m_impl->OpenHead(name.ToString());
}

std::vector<TalStringT<WideChar>> OnDemandStorage::GetCommitBranches(cow_ptr<Commit> commit) const {
  std::vector<TalStringT<WideChar>> names;
  const Id id = commit ? commit->GetId() : Id();
  for (const auto& [name, known] : m_impl->refs) {
    const auto unread = m_impl->unread.find(name);
    const bool may_stand_there = unread == m_impl->unread.end() || unread->second == id;
    if (may_stand_there && m_impl->OpenHead(name) == commit) names.push_back(name);
  }
  return names;
}

std::uint64_t OnDemandStorage::VisitUnsaved(UnsavedSink sink) const {
  UnsavedWalk walk(m_impl->source);
  for (const auto& [name, head] : m_impl->refs) walk.Visit(head);
  for (const UnsavedWalk::Object& object : walk.Found()) {
    std::visit([&](const auto& handle) { sink(handle->GetId(), handle->BuildPackedData()); },
               object);
  }
  m_impl->passed = walk.Take();
  return m_impl->passed.size();
}

void OnDemandStorage::MarkSaved() {
  const MoveToSource move{m_impl->source, m_impl->news};
  for (const UnsavedWalk::Object& object : m_impl->passed) std::visit(move, object);
  m_impl->passed.clear();
  m_impl->passed.shrink_to_fit();
  m_impl->deleted.clear();
  m_impl->DropStored([this](const auto& object) { return m_impl->source.HasInstance(object); });
}

void OnDemandStorage::Trim() {
  m_impl->passed.clear();
  m_impl->passed.shrink_to_fit();
  for (auto& [name, head] : m_impl->refs) {
    if (!head || !m_impl->source.Has(*head)) continue;
    m_impl->unread.emplace(name, head->GetId());
    head = nullptr;
  }
  m_impl->DropStored([this](const auto& object) { return m_impl->source.Has(*object); });
  m_impl->source.Trim(m_impl->news.commits, m_impl->news.trees);
}

}  // namespace TalVcs
