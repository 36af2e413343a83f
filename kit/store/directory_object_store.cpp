#include <kit/internal/state_file.h>
#include <kit/internal/store_access.h>
#include <kit/internal/store_folder.h>
#include <kit/internal/stored_objects.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/head_table.h>
#include <kit/store/internal/removal_watch.h>
#include <kit/store/quietly.h>
#include <kit/store/read_history.h>
#include <kit/text.h>

#include <algorithm>
#include <set>
#include <thread>
#include <utility>

// A save in the order in which things happen on the medium:
//
//     new objects in the newest pack  -  sync  -  record in the journal  -  sync
//
// `StoredObjects` says how large objects come between, `ObjectRemoval` how a removal goes on.
//
// Locks: every writer shares the lock of the readers, so that no object goes while it works, and
// then takes the lock of the writers. A removal takes the lock of the readers alone. A look by
// `Missing` shares it too: what it finds was there at the count of removals that it has read.

namespace TalVcs::Kit {

namespace {

// Ids that a listing passes by one call.
constexpr std::size_t kListedTogether = 4096;

Error StoreExists(const std::filesystem::path& folder) {
  Error error;
  error.code = ErrorCode::Conflict;
  error.subject = StoreFolder::TextOf(folder);
  error.message = "cannot create a store in \"" + error.subject + "\", there is one";
  return error;
}

Error ObjectsAreInUse(Error error, const char* who) {
  if (error.code != ErrorCode::Busy) return error;
  error.cause = who;
  return error;
}

}  // namespace

class DirectoryObjectStore::Impl {
 public:
  Impl(const std::filesystem::path& path, DirectoryObjectStoreOptions storeOptions,
       std::shared_ptr<FileSystem> files)
      : folder(path, storeOptions.durable, std::move(files)),
        state(folder, storeOptions.rootPath),
        objects(folder, state, storeOptions.compress),
        options(std::move(storeOptions)) {}

  /// What an operation holds while it writes.
  struct Writing {
    std::unique_ptr<FileLock> readers;
    std::unique_ptr<FileLock> writer;
  };

  Status Create(const std::filesystem::path& path);
  Result<std::unique_ptr<FileLock>> LockWriter();
  Result<std::unique_ptr<FileLock>> KeepObjects();
  void LockObjects() noexcept;
  Status BeginWriting(Writing& writing);
  Status PrepareToWrite();
  Status Upgrade();
  Status Rely(std::unique_ptr<FileLock>& readers);
  Result<Buffer> ReadOne(const Id& id);
  Result<std::vector<std::optional<std::uint64_t>>> SizesOf(std::span<const Id> ids);
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark);

  StoreFolder folder;
  StateFile state;
  StoredObjects objects;
  const DirectoryObjectStoreOptions options;
  RemovalWatch watch;
  /// Shared since the heads were read, alone during a removal.
  std::unique_ptr<FileLock> readerLock;
};

Result<std::unique_ptr<FileLock>> DirectoryObjectStore::Impl::LockWriter() {
  const auto until = std::chrono::steady_clock::now() + options.busyTimeout;
  for (;;) {
    std::unique_ptr<FileLock> lock = folder.LockWriter();
    if (lock) return lock;
    const Error& failure = folder.LastFailure();
    if (failure.code != ErrorCode::Busy || std::chrono::steady_clock::now() >= until) {
      return failure;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

/// Keeps removals away; null if this store object does so already.
Result<std::unique_ptr<FileLock>> DirectoryObjectStore::Impl::KeepObjects() {
  if (readerLock) return std::unique_ptr<FileLock>();
  std::unique_ptr<FileLock> lock = folder.TryLockReaders(LockKind::Shared);
  if (lock) return lock;
  return ObjectsAreInUse(folder.LastFailure(), "objects are being removed");
}

/// Keeps removals away from now on. Where that fails, also for want of memory, the next `Heads`
/// tries again; until then a save that a removal harms fails with `Busy`.
void DirectoryObjectStore::Impl::LockObjects() noexcept {
  std::unique_ptr<FileLock> lock;
  Quietly([&] { lock = folder.LockReader(); });
  readerLock = std::move(lock);
}

Status DirectoryObjectStore::Impl::Create(const std::filesystem::path& path) {
  if (!folder.Make()) return folder.LastFailure();
  const Result<std::unique_ptr<FileLock>> lock = LockWriter();
  if (!lock) return lock.error();
  const Status found = state.Refresh();
  if (found) return StoreExists(path);
  if (found.error().code != ErrorCode::NotFound) return found;
  if (!folder.SyncWritten()) return folder.LastFailure();
  folder.ForgetWritten();
  return state.Replace(JournalState());
}

Status DirectoryObjectStore::Impl::BeginWriting(Writing& writing) {
  Result<std::unique_ptr<FileLock>> readers = KeepObjects();
  if (!readers) return std::move(readers).error();
  writing.readers = *std::move(readers);
  Result<std::unique_ptr<FileLock>> writer = LockWriter();
  if (!writer) return std::move(writer).error();
  writing.writer = *std::move(writer);
  return PrepareToWrite();
}

Status DirectoryObjectStore::Impl::PrepareToWrite() {
  if (Status status = state.Refresh(); !status) return status;
  return state.Former() == nullptr ? objects.FinishRemoval() : Upgrade();
}

/// Replaces a former state by a journal. To a `DirectoryStore`, a file that its state doesn't name
/// is no object and may be incomplete; in a store with a journal each file is an object.
Status DirectoryObjectStore::Impl::Upgrade() {
  if (Status status = objects.CheckFiles(*state.Former()); !status) return status;
  const JournalState former = state.Get();
  return state.Replace(former);
}

/// Remembers the present count of removals, unless a save has begun already. No object goes as
/// long as `readers` is held.
Status DirectoryObjectStore::Impl::Rely(std::unique_ptr<FileLock>& readers) {
  if (!watch.IsUnused()) return {};
  Result<std::unique_ptr<FileLock>> lock = KeepObjects();
  // A folder in which nothing can be locked can't be written to either.
  if (!lock && lock.error().code == ErrorCode::Busy) return std::move(lock).error();
  if (lock) readers = *std::move(lock);
  if (Status status = state.Refresh(); !status) return status;
  watch.Rely(state.Get().removals);
  return {};
}

Result<Buffer> DirectoryObjectStore::Impl::ReadOne(const Id& id) {
  const std::optional<ObjectKey> key = KeyOf(id);
  if (!key) return NoSuchObject(id);
  Result<Buffer> packed = objects.Read(*key);
  if (packed) return packed;
  // It may be in a pack that is new, or that has taken the place of others.
  if (Status status = state.Refresh(); !status) {
    // A reader of heads knows where the objects are that it doesn't miss.
    const bool is_known = readerLock && packed.error().code != ErrorCode::NotFound;
    return is_known ? std::move(packed) : std::move(status).error();
  }
  return objects.Read(*key);
}

Result<std::vector<std::optional<std::uint64_t>>> DirectoryObjectStore::Impl::SizesOf(
    std::span<const Id> ids) {
  std::vector<std::optional<std::uint64_t>> sizes;
  sizes.reserve(ids.size());
  for (const Id& id : ids) {
    const std::optional<ObjectKey> key = KeyOf(id);
    Result<std::optional<std::uint64_t>> size =
        key ? objects.SizeOf(*key) : std::optional<std::uint64_t>();
    if (!size) return std::move(size).error();
    sizes.push_back(*size);
  }
  return sizes;
}

Result<RemovedObjects> DirectoryObjectStore::Impl::RemoveUnmarked(const MarkObjects& mark) {
  const Result<std::unique_ptr<FileLock>> writer = LockWriter();
  if (!writer) return writer.error();
  if (Status status = PrepareToWrite(); !status) return std::move(status).error();
  std::set<ObjectKey> kept;
  {
    const Result<std::vector<Id>> marked = mark(ListHeads(state.Get().heads));
    if (!marked) return marked.error();
    for (const Id& id : *marked) {
      if (const std::optional<ObjectKey> key = KeyOf(id)) kept.insert(*key);
    }
  }
  return objects.RemoveAllBut(kept);
}

DirectoryObjectStore::DirectoryObjectStore(std::unique_ptr<Impl> impl) noexcept
    : m_impl(std::move(impl)) {}
DirectoryObjectStore::DirectoryObjectStore(DirectoryObjectStore&& other) noexcept = default;
DirectoryObjectStore& DirectoryObjectStore::operator=(DirectoryObjectStore&& other) noexcept =
    default;
DirectoryObjectStore::~DirectoryObjectStore() = default;

Result<DirectoryObjectStore> StoreAccess::Open(const std::filesystem::path& folder,
                                               DirectoryObjectStoreOptions options,
                                               std::shared_ptr<FileSystem> files) {
  auto impl =
      std::make_unique<DirectoryObjectStore::Impl>(folder, std::move(options), std::move(files));
  if (Status status = impl->state.Refresh(); !status) return std::move(status).error();
  return DirectoryObjectStore(std::move(impl));
}

Result<DirectoryObjectStore> StoreAccess::Create(const std::filesystem::path& folder,
                                                 DirectoryObjectStoreOptions options,
                                                 std::shared_ptr<FileSystem> files) {
  auto impl =
      std::make_unique<DirectoryObjectStore::Impl>(folder, std::move(options), std::move(files));
  if (Status status = impl->Create(folder); !status) return std::move(status).error();
  return DirectoryObjectStore(std::move(impl));
}

Result<DirectoryObjectStore> DirectoryObjectStore::Open(const std::filesystem::path& folder,
                                                        DirectoryObjectStoreOptions options) {
  return StoreAccess::Open(StoreFolder::AbsolutePath(folder), std::move(options),
                           MakeNativeFileSystem());
}

Result<DirectoryObjectStore> DirectoryObjectStore::Create(const std::filesystem::path& folder,
                                                          DirectoryObjectStoreOptions options) {
  return StoreAccess::Create(StoreFolder::AbsolutePath(folder), std::move(options),
                             MakeNativeFileSystem());
}

Result<std::vector<Id>> DirectoryObjectStore::Missing(std::span<const Id> ids) {
  std::unique_ptr<FileLock> readers;
  if (Status status = m_impl->Rely(readers); !status) return std::move(status).error();
  if (Status status = m_impl->state.Refresh(); !status) return std::move(status).error();
  const Result<std::vector<std::optional<std::uint64_t>>> sizes = m_impl->SizesOf(ids);
  if (!sizes) return sizes.error();
  std::vector<Id> missing;
  for (std::size_t index = 0; index < ids.size(); ++index) {
    if (!(*sizes)[index]) missing.push_back(ids[index]);
  }
  return missing;
}

Status DirectoryObjectStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  // Bytes that are found are those of the id, also in a pack that has lost its name since. So only
  // what isn't found needs a look at the journal.
  for (const Id& id : ids) sink(id, m_impl->ReadOne(id));
  return {};
}

Status DirectoryObjectStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  return ReadHistoryByParents(*this, id, most, sink);
}

Result<std::vector<std::optional<std::uint64_t>>> DirectoryObjectStore::Sizes(
    std::span<const Id> ids) {
  if (Status status = m_impl->state.Refresh(); !status) return std::move(status).error();
  return m_impl->SizesOf(ids);
}

Status DirectoryObjectStore::Write(std::span<const StoredObject> objects) {
  const auto bad = std::find_if(objects.begin(), objects.end(),
                                [](const StoredObject& object) { return !IsObjectId(object.id); });
  if (bad != objects.end()) return NotAnObjectId(bad->id);
  Impl::Writing writing;
  if (Status status = m_impl->BeginWriting(writing); !status) return status;
  const std::uint64_t removals = m_impl->state.Get().removals;
  m_impl->watch.Rely(removals);
  if (!m_impl->watch.MayGoOn(removals)) return ObjectsWereRemoved();
  const Result<bool> begun = m_impl->objects.BeginWriting();
  if (!begun) return begun.error();
  return m_impl->objects.Write(objects);
}

Result<std::vector<Head>> DirectoryObjectStore::Heads() {
  // The lock comes first: what a head reaches that is read under it stays.
  if (!m_impl->readerLock) m_impl->readerLock = m_impl->folder.LockReader();
  if (Status status = m_impl->state.Refresh(); !status) return std::move(status).error();
  return ListHeads(m_impl->state.Get().heads);
}

Status DirectoryObjectStore::MoveHeads(std::span<const HeadMove> moves) {
  Impl::Writing writing;
  if (Status status = m_impl->BeginWriting(writing); !status) return status;
  const JournalState& state = m_impl->state.Get();
  if (Status status = CheckMoves(state.heads, moves); !status) return status;
  if (!m_impl->watch.MayGoOn(state.removals)) return ObjectsWereRemoved();
  // What a failed write has removed again may have been found meanwhile.
  const Result<bool> kept = m_impl->objects.BeginWriting();
  if (!kept) return kept.error();
  if (!*kept) return ObjectsWereRemoved();
  JournalChanges changes;
  if (Status status = m_impl->objects.Keep(changes); !status) return status;
  changes.Move(moves);
  Status status = moves.empty() ? Status() : m_impl->state.Record(changes);
  if (status) m_impl->watch.Moved();
  return status;
}

Status DirectoryObjectStore::List(const IdSink& sink) {
  if (Status status = m_impl->state.Refresh(); !status) return status;
  std::vector<Id> ids;
  bool goes_on = true;
  const auto pass = [&] {
    if (goes_on && !ids.empty()) goes_on = sink(ids);
    ids.clear();
  };
  const Status status = m_impl->objects.Visit([&](const ObjectKey& key) {
    ids.push_back(IdOf(key));
    if (ids.size() == kListedTogether) pass();
  });
  if (status) pass();
  return status;
}

Result<RemovedObjects> DirectoryObjectStore::RemoveUnmarked(const MarkObjects& mark) {
  const bool keeps_objects = m_impl->readerLock != nullptr;
  m_impl->readerLock.reset();
  // Gives the lock back that the readers have, however the removal ends.
  struct Restore {
    ~Restore() {
      impl.readerLock.reset();
      if (keeps) impl.LockObjects();
    }
    Impl& impl;
    bool keeps;
  } restore{*m_impl, keeps_objects};
  m_impl->readerLock = m_impl->folder.TryLockReaders(LockKind::Exclusive);
  if (!m_impl->readerLock) {
    return ObjectsAreInUse(m_impl->folder.LastFailure(), "somebody reads or writes");
  }
  return m_impl->RemoveUnmarked(mark);
}

Result<std::optional<std::string>> DirectoryObjectStore::Value(std::string_view name) {
  if (Status status = m_impl->state.Refresh(); !status) return std::move(status).error();
  const auto& values = m_impl->state.Get().values;
  const auto found = values.find(name);
  return found == values.end() ? std::nullopt : std::optional(found->second);
}

Status DirectoryObjectStore::SetValue(std::string_view name,
                                      std::optional<std::string_view> value) {
  Impl::Writing writing;
  if (Status status = m_impl->BeginWriting(writing); !status) return status;
  const auto& values = m_impl->state.Get().values;
  const auto found = values.find(name);
  if (found == values.end() ? !value : value == found->second) return {};
  JournalChanges changes;
  if (value) {
    changes.SetValue(name, *value);
  } else {
    changes.RemoveValue(name);
  }
  return m_impl->state.Record(changes);
}

Status DirectoryObjectStore::Replace(std::span<const StoredObject> objects) {
  for (const StoredObject& object : objects) {
    if (!IsObjectId(object.id)) return NotAnObjectId(object.id);
  }
  Impl::Writing writing;
  if (Status status = m_impl->BeginWriting(writing); !status) return status;
  const Result<bool> begun = m_impl->objects.BeginWriting();
  if (!begun) return begun.error();
  JournalChanges changes;
  Status status = m_impl->objects.Replace(objects);
  if (status) status = m_impl->objects.Keep(changes);
  return !status || changes.IsEmpty() ? status : m_impl->state.Record(changes);
}

void DirectoryObjectStore::Trim() noexcept { m_impl->objects.Trim(); }

}  // namespace TalVcs::Kit
