#include <talvcs/directory/internal/stored_entries.h>
#include <talvcs/format/id_text.h>
#include <talvcs/format/internal/commit_format.h>
#include <talvcs/format/internal/packed_format.h>
#include <talvcs/foundation/internal/contiguous_bytes.h>
#include <talvcs/objects/internal/absent_objects.h>
#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/objects/internal/tree_access.h>
#include <talvcs/storage/internal/find_in.h>
#include <talvcs/storage/internal/purge_table.h>
#include <talvcs/storage/internal/store_source.h>

#include <algorithm>
#include <string>
#include <utility>

namespace TalVcs {

namespace {

constexpr std::uint64_t kLargestWindow = 1024;

TalStringT<WideChar> Wide(std::string_view bytes) {
  return TalStringT<WideChar>(TalStringT<char>(TalStringViewT<char>(bytes)));
}

/// True for a text that can name a stored object, so that others are never asked for.
bool CanBeStored(const Id& id) { return IsIdText(id.View()); }

// Returns where the data begins. Throws unless the bytes have the digest that `id` says and are a
// packed form of that type.
std::size_t CheckPacked(const Id& id, const Buffer& packed, ObjectType type) {
  if (!(Id(packed) == id)) throw ObjectUnavailable(id, ObjectProblem::Damaged);
  const auto header = ReadPackedHeader(packed);
  if (!header) throw ObjectUnavailable(id, ObjectProblem::NotCanonical);
  if (header->type != type) throw ObjectUnavailable(id, ObjectProblem::Damaged);
  return header->headerBytes;
}

// Returns false for an object of another type. Throws if the type can't be trusted.
bool HasType(const Id& id, const Buffer& packed, ObjectType type) {
  const auto header = ReadPackedHeader(packed);
  if (!header || header->type == type) return true;
  if (!(Id(packed) == id)) throw ObjectUnavailable(id, ObjectProblem::Damaged);
  return false;
}

const CommitTable& TableOf(const StoreSource::NewObjects& news, const CommitTable*) {
  return news.commits;
}
const TreeTable& TableOf(const StoreSource::NewObjects& news, const TreeTable*) {
  return news.trees;
}
const BlobTable& TableOf(const StoreSource::NewObjects& news, const BlobTable*) {
  return news.blobs;
}

}  // namespace

/// Takes what a read passes on: one object that is wanted, and others for later.
class StoreSource::Received {
 public:
  Received(const Id& wanted, ReadAheadCache& ahead) : m_wanted(wanted), m_ahead(ahead) {}

  IObjectReader::Sink Sink() { return {this, &Received::Take}; }

  /// Returns the packed form; nothing if the store lacks the object. Throws if it has it and it
  /// can't be used.
  std::optional<Buffer> Get() const {
    if (m_packed || m_problem == ObjectProblem::Missing) return m_packed;
    throw ObjectUnavailable(m_wanted, m_problem);
  }

 private:
  static void Take(void* self, const Id& id, const Buffer* packed, ObjectProblem problem) {
    auto& received = *static_cast<Received*>(self);
    if (!(id == received.m_wanted)) {
      if (packed != nullptr) received.m_ahead.Put(id, *packed);
    } else if (packed != nullptr) {
      received.m_packed = *packed;
    } else {
      received.m_problem = problem;
    }
  }

  const Id& m_wanted;
  ReadAheadCache& m_ahead;
  std::optional<Buffer> m_packed;
  ObjectProblem m_problem = ObjectProblem::Missing;
};

StoreSource::StoreSource(std::shared_ptr<IObjectReader> reader) : m_reader(std::move(reader)) {}

void StoreSource::Attach(const NewObjects& news) { m_storages.push_back(&news); }

void StoreSource::Detach(const NewObjects& news) noexcept {
  std::erase(m_storages, &news);
  if (!m_storages.empty()) return;
  m_ahead.Clear();
  std::unordered_map<Place, cow_ptr<Tree>>().swap(m_latest);
  CommitTable().swap(m_commits);
  TreeTable().swap(m_trees);
  BlobTable().swap(m_blobs);
}

// If it wasn't read yet and the same was made here again, that is the canonical instance. It counts
// as read from now on, so that it stays so when its storage ends.
template <class T>
cow_ptr<T> StoreSource::FindStored(Table<T>& table, const Id& id) {
  if (cow_ptr<T> known = FindIn(table, id)) return known;
  for (const NewObjects* news : m_storages) {
    if (cow_ptr<T> found = FindIn(TableOf(*news, &table), id)) {
      table.try_emplace(id, found);
      return found;
    }
  }
  return nullptr;
}

template <class T>
cow_ptr<T> StoreSource::Remember(Table<T>& table, const Id& id, cow_ptr<T> object) {
  if (m_storages.empty()) return object;
  return table.try_emplace(id, std::move(object)).first->second;
}

std::optional<Buffer> StoreSource::ReadIfStored(const Id& id) {
  if (std::optional<Buffer> packed = m_ahead.Take(id)) return packed;
  Received received(id, m_ahead);
  m_reader->Read(std::span(&id, 1), ReadAhead::None, 1, received.Sink());
  return received.Get();
}

Buffer StoreSource::Read(const Id& id, ReadAhead ahead, std::uint64_t history) {
  m_ahead.MakeRoom();
  Received received(id, m_ahead);
  m_reader->Read(std::span(&id, 1), ahead, history, received.Sink());
  std::optional<Buffer> packed = received.Get();
  if (!packed) throw ObjectUnavailable(id, ObjectProblem::Missing);
  return *std::move(packed);
}

cow_ptr<Blob> StoreSource::RememberBlob(const Id& id, const Buffer& packed) {
  const std::size_t start = CheckPacked(id, packed, ObjectType::Blob);
  Buffer data;
  data.AppendRange(packed, start, packed.GetSize() - start);
  const auto blob = std::make_shared<Blob>(std::move(data));
  blob->CacheId(id);
  return Remember(m_blobs, id, cow_ptr<Blob>(blob));
}

cow_ptr<Tree> StoreSource::RememberTree(const Id& id, const Buffer& packed, Place place) {
  const std::size_t start = CheckPacked(id, packed, ObjectType::Tree);
  const TalUtils::ContiguousBytes records(packed, start);
  const auto tree = std::make_shared<Tree>();
  const cow_ptr<Tree> latest = FindIn(m_latest, place);
  auto entries =
      RestoreEntries(records.Get(), latest ? TreeAccess::Entries(*latest) : nullptr, *this, place);
  if (!entries) throw ObjectUnavailable(id, ObjectProblem::NotCanonical);
  TreeAccess::Restore(*tree, id, std::move(*entries));
  cow_ptr<Tree> remembered = Remember(m_trees, id, cow_ptr<Tree>(tree));
  if (!m_storages.empty()) m_latest[place] = remembered;
  return remembered;
}

cow_ptr<Commit> StoreSource::RememberCommit(const Id& id, const Buffer& packed) {
  const std::size_t start = CheckPacked(id, packed, ObjectType::Commit);
  const TalUtils::ContiguousBytes text(packed, start);
  const auto fields = ReadCommitText(text.Get());
  if (!fields) throw ObjectUnavailable(id, ObjectProblem::NotCanonical);
  const auto commit = std::make_shared<Commit>();
  commit->SetAuthorName(Wide(fields->authorName));
  commit->SetAuthorEmail(Wide(fields->authorEmail));
  commit->SetDescription(Wide(fields->description));
  commit->SetCommitTime(fields->time);
  commit->SetCommitTimezoneBias(fields->bias);
  if (!fields->parentId.empty()) {
    CommitAccess::SetAbsentParent(*commit, Id(Wide(fields->parentId)), *this);
  }
  if (fields->treeId.empty()) {
    CommitAccess::SetNoTree(*commit);
  } else {
    CommitAccess::SetAbsentTree(*commit, Id(Wide(fields->treeId)), *this);
  }
  CommitAccess::CacheId(*commit, id);
  return Remember(m_commits, id, cow_ptr<Commit>(commit));
}

cow_ptr<Object> StoreSource::OpenEntry(EntryKind kind, const Id& id, Place place) {
  if (kind == EntryKind::Tree) return OpenTree(id, place);
  if (cow_ptr<Blob> known = FindStored(m_blobs, id)) return known;
  const std::optional<Buffer> ahead = m_ahead.Take(id);
  return RememberBlob(id, ahead ? *ahead : Read(id, ReadAhead::None, 1));
}

cow_ptr<Tree> StoreSource::OpenRoot(const Id& id) { return OpenTree(id, kRootPlace); }

cow_ptr<Tree> StoreSource::OpenTree(const Id& id, Place place) {
  if (cow_ptr<Tree> known = FindStored(m_trees, id)) return known;
  const std::optional<Buffer> ahead = m_ahead.Take(id);
  return RememberTree(id, ahead ? *ahead : Read(id, ReadAhead::None, 1), place);
}

// A walk that goes on from commit to parent reads twice as many at each read.
cow_ptr<Commit> StoreSource::OpenParent(const Id& id, const Id& child) {
  if (cow_ptr<Commit> known = FindStored(m_commits, id)) return known;
  auto run = std::find_if(m_runs.begin(), m_runs.end(),
                          [&](const Run& candidate) { return candidate.last == child; });
  if (run == m_runs.end() || child.View().IsEmpty()) {
    run = m_runs.begin() + static_cast<std::ptrdiff_t>(m_nextRun++ % m_runs.size());
    *run = Run();
  }
  std::optional<Buffer> packed = m_ahead.Take(id);
  if (!packed) {
    const ReadAhead ahead = run->window == 1 ? ReadAhead::None : ReadAhead::History;
    packed = Read(id, ahead, run->window);
    run->window = std::min(2 * run->window, kLargestWindow);
  }
  cow_ptr<Commit> parent = RememberCommit(id, *packed);
  run->last = id;
  return parent;
}

cow_ptr<Commit> StoreSource::OpenHead(const Id& id) {
  if (cow_ptr<Commit> known = FindStored(m_commits, id)) return known;
  const std::optional<Buffer> ahead = m_ahead.Take(id);
  return RememberCommit(id, ahead ? *ahead : Read(id, ReadAhead::None, 1));
}

void StoreSource::ExpectTrees(std::span<const ExpectedTree> trees, bool deep) {
  if (m_storages.empty()) return;
  std::vector<Id> wanted;
  std::unordered_map<Id, Place> places;
  for (const auto& [id, place] : trees) {
    if (FindStored(m_trees, id) || m_ahead.Contains(id)) continue;
    if (places.emplace(id, place).second) wanted.push_back(id);
  }
  if (wanted.empty() || (wanted.size() == 1 && !deep)) return;
  struct Target {
    StoreSource& source;
    const std::unordered_map<Id, Place>& places;
  } target{*this, places};
  const auto take = [](void* object, const Id& id, const Buffer* packed, ObjectProblem) {
    auto& [source, wanted_places] = *static_cast<Target*>(object);
    if (packed == nullptr) return;
    const auto place = wanted_places.find(id);
    if (place == wanted_places.end()) {
      source.m_ahead.Put(id, *packed);
    } else if (!source.m_trees.contains(id)) {
      try {
        source.RememberTree(id, *packed, place->second);
      } catch (const ObjectUnavailable&) {
        // The link that is followed reads it again and says what is wrong.
      }
    }
  };
  m_ahead.MakeRoom();
  m_reader->Read(wanted, deep ? ReadAhead::Subtrees : ReadAhead::None, 1, {&target, take});
}

template <class T>
void StoreSource::Expect(Table<T>& table, std::span<const Id> ids) {
  std::vector<Id> wanted;
  for (const Id& id : ids) {
    if (!CanBeStored(id) || FindStored(table, id) || m_ahead.Contains(id)) continue;
    wanted.push_back(id);
  }
  if (wanted.size() < 2) return;
  const auto take = [](void* self, const Id& id, const Buffer* packed, ObjectProblem) {
    if (packed != nullptr) static_cast<StoreSource*>(self)->m_ahead.Put(id, *packed);
  };
  m_ahead.MakeRoom();
  m_reader->Read(wanted, ReadAhead::None, 1, {this, take});
}

void StoreSource::ExpectCommits(std::span<const Id> ids) { Expect(m_commits, ids); }

void StoreSource::ExpectBlobs(std::span<const Id> ids) { Expect(m_blobs, ids); }

cow_ptr<Commit> StoreSource::FindCommit(const Id& id, bool inHand) {
  if (cow_ptr<Commit> known = FindIn(m_commits, id)) return known;
  if (inHand || !CanBeStored(id)) return nullptr;
  const std::optional<Buffer> packed = ReadIfStored(id);
  if (!packed || !HasType(id, *packed, ObjectType::Commit)) return nullptr;
  if (cow_ptr<Commit> known = FindStored(m_commits, id)) return known;
  return RememberCommit(id, *packed);
}

cow_ptr<Tree> StoreSource::FindTree(const Id& id, bool inHand) {
  if (cow_ptr<Tree> known = FindIn(m_trees, id)) return known;
  if (inHand || !CanBeStored(id)) return nullptr;
  const std::optional<Buffer> packed = ReadIfStored(id);
  if (!packed || !HasType(id, *packed, ObjectType::Tree)) return nullptr;
  if (cow_ptr<Tree> known = FindStored(m_trees, id)) return known;
  return RememberTree(id, *packed, kRootPlace);
}

cow_ptr<Blob> StoreSource::FindBlob(const Id& id, bool inHand) {
  if (cow_ptr<Blob> known = FindIn(m_blobs, id)) return known;
  if (inHand || !CanBeStored(id)) return nullptr;
  const std::optional<Buffer> packed = ReadIfStored(id);
  if (!packed) return nullptr;
  if (!HasType(id, *packed, ObjectType::Blob)) {
    m_ahead.Put(id, *packed);  // a look-up of an object of any type asks for a tree next
    return nullptr;
  }
  if (cow_ptr<Blob> known = FindStored(m_blobs, id)) return known;
  return RememberBlob(id, *packed);
}

void StoreSource::AddSaved(cow_ptr<Commit> commit) {
  Id id = commit->GetId();
  m_commits.emplace(std::move(id), std::move(commit));
}

void StoreSource::AddSaved(cow_ptr<Tree> tree) {
  Id id = tree->GetId();
  m_trees.emplace(std::move(id), std::move(tree));
}

void StoreSource::AddSaved(cow_ptr<Blob> blob) {
  Id id = blob->GetId();
  m_blobs.emplace(std::move(id), std::move(blob));
}

bool StoreSource::Holds(EntryKind kind, const Object& object) const {
  if (kind == EntryKind::Blob) return FindIn(m_blobs, object.GetId()).get() == &object;
  return FindIn(m_trees, object.GetId()).get() == &object;
}

// A clone may have made the same commit apart. Its children come to the instance in the table.
void StoreSource::CloseLinks(const Commit& commit) {
  const cow_ptr<Commit>& parent = CommitAccess::PresentParent(commit);
  if (parent && Has(*parent)) {
    const Id id = parent->GetId();
    CommitAccess::SetAbsentParent(commit, id, *this);
  }
  const cow_ptr<Tree> root = CommitAccess::PresentRoot(commit);
  if (root && Holds(EntryKind::Tree, *root)) {
    CommitAccess::SetAbsentTree(commit, root->GetId(), *this);
  }
}

// Only chunks that belong to directories of a source alone can do without their handles.
void StoreSource::CloseLinks(const Tree& tree) {
  const TreeEntries* list = TreeAccess::Entries(tree);
  if (list == nullptr || list->Source() != this) return;
  for (const EntryChunk* chunk : list->Chunks()) {
    if (!chunk->HasSource()) continue;
    for (std::size_t index = 0; index < chunk->Count(); ++index) {
      const EntryChunk::Slot slot = chunk->At(index);
      if (*slot.child && slot.record.length != 0 && Holds(slot.kind, **slot.child)) {
        chunk->SetChild(index, nullptr);
      }
    }
  }
}

void StoreSource::Trim(const CommitTable& newCommits, const TreeTable& newTrees) {
  m_ahead.Clear();
  m_runs.fill(Run());
  std::unordered_map<Place, cow_ptr<Tree>>().swap(m_latest);
  PurgeTable(m_commits);
  for (const auto& [id, commit] : m_commits) CloseLinks(*commit);
  for (const auto& [id, commit] : newCommits) CloseLinks(*commit);
  PurgeTable(m_commits);
  PurgeTable(m_trees);
  for (const auto& [id, tree] : m_trees) CloseLinks(*tree);
  for (const auto& [id, tree] : newTrees) CloseLinks(*tree);
  PurgeTable(m_trees);
  PurgeTable(m_blobs);
  m_commits.rehash(0);
  m_trees.rehash(0);
  m_blobs.rehash(0);
}

}  // namespace TalVcs
