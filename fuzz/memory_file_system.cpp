#include "memory_file_system.h"

#include "target.h"

#include <kit/text.h>

#include <algorithm>
#include <string_view>

namespace Fuzz {

namespace {

using TalVcs::Buffer;
using TalVcs::Kit::FileLock;
using TalVcs::Kit::LockKind;
using TalVcs::Kit::LockWait;

constexpr std::string_view kStore = "/host/store/.vcs";
constexpr std::string_view kObjects = "/host/store/.vcs/objects";
constexpr std::string_view kPacks = "/host/store/.vcs/packs";
constexpr const char* kState = "/host/store/.vcs/state";
constexpr const char* kHostBytes = "the host's";

bool IsHex(std::string_view text, std::size_t length) {
  return text.size() == length && text.find_first_not_of("0123456789abcdef") == text.npos;
}

/// Returns what stands after `prefix` and a separator; nothing for other texts.
std::string_view Below(std::string_view text, std::string_view prefix) {
  if (!text.starts_with(prefix) || !text.substr(prefix.size()).starts_with('/')) return {};
  return text.substr(prefix.size() + 1);
}

/// The folder of an object is two digits, its file the other 62; one that is being replaced has
/// another beside it.
bool IsObject(std::string_view text) {
  std::string_view rest = Below(text, kObjects);
  if (rest.ends_with(".new")) rest.remove_suffix(4);
  return rest.size() == 65 && IsHex(rest.substr(0, 2), 2) && rest[2] == '/' &&
         IsHex(rest.substr(3), 62);
}

/// A pack has a number of 8 digits, an index two places of 16.
bool IsPackOrIndex(std::string_view text) {
  const std::string_view name = Below(text, kPacks);
  if (name.ends_with(".pack")) return IsHex(name.substr(0, name.size() - 5), 8);
  return name.size() == 39 && name.ends_with(".index") && name[16] == '-' &&
         IsHex(name.substr(0, 16), 16) && IsHex(name.substr(17, 16), 16);
}

bool IsStoreFile(std::string_view text) {
  const std::string_view name = Below(text, kStore);
  return name == "state" || name == "state.new" || name == "lock" || name == "readers" ||
         IsObject(text) || IsPackOrIndex(text);
}

bool IsStoreFolder(std::string_view text) {
  return text == "/host/store" || text == kStore || text == kObjects || text == kPacks ||
         IsHex(Below(text, kObjects), 2);
}

std::string FileOf(const std::filesystem::path& path) {
  Require(IsStoreFile(path.native()), "a directory store touches its own files alone");
  return path.native();
}

std::string FolderOf(const std::filesystem::path& path) {
  Require(IsStoreFolder(path.native()), "a directory store touches its own folders alone");
  return path.native();
}

std::string Parent(const std::string& path) { return path.substr(0, path.rfind('/')); }

std::error_code Error(std::errc error) { return std::make_error_code(error); }
std::error_code InjectedError() { return Error(std::errc::io_error); }
std::error_code Missing() { return Error(std::errc::no_such_file_or_directory); }

}  // namespace

class MemoryFileSystem::Lock final : public FileLock {
 public:
  Lock(std::shared_ptr<LockState> state, LockKind kind) : m_state(std::move(state)), m_kind(kind) {
    if (m_kind == LockKind::Shared) {
      ++m_state->shared;
    } else {
      m_state->exclusive = true;
    }
  }
  ~Lock() override {
    if (m_kind == LockKind::Shared) {
      --m_state->shared;
    } else {
      m_state->exclusive = false;
    }
  }

 private:
  std::shared_ptr<LockState> m_state;
  LockKind m_kind;
};

class MemoryFileSystem::File final : public TalVcs::Kit::OpenedFile {
 public:
  File(MemoryFileSystem& files, std::string path) : m_files(files), m_path(std::move(path)) {}

  std::error_code ReadAt(std::uint64_t position, char* target, std::size_t size,
                         std::size_t& count) override {
    count = 0;
    if (m_files.Fails()) return InjectedError();
    const std::string content = Content();
    if (position < content.size()) count = content.copy(target, size, position);
    return {};
  }
  std::error_code GetSize(std::uint64_t& size) override {
    if (m_files.Fails()) return InjectedError();
    size = Content().size();
    return {};
  }

 private:
  /// Nothing once the name has gone: no store reads on then.
  std::string Content() const {
    const auto found = m_files.m_content.files.find(m_path);
    return found == m_files.m_content.files.end() ? std::string() : found->second;
  }

  MemoryFileSystem& m_files;
  std::string m_path;
};

MemoryFileSystem::MemoryFileSystem() {
  const std::string objects(kObjects);
  PutHostFile("/host/notes");
  PutHostFile("/host/store/notes");
  PutHostFile("/host/store/.vcs/notes");
  PutHostFile(objects + "/notes");
  PutHostFile(objects + "/ab/notes");
  PutHostFile(objects + "/xy/" + std::string(62, 'a'));
}

void MemoryFileSystem::PutHostFile(const std::string& path) {
  m_content.files[path] = kHostBytes;
  m_hostFiles.insert(path);
  for (std::string folder = Parent(path); !folder.empty(); folder = Parent(folder)) {
    m_content.folders.insert(folder);
  }
}

bool MemoryFileSystem::Fails() {
  if (m_untilFailure == 0 || --m_untilFailure > 0) return false;
  ++m_failures;
  return true;
}

std::string MemoryFileSystem::State() const {
  const auto found = m_content.files.find(kState);
  return found == m_content.files.end() ? std::string() : found->second;
}

void MemoryFileSystem::PutState(const std::string& bytes) { m_content.files[kState] = bytes; }

void MemoryFileSystem::CheckHostFiles() const {
  for (const std::string& path : m_hostFiles) {
    const auto found = m_content.files.find(path);
    Require(found != m_content.files.end() && found->second == kHostBytes, "the host's files stay");
  }
}

std::error_code MemoryFileSystem::ReadFile(const Path& path, Buffer& bytes) {
  return ReadFileFrom(path, 0, bytes);
}

std::error_code MemoryFileSystem::ReadFileFrom(const Path& path, std::uint64_t from,
                                               Buffer& bytes) {
  const auto found = m_content.files.find(FileOf(path));
  if (Fails()) return InjectedError();
  if (found == m_content.files.end()) return Missing();
  const std::string& content = found->second;
  const std::size_t skipped =
      from < content.size() ? static_cast<std::size_t>(from) : content.size();
  bytes.Append(content.data() + skipped, content.size() - skipped);
  return {};
}

std::error_code MemoryFileSystem::GetFileSize(const Path& path, std::uint64_t& size) {
  const auto found = m_content.files.find(FileOf(path));
  if (Fails()) return InjectedError();
  if (found == m_content.files.end()) return Missing();
  size = found->second.size();
  return {};
}

std::error_code MemoryFileSystem::OpenFile(const Path& path,
                                           std::unique_ptr<TalVcs::Kit::OpenedFile>& file) {
  const std::string name = FileOf(path);
  if (Fails()) return InjectedError();
  if (!m_content.files.contains(name)) return Missing();
  file = std::make_unique<File>(*this, name);
  return {};
}

std::error_code MemoryFileSystem::CreateFile(const Path& path, const Buffer& bytes) {
  const std::string file = FileOf(path);
  if (!m_content.folders.contains(Parent(file))) return Missing();
  if (m_content.files.contains(file)) return Error(std::errc::file_exists);
  std::string content = TalVcs::Kit::BytesFromBuffer(bytes);
  const bool fails = Fails();
  m_content.files[file] = fails ? content.substr(0, content.size() / 2) : content;
  return fails ? InjectedError() : std::error_code();
}

std::error_code MemoryFileSystem::AppendFile(const Path& path, const Buffer& bytes) {
  const auto found = m_content.files.find(FileOf(path));
  if (found == m_content.files.end()) return Missing();
  const std::string content = TalVcs::Kit::BytesFromBuffer(bytes);
  const bool fails = Fails();
  found->second += fails ? content.substr(0, content.size() / 2) : content;
  return fails ? InjectedError() : std::error_code();
}

std::error_code MemoryFileSystem::TruncateFile(const Path& path, std::uint64_t size) {
  const auto found = m_content.files.find(FileOf(path));
  if (Fails()) return InjectedError();
  if (found == m_content.files.end()) return Missing();
  found->second.resize(static_cast<std::size_t>(size));
  return {};
}

std::error_code MemoryFileSystem::SyncFile(const Path& path) {
  const std::string file = FileOf(path);
  if (Fails()) return InjectedError();
  return m_content.files.contains(file) ? std::error_code() : Missing();
}

std::error_code MemoryFileSystem::SyncFolder(const Path& path) {
  // The folder that holds the store's gets a name.
  const std::string folder = path == "/host" ? "/host" : FolderOf(path);
  if (Fails()) return InjectedError();
  return m_content.folders.contains(folder) ? std::error_code() : Missing();
}

std::error_code MemoryFileSystem::SyncMedium(const Path& path) {
  FolderOf(path);
  return Fails() ? InjectedError() : std::error_code();
}

std::error_code MemoryFileSystem::Rename(const Path& from, const Path& to) {
  const auto found = m_content.files.find(FileOf(from));
  const std::string target = FileOf(to);
  if (Fails()) return InjectedError();
  if (found == m_content.files.end()) return Missing();
  std::string bytes = std::move(found->second);
  m_content.files.erase(found);
  m_content.files[target] = std::move(bytes);
  return {};
}

std::error_code MemoryFileSystem::RemoveFile(const Path& path) {
  const std::string file = FileOf(path);
  if (Fails()) return InjectedError();
  return m_content.files.erase(file) == 1 ? std::error_code() : Missing();
}

std::error_code MemoryFileSystem::MakeFolder(const Path& path) {
  const std::string folder = FolderOf(path);
  if (Fails()) return InjectedError();
  if (!m_content.folders.contains(Parent(folder))) return Missing();
  return m_content.folders.insert(folder).second ? std::error_code()
                                                 : Error(std::errc::file_exists);
}

std::error_code MemoryFileSystem::RemoveFolder(const Path& path) {
  const std::string folder = FolderOf(path);
  if (Fails()) return InjectedError();
  const auto holds = [&](const auto& entry) { return entry.first.starts_with(folder + '/'); };
  if (std::any_of(m_content.files.begin(), m_content.files.end(), holds)) {
    return Error(std::errc::directory_not_empty);
  }
  return m_content.folders.erase(folder) == 1 ? std::error_code() : Missing();
}

std::error_code MemoryFileSystem::ListFolder(const Path& path, std::vector<std::string>& names) {
  // Among the folders of the objects may stand one of the host, of which nothing is taken.
  const std::string folder = path.parent_path() == kObjects ? path.native() : FolderOf(path);
  if (Fails()) return InjectedError();
  if (!m_content.folders.contains(folder)) return Missing();
  for (const auto& [file, bytes] : m_content.files) {
    if (Parent(file) == folder) names.push_back(file.substr(folder.size() + 1));
  }
  for (const std::string& other : m_content.folders) {
    if (Parent(other) == folder) names.push_back(other.substr(folder.size() + 1));
  }
  return {};
}

std::error_code MemoryFileSystem::LockFile(const Path& path, LockKind kind, LockWait wait,
                                           std::unique_ptr<FileLock>& lock) {
  const std::string file = FileOf(path);
  if (Fails()) return InjectedError();
  if (!m_content.folders.contains(Parent(file))) return Missing();
  m_content.files.try_emplace(file);
  std::shared_ptr<LockState>& state = m_locks[file];
  if (!state) state = std::make_shared<LockState>();
  if (state->exclusive || (kind == LockKind::Exclusive && state->shared > 0)) {
    Require(wait == LockWait::No, "one thread never waits for its own lock");
    return Error(std::errc::resource_unavailable_try_again);
  }
  lock = std::make_unique<Lock>(state, kind);
  return {};
}

}  // namespace Fuzz
