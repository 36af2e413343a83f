#include <kit/internal/journal.h>
#include <kit/internal/store_folder.h>
#include <kit/text.h>
#include <talvcs/persistence/path_builder.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace TalVcs::Kit {

namespace {

// Ends the name of a file that is being written to take another's place.
constexpr const char* kNew = ".new";

std::filesystem::path ComponentOf(TalStringViewT<WideChar> name) {
  return {name.text, name.text + name.length};
}

/// Returns what an error of the system means for a host.
ErrorCode CodeOf(const std::error_code& error) {
#ifdef EDQUOT
  if (error == std::error_code(EDQUOT, std::generic_category())) return ErrorCode::Full;
#endif
  if (error == std::errc::no_space_on_device || error == std::errc::file_too_large) {
    return ErrorCode::Full;
  }
  if (error == std::errc::permission_denied || error == std::errc::operation_not_permitted ||
      error == std::errc::read_only_file_system) {
    return ErrorCode::Denied;
  }
  if (error == std::errc::resource_unavailable_try_again) return ErrorCode::Busy;
  if (error == std::errc::too_many_symbolic_link_levels) return ErrorCode::Unsupported;
  if (error == std::errc::no_such_file_or_directory) return ErrorCode::NotFound;
  return ErrorCode::Unavailable;
}

}  // namespace

std::optional<ObjectKey> StoreFolder::KeyFromFile(const std::string& prefix, std::string_view name,
                                                  bool& complete) {
  complete = !name.ends_with(kNew);
  if (!complete) name.remove_suffix(std::string_view(kNew).size());
  return KeyFromHex(prefix + std::string(name));
}

std::string StoreFolder::TextOf(const Path& path) {
  const auto text = path.u8string();
  return ToUtf8(ToWide(std::string(text.begin(), text.end())));
}

StoreFolder::Path StoreFolder::AbsolutePath(const Path& folder) {
  std::error_code error;
  Path path = std::filesystem::absolute(folder, error);
  if (error || folder.empty()) return folder;
  return path.has_filename() ? path : path.parent_path();
}

StoreFolder::Path StoreFolder::ParkedPath(const Path& path) {
  Path parked = path;
  parked += kNew;
  return parked;
}

StoreFolder::StoreFolder(const Path& folder, bool durable, std::shared_ptr<FileSystem> files)
    : m_files(std::move(files)),
      m_folder(folder),
      m_store(m_folder / ComponentOf(PathBuilder::kStoreFolder)),
      m_objects(m_store / ComponentOf(PathBuilder::kObjectsFolder)),
      m_durable(durable) {}

bool StoreFolder::Fail(std::string_view what, const Path& path, std::string_view why,
                       ErrorCode code) {
  m_lastFailure = Error();
  m_lastFailure.code = code;
  m_lastFailure.subject = TextOf(path);
  m_lastFailure.message = std::string(what) + " \"" + m_lastFailure.subject + '"';
  m_lastFailure.cause = why;
  m_lastError = m_lastFailure.message + ": " + std::string(why);
  return false;
}

bool StoreFolder::Fail(std::string_view what, const Path& path, const std::error_code& error) {
  return Fail(what, path, error.message(), CodeOf(error));
}

bool StoreFolder::MakeFolder(const Path& path) {
  const std::error_code error = m_files->MakeFolder(path);
  if (error == std::errc::file_exists) return true;
  if (error) return Fail("cannot make", path, error);
  m_touched.insert(path.has_parent_path() ? path.parent_path() : Path("."));
  return true;
}

bool StoreFolder::Make() {
  return MakeFolder(m_folder) && MakeFolder(m_store) && MakeFolder(m_objects);
}

std::shared_ptr<const StoredState> StoreFolder::ReadState() {
  const Path path = StatePath();
  auto stored = std::make_shared<StoredState>();
  Buffer bytes;
  std::error_code error = m_files->ReadFile(path, bytes);
  if (error == std::errc::no_such_file_or_directory) {
    if (!HasObjectFiles()) return stored;
    // Another process may have begun to save just now.
    error = m_files->ReadFile(path, bytes);
    if (error == std::errc::no_such_file_or_directory) {
      Fail("cannot read", path, "it is missing, although the store has objects");
      return nullptr;
    }
  }
  if (error) {
    Fail("cannot read", path, error);
    return nullptr;
  }
  std::optional<StoreState> state = StoreState::Decode(bytes);
  if (!state && Journal::IsJournal(BytesFromBuffer(bytes))) {
    Fail("cannot read", path, "it was upgraded; a DirectoryObjectStore reads it",
         ErrorCode::Unsupported);
    return nullptr;
  }
  if (!state) {
    Fail("cannot read", path, "its content is damaged");
    return nullptr;
  }
  stored->state = std::move(*state);
  if (!stored->state.IsEmpty()) stored->digest = StoreState::DigestOf(bytes);
  return stored;
}

bool StoreFolder::HasObjectFiles() {
  std::vector<std::string> folders;
  const std::error_code error = m_files->ListFolder(m_objects, folders);
  // What can't be looked at may be there.
  if (error) return error != std::errc::no_such_file_or_directory;
  for (const std::string& prefix : folders) {
    std::vector<std::string> names;
    if (prefix.size() != PathBuilder::kFolderDigits ||
        m_files->ListFolder(m_objects / prefix, names))
      continue;
    for (const std::string& name : names) {
      bool complete = false;
      if (KeyFromFile(prefix, name, complete)) return true;
    }
  }
  std::vector<std::string> packs;
  m_files->ListFolder(m_store / "packs", packs);
  return std::any_of(packs.begin(), packs.end(),
                     [](const std::string& name) { return name.ends_with(".pack"); });
}

bool StoreFolder::MakeState() {
  std::uint64_t size = 0;
  const std::error_code error = m_files->GetFileSize(StatePath(), size);
  if (!error) return true;
  if (error != std::errc::no_such_file_or_directory) return Fail("cannot read", StatePath(), error);
  StoredState empty;
  return ReplaceState(empty) == Replaced::Yes;
}

/// Writes a file beside the one that it is to replace, so that the name always has a whole one.
bool StoreFolder::ReplaceFile(const Path& path, const Buffer& bytes) {
  const Path parked = ParkedPath(path);
  m_files->RemoveFile(parked);
  std::error_code error = m_files->CreateFile(parked, bytes);
  if (!error && m_durable) error = m_files->SyncFile(parked);
  if (error) {
    m_files->RemoveFile(parked);
    return Fail("cannot write", parked, error);
  }
  error = m_files->Rename(parked, path);
  if (!error) return true;
  m_files->RemoveFile(parked);
  return Fail("cannot replace", path, error);
}

StoreFolder::Replaced StoreFolder::ReplaceState(StoredState& stored) {
  const Buffer bytes = stored.state.Encode();
  stored.digest = stored.state.IsEmpty() ? std::string() : StoreState::DigestOf(bytes);
  return ReplaceStateFile(bytes);
}

StoreFolder::Replaced StoreFolder::ReplaceStateFile(const Buffer& bytes) {
  if (!ReplaceFile(StatePath(), bytes)) return Replaced::No;
  const std::error_code error = m_durable ? m_files->SyncFolder(m_store) : std::error_code();
  if (!error) return Replaced::Yes;
  Fail("the new state is in place but may not outlive a loss of power, cannot sync", m_store,
       error);
  return Replaced::ButNotKept;
}

StoreFolder::Path StoreFolder::FolderOf(const ObjectKey& key) const {
  return m_objects / HexFromKey(key).substr(0, PathBuilder::kFolderDigits);
}

StoreFolder::Path StoreFolder::FileOf(const ObjectKey& key) const {
  return FolderOf(key) / HexFromKey(key).substr(PathBuilder::kFolderDigits);
}

bool StoreFolder::ReadObject(const ObjectKey& key, Buffer& bytes) {
  const std::error_code error = m_files->ReadFile(FileOf(key), bytes);
  return !error || Fail("cannot read", FileOf(key), error);
}

bool StoreFolder::HoldsObject(const ObjectKey& key, const Buffer& bytes, bool compare) {
  std::uint64_t size = 0;
  if (m_files->GetFileSize(FileOf(key), size) || size != bytes.GetSize()) return false;
  if (!compare) return true;
  Buffer held;
  return !m_files->ReadFile(FileOf(key), held) && BytesFromBuffer(held) == BytesFromBuffer(bytes);
}

bool StoreFolder::WriteObject(const ObjectKey& key, const Buffer& bytes) {
  const Path path = FileOf(key);
  std::error_code error = m_files->CreateFile(path, bytes);
  if (error == std::errc::no_such_file_or_directory) {
    if (!MakeFolder(FolderOf(key))) return false;
    error = m_files->CreateFile(path, bytes);
  }
  m_touched.insert(FolderOf(key));
  // A file that is there already may be one that a reader of an older state needs, or be damaged.
  if (error == std::errc::file_exists) {
    m_written.push_back({key, false});
    return ReplaceFile(path, bytes);
  }
  m_written.push_back({key, true});
  return !error || Fail("cannot write", path, error);
}

bool StoreFolder::SyncWritten() {
  if (!m_durable) return true;
  if (m_written.size() < kManyFiles) return SyncEach();
  const std::error_code error = m_files->SyncMedium(m_store);
  if (error == std::errc::function_not_supported) return SyncEach();
  return !error || Fail("cannot sync", m_store, error);
}

bool StoreFolder::SyncEach() {
  for (const Written& written : m_written) {
    const std::error_code error = m_files->SyncFile(FileOf(written.key));
    if (error) return Fail("cannot sync", FileOf(written.key), error);
  }
  return SyncFolders(m_touched);
}

bool StoreFolder::SyncFolders(const std::set<Path>& folders) {
  for (const Path& folder : folders) {
    // One that is gone held nothing any more.
    const std::error_code error = m_files->SyncFolder(folder);
    if (error && error != std::errc::no_such_file_or_directory) {
      return Fail("cannot sync", folder, error);
    }
  }
  return true;
}

void StoreFolder::RemoveWritten() {
  for (const Written& written : m_written) {
    if (written.isNew) m_files->RemoveFile(FileOf(written.key));
  }
  m_written.clear();
}

void StoreFolder::ForgetWritten() {
  m_written.clear();
  m_touched.clear();
}

void StoreFolder::RemoveUnused(const StoreState& state) {
  std::vector<std::string> folders;
  if (m_files->ListFolder(m_objects, folders)) return;
  for (const std::string& prefix : folders) {
    if (prefix.size() == PathBuilder::kFolderDigits)
      RemoveUnusedIn(m_objects / prefix, prefix, state);
  }
}

void StoreFolder::RemoveUnusedIn(const Path& folder, const std::string& prefix,
                                 const StoreState& state) {
  std::vector<std::string> names;
  if (m_files->ListFolder(folder, names)) return;
  std::size_t kept = 0;
  for (const std::string& name : names) {
    bool complete = false;
    const std::optional<ObjectKey> key = KeyFromFile(prefix, name, complete);
    const bool unused = key && !(complete && state.HasObject(*key));
    if (!unused || m_files->RemoveFile(folder / name)) ++kept;
  }
  if (kept == 0) m_files->RemoveFolder(folder);
}

/// Files are replaced and removed in these folders. One that is a link leads to the files of
/// another store.
bool StoreFolder::CheckFolders() {
  for (const Path& folder : {m_objects, m_store / "packs"}) {
    if (!m_files->IsLink(folder)) continue;
    return Fail("cannot write to", folder, "it is a symbolic link", ErrorCode::Unsupported);
  }
  return true;
}

std::unique_ptr<FileLock> StoreFolder::LockWriter() {
  const Path path = m_store / "lock";
  std::unique_ptr<FileLock> lock;
  if (!CheckFolders()) return lock;
  const std::error_code error = m_files->LockFile(path, LockKind::Exclusive, LockWait::No, lock);
  if (error == std::errc::resource_unavailable_try_again) {
    Fail("cannot lock", path, "another writer is at work on the store", ErrorCode::Busy);
  } else if (error) {
    Fail("cannot lock", path, error);
  }
  return lock;
}

std::unique_ptr<FileLock> StoreFolder::LockReader() {
  std::unique_ptr<FileLock> lock;
  m_files->LockFile(m_store / "readers", LockKind::Shared, LockWait::Yes, lock);
  return lock;
}

std::unique_ptr<FileLock> StoreFolder::TryLockReaders(LockKind kind) {
  const Path path = m_store / "readers";
  std::unique_ptr<FileLock> lock;
  const std::error_code error = m_files->LockFile(path, kind, LockWait::No, lock);
  if (error) Fail("cannot lock", path, error);
  return lock;
}

std::unique_ptr<FileLock> StoreFolder::LockOutReaders() {
  std::unique_ptr<FileLock> lock;
  m_files->LockFile(m_store / "readers", LockKind::Exclusive, LockWait::No, lock);
  return lock;
}

}  // namespace TalVcs::Kit
