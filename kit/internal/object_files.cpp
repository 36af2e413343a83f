#include <kit/internal/object_files.h>
#include <talvcs/persistence/path_builder.h>

// A write of several objects, each step for all of them before the next:
//
//     file.new  -  sync of the files  -  rename to file  -  sync of the folders

namespace TalVcs::Kit {

namespace {

bool IsMissing(const std::error_code& error) {
  return error == std::errc::no_such_file_or_directory;
}

Error NoSuchFile(const StoreFolder::Path& path) {
  Error error;
  error.code = ErrorCode::NotFound;
  error.subject = StoreFolder::TextOf(path);
  error.message = "there is no file \"" + error.subject + '"';
  return error;
}

}  // namespace

Result<std::optional<std::uint64_t>> ObjectFiles::SizeOf(const ObjectKey& key) {
  const Path path = m_folder.FileOf(key);
  std::uint64_t size = 0;
  const std::error_code error = m_folder.Files().GetFileSize(path, size);
  if (!error) return std::optional(size);
  if (IsMissing(error)) return std::optional<std::uint64_t>();
  m_folder.Fail("cannot look at", path, error);
  return m_folder.LastFailure();
}

Result<Buffer> ObjectFiles::Read(const ObjectKey& key) {
  const Path path = m_folder.FileOf(key);
  Buffer bytes;
  const std::error_code error = m_folder.Files().ReadFile(path, bytes);
  if (!error) return bytes;
  if (IsMissing(error)) return NoSuchFile(path);
  m_folder.Fail("cannot read", path, error);
  Error failure = m_folder.LastFailure();
  failure.code = ErrorCode::Unavailable;
  return failure;
}

bool ObjectFiles::WriteParked(const KeyedObject& object) {
  const Path path = StoreFolder::ParkedPath(m_folder.FileOf(object.first));
  std::error_code error = m_folder.Files().CreateFile(path, object.second);
  if (IsMissing(error)) {
    if (!m_folder.MakeFolder(m_folder.FolderOf(object.first))) return false;
    m_changedFolders.insert(m_folder.ObjectsPath());
    error = m_folder.Files().CreateFile(path, object.second);
  }
  if (error == std::errc::file_exists) {
    // A killed process left it.
    m_folder.Files().RemoveFile(path);
    error = m_folder.Files().CreateFile(path, object.second);
  }
  return !error || m_folder.Fail("cannot write", path, error);
}

bool ObjectFiles::SyncParked(std::span<const KeyedObject> objects) {
  if (!m_folder.IsDurable()) return true;
  if (objects.size() >= StoreFolder::kManyFiles) {
    const Path& folder = m_folder.ObjectsPath();
    const std::error_code error = m_folder.Files().SyncMedium(folder);
    if (error != std::errc::function_not_supported) {
      return !error || m_folder.Fail("cannot sync", folder, error);
    }
  }
  for (const KeyedObject& object : objects) {
    const Path path = StoreFolder::ParkedPath(m_folder.FileOf(object.first));
    const std::error_code error = m_folder.Files().SyncFile(path);
    if (error) return m_folder.Fail("cannot sync", path, error);
  }
  return true;
}

bool ObjectFiles::GiveNames(std::span<const KeyedObject> objects) {
  for (const KeyedObject& object : objects) {
    const Path path = m_folder.FileOf(object.first);
    m_changedFolders.insert(m_folder.FolderOf(object.first));
    const std::error_code error = m_folder.Files().Rename(StoreFolder::ParkedPath(path), path);
    if (error) return m_folder.Fail("cannot write", path, error);
  }
  return true;
}

Status ObjectFiles::Write(std::span<const KeyedObject> objects) {
  std::size_t written = 0;
  bool done = true;
  while (done && written < objects.size()) done = WriteParked(objects[written++]);
  if (done && SyncParked(objects) && GiveNames(objects)) return SyncNames();
  Error failure = m_folder.LastFailure();
  for (const KeyedObject& object : objects.first(written)) {
    m_folder.Files().RemoveFile(StoreFolder::ParkedPath(m_folder.FileOf(object.first)));
  }
  return failure;
}

Status ObjectFiles::SyncNames() {
  if (!m_folder.IsDurable()) {
    m_changedFolders.clear();
    return {};
  }
  std::error_code error = std::make_error_code(std::errc::function_not_supported);
  if (m_changedFolders.size() >= StoreFolder::kManyFiles) {
    error = m_folder.Files().SyncMedium(m_folder.ObjectsPath());
  }
  const bool done = error == std::errc::function_not_supported
                        ? m_folder.SyncFolders(m_changedFolders)
                        : !error || m_folder.Fail("cannot sync", m_folder.ObjectsPath(), error);
  if (!done) return m_folder.LastFailure();
  m_changedFolders.clear();
  return {};
}

Status ObjectFiles::Visit(const Visitor& visit) {
  const Path& objects = m_folder.ObjectsPath();
  std::vector<std::string> prefixes;
  std::error_code error = m_folder.Files().ListFolder(objects, prefixes);
  if (IsMissing(error)) return {};
  if (error) m_folder.Fail("cannot list", objects, error);
  for (const std::string& prefix : prefixes) {
    if (error || prefix.size() != PathBuilder::kFolderDigits) continue;
    std::vector<std::string> names;
    error = m_folder.Files().ListFolder(objects / prefix, names);
    if (IsMissing(error) || error == std::errc::not_a_directory) error.clear();
    if (error) m_folder.Fail("cannot list", objects / prefix, error);
    for (const std::string& name : names) {
      bool complete = false;
      const std::optional<ObjectKey> key = StoreFolder::KeyFromFile(prefix, name, complete);
      if (key) visit(*key, complete, objects / prefix / name);
    }
  }
  return error ? Status(m_folder.LastFailure()) : Status();
}

Status ObjectFiles::Remove(const Path& path) {
  m_changedFolders.insert(path.parent_path());
  const std::error_code error = m_folder.Files().RemoveFile(path);
  if (!error || IsMissing(error)) return {};
  m_folder.Fail("cannot remove", path, error);
  return m_folder.LastFailure();
}

void ObjectFiles::RemoveEmptyFolders() {
  std::vector<std::string> prefixes;
  if (m_folder.Files().ListFolder(m_folder.ObjectsPath(), prefixes)) return;
  for (const std::string& prefix : prefixes) {
    std::vector<std::string> names;
    const Path folder = m_folder.ObjectsPath() / prefix;
    if (prefix.size() != PathBuilder::kFolderDigits || m_folder.Files().ListFolder(folder, names))
      continue;
    if (names.empty()) m_folder.Files().RemoveFolder(folder);
  }
}

}  // namespace TalVcs::Kit
