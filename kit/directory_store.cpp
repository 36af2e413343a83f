#include <kit/directory_store.h>
#include <kit/internal/file_system.h>
#include <kit/internal/object_paths.h>
#include <kit/internal/store_access.h>
#include <kit/internal/store_folder.h>
#include <kit/internal/store_paths.h>
#include <kit/internal/store_state.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/persistence/path_builder.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <unordered_set>
#include <utility>

// A save in the order in which things happen on the medium:
//
//     lock  -  new objects  -  sync  -  state.new  -  sync  -  rename to state
//           -  unused objects go
//
// The first save of all writes an empty state before its objects, so that objects without a state
// are never those of a save that didn't end.
//
// Up to the rename the file "state" names the old objects, all of which are still there; from then
// on it names the new ones, all of which are there already. Objects that "state" doesn't name are
// no part of the store, so what a killed process left of the first or the last step has no effect.
//
// Readers share a lock as long as they need the objects of their state. The last step needs it
// alone and is left to a later commit if it can't have it.

namespace TalVcs::Kit {

namespace {

struct KeyHash {
  std::size_t operator()(const ObjectKey& key) const noexcept {
    std::size_t hash = 0;
    std::memcpy(&hash, key.data(), sizeof(hash));
    return hash;
  }
};

/// What a save has brought together so far.
struct Transaction {
  std::shared_ptr<const StoredState> base;  // null if it couldn't begin
  StoreState next;                          // the objects in the order of arrival
  std::unordered_set<ObjectKey, KeyHash> written;
  bool failed = false;
};

}  // namespace

class DirectoryStore::Impl {
 public:
  Impl(const std::filesystem::path& folder, DirectoryStoreOptions options,
       std::shared_ptr<FileSystem> fileSystem)
      : files(folder, options.durable, std::move(fileSystem)),
        compareContents(options.compareContents),
        storagePath(PathBuilder(options.rootPath).GetStoragePath()),
        paths(PathBuilder(options.rootPath).GetObjectsPath()) {}

  Transaction& Writing() {
    if (!transaction) Begin();
    return *transaction;
  }
  void Begin();
  bool TakeIn(Transaction& writing, const WideString& path, const Buffer& bytes);
  bool PutInPlace(StoreState next);
  void CollectUnused();
  void GiveUp();
  void End();

  /// Returns the state to read, null if it can't be read.
  const StoreState* Reading();

  StoreFolder files;
  const bool compareContents;
  const WideString storagePath;
  const ObjectPaths paths;

  std::shared_ptr<const StoredState> read;
  std::unique_ptr<FileLock> readerLock;

  std::optional<Transaction> transaction;
  std::unique_ptr<FileLock> writerLock;
  bool lockedByHost = false;
  bool newStateInPlace = false;
};

const StoreState* DirectoryStore::Impl::Reading() {
  if (read) return &read->state;
  // The lock comes first: the objects of a state that is read under it stay. A store that isn't
  // there has no file to lock; if it comes to be meanwhile, the second round has one.
  for (int round = 0; round < 2; ++round) {
    if (!readerLock) readerLock = files.LockReader();
    read = files.ReadState();
    if (readerLock || !read || read->digest.empty()) break;
  }
  return read ? &read->state : nullptr;
}

void DirectoryStore::Impl::Begin() {
  transaction.emplace();
  newStateInPlace = false;
  files.ClearError();
  if (!writerLock && files.Make()) writerLock = files.LockWriter();
  if (writerLock) transaction->base = files.ReadState();
  if (transaction->base && read && read->digest != transaction->base->digest) {
    files.Fail("cannot write", files.StatePath(),
               "it was replaced since this store object has read it");
    transaction->base.reset();
  }
  if (transaction->base && !files.MakeState()) transaction->base.reset();
  if (transaction->base) {
    transaction->next = transaction->base->state;
  } else {
    GiveUp();
  }
}

bool DirectoryStore::Impl::TakeIn(Transaction& writing, const WideString& path,
                                  const Buffer& bytes) {
  const std::optional<ObjectKey> key = paths.KeyOf(path);
  if (!key) {
    writing.next.streams.insert_or_assign(path, bytes);
    return true;
  }
  const bool held =
      writing.written.contains(*key) ||
      (writing.base->state.HasObject(*key) && files.HoldsObject(*key, bytes, compareContents));
  if (!held) {
    if (!files.WriteObject(*key, bytes)) return false;
    writing.written.insert(*key);
  }
  writing.next.objects.push_back(*key);
  return true;
}

// Returns true if the new state is in place and will stay.
bool DirectoryStore::Impl::PutInPlace(StoreState next) {
  auto stored = std::make_shared<StoredState>();
  stored->state = std::move(next);
  const StoreFolder::Replaced replaced =
      files.SyncWritten() ? files.ReplaceState(*stored) : StoreFolder::Replaced::No;
  if (replaced == StoreFolder::Replaced::No) {
    files.RemoveWritten();
    return false;
  }
  files.ForgetWritten();
  newStateInPlace = true;
  read = std::move(stored);
  if (replaced == StoreFolder::Replaced::ButNotKept) return false;
  CollectUnused();
  return true;
}

// Nobody else commits meanwhile, so the state is still the present one when the readers' lock is
// taken again.
void DirectoryStore::Impl::CollectUnused() {
  readerLock.reset();
  if (const std::unique_ptr<FileLock> alone = files.LockOutReaders()) {
    files.RemoveUnused(read->state);
  }
  readerLock = files.LockReader();
}

/// Leaves a transaction that can only end, and lets others write.
void DirectoryStore::Impl::GiveUp() {
  files.RemoveWritten();
  transaction->failed = true;
  if (!lockedByHost) writerLock.reset();
}

void DirectoryStore::Impl::End() {
  transaction.reset();
  if (!lockedByHost) writerLock.reset();
}

DirectoryStore::DirectoryStore(const std::filesystem::path& folder, DirectoryStoreOptions options)
    : m_impl(std::make_unique<Impl>(StoreFolder::AbsolutePath(folder), std::move(options),
                                    MakeNativeFileSystem())) {}

DirectoryStore::DirectoryStore(std::unique_ptr<Impl> impl) noexcept : m_impl(std::move(impl)) {}

DirectoryStore StoreAccess::Make(const std::filesystem::path& folder, DirectoryStoreOptions options,
                                 std::shared_ptr<FileSystem> files) {
  return DirectoryStore(
      std::make_unique<DirectoryStore::Impl>(folder, std::move(options), std::move(files)));
}

DirectoryStore::DirectoryStore(DirectoryStore&& other) noexcept = default;

DirectoryStore& DirectoryStore::operator=(DirectoryStore&& other) noexcept {
  DirectoryStore taken(std::move(other));
  m_impl.swap(taken.m_impl);
  return *this;
}

DirectoryStore::~DirectoryStore() {
  if (m_impl) Abandon();
}

Stream DirectoryStore::CreateBlobStream(const WideString& /*path*/) { return MemStream::Create(0); }

bool DirectoryStore::CommitBlobStream(const WideString& path, Stream stream) {
  Transaction& writing = m_impl->Writing();
  if (writing.failed) return false;
  Buffer bytes;
  const bool taken = StreamIO(stream).ReadToEnd(bytes)
                         ? m_impl->TakeIn(writing, path, bytes)
                         : m_impl->files.Fail("cannot read the stream for", ToUtf8(path),
                                              "it gave fewer bytes than its size");
  if (!taken) m_impl->GiveUp();
  return taken;
}

void DirectoryStore::RemoveStorage(const WideString& storagePath) {
  const bool everything = PrefixBelow(m_impl->storagePath).StartsWith(PrefixBelow(storagePath));
  if (everything && m_impl->transaction && m_impl->transaction->failed) Abandon();
  Transaction& writing = m_impl->Writing();
  if (writing.failed) return;
  m_impl->paths.EraseBelow(writing.next.objects, storagePath);
  EraseBelow(writing.next.streams, storagePath);
}

bool DirectoryStore::Commit() {
  if (!m_impl->transaction) return true;
  Transaction& writing = *m_impl->transaction;
  if (writing.failed) {
    Abandon();
    return false;
  }
  std::vector<ObjectKey>& objects = writing.next.objects;
  std::sort(objects.begin(), objects.end());
  objects.erase(std::unique(objects.begin(), objects.end()), objects.end());
  const bool done = m_impl->PutInPlace(std::move(writing.next));
  m_impl->End();
  return done;
}

bool DirectoryStore::IsNewStateInPlace() const noexcept { return m_impl->newStateInPlace; }

void DirectoryStore::Abandon() {
  m_impl->files.RemoveWritten();
  m_impl->End();
}

bool DirectoryStore::Lock() {
  Impl& impl = *m_impl;
  impl.files.ClearError();
  if (!impl.writerLock && impl.files.Make()) impl.writerLock = impl.files.LockWriter();
  impl.lockedByHost = impl.writerLock != nullptr;
  return impl.lockedByHost;
}

void DirectoryStore::Unlock() {
  m_impl->lockedByHost = false;
  if (!m_impl->transaction) m_impl->writerLock.reset();
}

void DirectoryStore::Refresh() {
  m_impl->read.reset();
  m_impl->readerLock.reset();
}

StreamIO DirectoryStore::OpenBlob(const WideString& path) {
  const StoreState* state = m_impl->Reading();
  if (state == nullptr) return {};
  if (const std::optional<ObjectKey> key = m_impl->paths.KeyOf(path)) {
    Buffer bytes;
    const bool held = state->HasObject(*key) && m_impl->files.ReadObject(*key, bytes);
    return held ? ReaderOf(bytes) : StreamIO();
  }
  const auto found = state->streams.find(path);
  return found == state->streams.end() ? StreamIO() : ReaderOf(found->second);
}

std::vector<WideString> DirectoryStore::ListBlobs(const WideString& directoryPath) {
  const bool branches = HoldsBranches(PrefixBelow(directoryPath));
  if (branches) Refresh();
  const StoreState* state = m_impl->Reading();
  std::vector<WideString> names;
  if (state == nullptr) {
    if (branches) names.emplace_back();
    return names;
  }
  m_impl->paths.AppendNames(state->objects, directoryPath, names);
  VisitNames(state->streams, directoryPath, [&](const WideString& name) { names.push_back(name); });
  return names;
}

std::vector<WideString> DirectoryStore::FindDamage() {
  const StoreState* state = m_impl->Reading();
  if (state == nullptr) return {m_impl->storagePath};
  std::vector<WideString> damaged;
  for (const ObjectKey& key : state->objects) {
    Buffer bytes;
    const bool whole = m_impl->files.ReadObject(key, bytes) &&
                       ToUtf8(Helpers::ComputeEncodedSHA256Hash(bytes)) == HexFromKey(key);
    if (!whole) damaged.push_back(m_impl->paths.PathOf(key));
  }
  return damaged;
}

const std::string& DirectoryStore::LastError() const noexcept { return m_impl->files.LastError(); }

}  // namespace TalVcs::Kit
