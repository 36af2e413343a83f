#include <stores/zip/internal/document_file.h>
#include <stores/zip/internal/entry_names.h>
#include <stores/zip/internal/zip_error.h>

#include <chrono>
#include <thread>
#include <utility>

// A change in the order in which things happen on the medium:
//
//     lock of the archive  -  document.new  -  sync  -  rename to document  -  sync of the folder
//
// The lock belongs to the file and not to its name. A program that gets the lock of a file that has
// lost its name meanwhile begins again with the file that has it now.

namespace TalVcs::Kit::Zip {
namespace {

constexpr std::chrono::milliseconds kBetweenAttempts(2);

std::filesystem::path FolderOf(const std::filesystem::path& path) {
  return path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
}

}  // namespace

Result<std::unique_ptr<DocumentFile>> DocumentFile::Open(const Path& path,
                                                         const ZipOptions& options) {
  std::unique_ptr<DocumentFile> file(new DocumentFile(path, options));
  if (Status status = file->OpenFirst(); !status) return std::move(status).error();
  return file;
}

Status DocumentFile::OpenFirst() {
  const bool may_make = m_options.create && !m_options.readOnly;
  File file;
  std::error_code error =
      may_make ? File::OpenOrMake(m_path, file) : File::OpenForReading(m_path, file);
  FileIdentity identity;
  if (!error) error = file.Identify(identity);
  if (error) return SystemFailure(Task::Open, m_path, error);
  // A rename would replace a symbolic link, not the file that it names. That file is there now,
  // also if the link has led to nothing before.
  Path actual = std::filesystem::canonical(m_path, error);
  if (!error) m_path = std::move(actual);
  if (identity.sizeBytes > 0 || !may_make) return Refresh();
  const Result<File> locked = Lock();
  if (!locked) return locked.error();
  // Another program may have made it meanwhile.
  if (m_archive) return {};
  return Replace(*locked, [](ArchiveWriter& writer) {
    return writer.Add(std::string(kReadme), ReadmeOf(DocumentState()));
  });
}

// Opens the file a second time if it is locked: an archive must not share the lock.
Status DocumentFile::Refresh() {
  FileIdentity identity;
  std::error_code error = Identify(m_path, identity);
  if (!error && m_archive && identity == m_identity) return {};
  File file;
  if (!error) error = File::OpenForReading(m_path, file);
  if (!error) error = file.Identify(identity);
  if (error) return SystemFailure(Task::Open, m_path, error);
  Result<std::unique_ptr<Archive>> archive =
      Archive::Open(std::move(file), m_path, m_options.mostObjectBytes);
  if (!archive) return std::move(archive).error();
  m_archive = *std::move(archive);
  m_identity = identity;
  m_state.reset();
  return {};
}

Result<const DocumentState*> DocumentFile::State() {
  if (!m_state) {
    Result<DocumentState> state = m_archive->ReadState();
    if (!state) return std::move(state).error();
    m_state = *std::move(state);
  }
  return &*m_state;
}

/// Fails with `Busy` if another program has the lock or has replaced the file meanwhile.
Result<File> DocumentFile::LockOnce() {
  File file;
  FileIdentity locked;
  FileIdentity present;
  std::error_code error = File::Open(m_path, file);
  if (!error) error = file.TryLock();
  if (!error) error = file.Identify(locked);
  if (!error) error = Identify(m_path, present);
  if (!error && !locked.IsSameFile(present)) {
    error = std::make_error_code(std::errc::resource_unavailable_try_again);
  }
  if (error) return SystemFailure(Task::Save, m_path, error);
  return file;
}

Status DocumentFile::CheckOptions() const {
  if (!m_options.readOnly) return {};
  return MakeError(ErrorCode::Denied, Task::Save, m_path, "it can only be read");
}

Result<File> DocumentFile::Lock() {
  if (Status status = CheckOptions(); !status) return std::move(status).error();
  const auto until = std::chrono::steady_clock::now() + m_options.busyTimeout;
  for (;;) {
    Result<File> file = LockOnce();
    if (!file && file.error().code == ErrorCode::Busy && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(kBetweenAttempts);
      continue;
    }
    if (!file) return file;
    FileIdentity identity;
    const bool is_new = !m_archive && !file->Identify(identity) && identity.sizeBytes == 0;
    if (Status status = is_new ? Status() : Refresh(); !status) return std::move(status).error();
    return file;
  }
}

Status DocumentFile::Replace(const File& locked,
                             const std::function<Status(ArchiveWriter&)>& fill) {
  Path path = m_path;
  path += ".new";
  if (Status status = WriteReplacement(locked, path, fill); !status) {
    Remove(path);
    return status;
  }
  const std::error_code error =
      m_options.durable ? SyncFolder(FolderOf(m_path)) : std::error_code();
  if (!error) return {};
  Error unknown = SystemFailure(Task::Save, m_path, error);
  unknown.code = ErrorCode::Unknown;
  unknown.unchanged.clear();
  return unknown;
}

Status DocumentFile::WriteReplacement(const File& locked, const Path& path,
                                      const std::function<Status(ArchiveWriter&)>& fill) {
  File file;
  std::error_code error = Remove(path);
  if (!error) error = File::Make(path, file);
  if (error) return SystemFailure(Task::Save, m_path, error);
  {
    ArchiveWriter writer(file, m_path);
    Status status = fill(writer);
    if (status) status = writer.Finish();
    if (!status) return status;
  }
  error = file.CopyPermissionsOf(locked);
  if (!error && m_options.durable) error = file.Sync();
  FileIdentity identity;
  File copy;
  if (!error) error = file.Identify(identity);
  if (!error) error = file.Duplicate(copy);
  if (error) return SystemFailure(Task::Save, m_path, error);
  Result<std::unique_ptr<Archive>> archive =
      Archive::Open(std::move(copy), m_path, m_options.mostObjectBytes);
  if (!archive) return std::move(archive).error();
  if ((error = Rename(path, m_path))) return SystemFailure(Task::Save, m_path, error);
  m_archive = *std::move(archive);
  m_identity = identity;
  m_state.reset();
  return {};
}

Result<File> DocumentFile::MakeNameless() const {
  File file;
  const std::error_code error = File::MakeNameless(FolderOf(m_path), file);
  if (error) return SystemFailure(Task::Save, m_path, error);
  return file;
}

}  // namespace TalVcs::Kit::Zip
