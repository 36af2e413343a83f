#include "folder.h"

#include "failure.h"
#include "file_handle.h"
#include "terminal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

namespace Tal {
namespace {

constexpr std::size_t kBlockBytes = 1 << 18;
constexpr const char* kIncoming = "tal-incoming";

bool ReadAll(int handle, std::uint64_t expectedBytes, TalVcs::Buffer& bytes) {
  std::vector<char> block(std::min<std::uint64_t>(expectedBytes + 1, kBlockBytes));
  for (;;) {
    const ssize_t size = read(handle, block.data(), block.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return size == 0;
    bytes.Append(block.data(), static_cast<std::size_t>(size));
    // A file of the expected size ends with a second read, which is empty.
    if (block.size() < kBlockBytes && bytes.GetSize() > expectedBytes) block.resize(kBlockBytes);
  }
}

bool WriteAll(int handle, const TalVcs::Buffer& bytes) {
  for (std::size_t i = 0; i < bytes.GetSegmentCount(); ++i) {
    std::span<const std::byte> rest = bytes.GetSegment(i);
    while (!rest.empty()) {
      const ssize_t written = write(handle, rest.data(), rest.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return false;
      rest = rest.subspan(static_cast<std::size_t>(written));
    }
  }
  return true;
}

std::int64_t Nanoseconds(const timespec& time) {
  return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

TalVcs::Buffer ReadLink(const OpenedParent& parent, const std::string& path) {
  std::array<char, 4096> target{};
  const ssize_t size =
      readlinkat(parent.folder.Get(), parent.name.c_str(), target.data(), target.size());
  if (size < 0) FailOnFile("read", path, errno);
  TalVcs::Buffer bytes;
  bytes.Append(target.data(), static_cast<std::size_t>(size));
  return bytes;
}

/// Returns the permissions of a file, given those of the one that it replaces.
mode_t ModeOf(const struct stat& replaced, FileKind kind) {
  const mode_t mode = replaced.st_mode & 07777U;
  if (kind == FileKind::Executable) return mode | ((mode & 0444U) >> 2U);
  return mode & ~static_cast<mode_t>(0111);
}

/// Removes a folder with the folders inside, of which only those go that hold no file.
void RemoveEmptyFolders(const std::filesystem::path& top) {
  std::vector<std::filesystem::path> folders{top};
  std::error_code error;
  std::filesystem::recursive_directory_iterator at(top, error);
  for (; !error && at != std::filesystem::recursive_directory_iterator(); at.increment(error)) {
    if (at->symlink_status(error).type() == std::filesystem::file_type::directory)
      folders.push_back(at->path());
  }
  for (; !folders.empty(); folders.pop_back()) rmdir(folders.back().c_str());
}

}  // namespace

void FailOnFile(const char* what, const std::string& path, int error) {
  throw Failure(std::string("cannot ") + what + " \"" + Printable(path) +
                "\": " + std::strerror(error));
}

FileStat StatOf(const struct stat& status) {
  const bool is_executable = (status.st_mode & S_IXUSR) != 0;
  return {S_ISLNK(status.st_mode) ? FileKind::Link
          : is_executable         ? FileKind::Executable
                                  : FileKind::File,
          static_cast<std::uint64_t>(status.st_size), Nanoseconds(status.st_mtim),
          Nanoseconds(status.st_ctim), status.st_ino};
}

Folder::Folder(std::filesystem::path top)
    : m_top(std::move(top)), m_handle(open(m_top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (m_handle < 0) FailOnFile("open", m_top.string(), errno);
}

Folder::~Folder() { close(m_handle); }

Entry Folder::Examine(const std::string& path) const {
  const OpenedParent parent = OpenParent(m_handle, path, MissingFolders::Fail);
  struct stat status {};
  if (!parent.folder.IsOpen() ||
      fstatat(parent.folder.Get(), parent.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return {};
  if (S_ISDIR(status.st_mode)) return {EntryType::Folder, {}};
  if (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) return {EntryType::File, StatOf(status)};
  return {EntryType::Other, {}};
}

FileContent Folder::Read(const std::string& path) const {
  const OpenedParent parent = OpenParent(m_handle, path, MissingFolders::Fail);
  if (!parent.folder.IsOpen()) FailOnFile("read", path, errno);
  const FileHandle file(openat(parent.folder.Get(), parent.name.c_str(),
                               O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file.IsOpen() && errno == ELOOP) {
    if (fstatat(parent.folder.Get(), parent.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
      FailOnFile("read", path, errno);
    return {ReadLink(parent, path), StatOf(status)};
  }
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0) FailOnFile("read", path, errno);
  if (!S_ISREG(status.st_mode))
    throw Failure("cannot read \"" + Printable(path) + "\": it is not a regular file");
  FileContent content{TalVcs::Buffer(), StatOf(status)};
  if (!ReadAll(file.Get(), content.stat.sizeBytes, content.bytes)) FailOnFile("read", path, errno);
  return content;
}

bool Folder::Holds(const std::string& path, const TalVcs::Id& id, FileKind kind) const {
  const Entry entry = Examine(path);
  if (entry.type != EntryType::File || entry.stat.kind != kind) return false;
  return TalVcs::Blob(Read(path).bytes).GetId() == id;
}

FileStat Folder::Write(const std::string& path, const TalVcs::Buffer& bytes, FileKind kind) const {
  const OpenedParent parent = OpenParent(m_handle, path, MissingFolders::Make);
  if (!parent.folder.IsOpen()) FailOnFile("create the folder of", path, errno);
  const FileHandle store(
      openat(m_handle, kStoreName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!store.IsOpen()) FailOnFile("write", path, errno);
  const auto fail = [&](int reason) {
    unlinkat(store.Get(), kIncoming, 0);
    FailOnFile("write", path, reason);
  };
  unlinkat(store.Get(), kIncoming, 0);
  if (kind == FileKind::Link) {
    const std::string target = TalVcs::Kit::BytesFromBuffer(bytes);
    if (target.empty() || target.find('\0') != std::string::npos)
      throw Failure("cannot create the link \"" + Printable(path) + "\": it has no valid target");
    if (symlinkat(target.c_str(), store.Get(), kIncoming) != 0) fail(errno);
  } else {
    const mode_t mode = kind == FileKind::Executable ? 0777 : 0666;
    FileHandle file(
        openat(store.Get(), kIncoming, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file.IsOpen()) fail(errno);
    struct stat status {};
    if (fstatat(parent.folder.Get(), parent.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(status.st_mode))
      fchmod(file.Get(), ModeOf(status, kind));
    if (!WriteAll(file.Get(), bytes) || !file.Close()) fail(errno);
  }
  const auto move = [&] {
    return renameat(store.Get(), kIncoming, parent.folder.Get(), parent.name.c_str()) == 0;
  };
  bool is_moved = move();
  if (!is_moved && errno == EISDIR) {
    RemoveEmptyFolders(m_top / path);
    is_moved = move();
  }
  if (!is_moved) fail(errno);
  struct stat status {};
  if (fstatat(parent.folder.Get(), parent.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return {};
  return StatOf(status);
}

void Folder::Remove(const std::string& path) const {
  const OpenedParent parent = OpenParent(m_handle, path, MissingFolders::Fail);
  if (!parent.folder.IsOpen()) return;
  if (unlinkat(parent.folder.Get(), parent.name.c_str(), 0) != 0 && errno != ENOENT)
    FailOnFile("remove", path, errno);
  for (std::string folder = path; folder.find('/') != std::string::npos;) {
    folder.resize(folder.rfind('/'));
    const OpenedParent above = OpenParent(m_handle, folder, MissingFolders::Fail);
    // A folder that isn't empty stays with its other files.
    if (!above.folder.IsOpen() ||
        unlinkat(above.folder.Get(), above.name.c_str(), AT_REMOVEDIR) != 0)
      return;
  }
}

void CheckPath(const std::string& path) {
  std::string_view rest = path;
  while (!rest.empty()) {
    const std::string_view name = rest.substr(0, rest.find('/'));
    rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    if (name.empty() || name == "." || name == ".." || name == Folder::kStoreName) {
      throw Failure("cannot use a path of the history in a folder: \"" + Printable(path) +
                    "\" is unsafe; files are unchanged");
    }
  }
}

}  // namespace Tal
