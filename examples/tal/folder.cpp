#include "folder.h"

#include "failure.h"
#include "terminal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace fs = std::filesystem;

namespace Tal {
namespace {

constexpr std::size_t kBlockSize = 1 << 18;

class File {
 public:
  File(const fs::path& path, int flags, mode_t mode = 0)
      : m_handle(open(path.c_str(), flags | O_CLOEXEC, mode)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    if (m_handle >= 0) close(m_handle);
  }
  int Handle() const noexcept { return m_handle; }

  /// Closes the file and tells whether all that was written is there.
  bool Close() noexcept { return close(std::exchange(m_handle, -1)) == 0; }

 private:
  int m_handle;
};

[[noreturn]] void Fail(const char* what, const std::string& path, int error) {
  throw Failure(std::string("cannot ") + what + " \"" + Printable(path) +
                "\": " + std::strerror(error));
}

bool IsRegularFile(int handle) {
  struct stat status {};
  return fstat(handle, &status) == 0 && S_ISREG(status.st_mode);
}

/// Calls `take(data, size)` for each block of the file until it gives false.
template <class Take>
bool ReadBlocks(int handle, Take take) {
  std::vector<char> block(kBlockSize);
  for (;;) {
    const ssize_t size = read(handle, block.data(), block.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return false;
    if (size == 0) return true;
    if (!take(block.data(), static_cast<std::size_t>(size))) return false;
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

const char* KindName(fs::file_type type) {
  switch (type) {
    case fs::file_type::symlink:
      return "symbolic link";
    case fs::file_type::fifo:
      return "pipe";
    case fs::file_type::socket:
      return "socket";
    default:
      return "special file";
  }
}

/// Walks a folder with a work list, so that no depth of nesting matters.
class Lister {
 public:
  Lister(const Folder& folder, const std::vector<TreePtr>& tracked, const IgnoreRules& rules)
      : m_folder(folder), m_tracked(tracked), m_rules(rules) {}

  FolderContents List() {
    m_pending.push_back({"", false});
    while (!m_pending.empty()) {
      const Pending pending = std::move(m_pending.back());
      m_pending.pop_back();
      ListOne(pending);
    }
    std::sort(m_contents.files.begin(), m_contents.files.end());
    std::sort(m_contents.refused.begin(), m_contents.refused.end());
    std::sort(m_contents.skipped.begin(), m_contents.skipped.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    return std::move(m_contents);
  }

 private:
  struct Pending {
    std::string path;
    bool isIgnored;  // it is here for what is tracked in it
  };

  void ListOne(const Pending& pending) {
    const std::string& folder = pending.path;
    std::error_code error;
    fs::directory_iterator entries(m_folder.PathOf(folder), error);
    if (error) Fail("list", folder.empty() ? "." : folder, error.value());
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
      const std::string name = entries->path().filename().string();
      Place(folder.empty() ? name : folder + "/" + name, name, *entries, pending.isIgnored);
    }
    if (error) Fail("list", folder, error.value());
  }

  void Place(const std::string& path, const std::string& name, const fs::directory_entry& entry,
             bool isInIgnored) {
    if (path == Folder::kStoreName) return;
    std::error_code error;
    const fs::file_type type = entry.symlink_status(error).type();
    if (error) Fail("examine", path, error.value());
    const bool isFolder = type == fs::file_type::directory;
    const bool isIgnored = isInIgnored || m_rules.Matches(path, isFolder);
    if (isIgnored && !IsTracked(path)) return;

    if (name == Folder::kStoreName) {
      m_contents.skipped.push_back({path, "the store of another history"});
    } else if (!isFolder && type != fs::file_type::regular) {
      m_contents.skipped.push_back({path, KindName(type)});
    } else if (!ToWideExactly(name)) {
      m_contents.refused.push_back(path);
    } else if (isFolder) {
      m_pending.push_back({path, isIgnored});
    } else {
      m_contents.files.push_back(path);
    }
  }

  bool IsTracked(const std::string& path) const {
    const WideString wide = ToWide(path);
    return std::any_of(m_tracked.begin(), m_tracked.end(),
                       [&](const TreePtr& tree) { return tree && tree->GetDeepObject(wide); });
  }

  const Folder& m_folder;
  const std::vector<TreePtr>& m_tracked;
  const IgnoreRules& m_rules;
  std::vector<Pending> m_pending;
  FolderContents m_contents;
};

}  // namespace

FolderContents Folder::List(const std::vector<TreePtr>& tracked) const {
  IgnoreRules rules;
  std::error_code error;
  if (fs::is_regular_file(fs::symlink_status(PathOf(kIgnoreName), error)))
    rules = IgnoreRules(TalVcs::Kit::BytesFromBuffer(Read(kIgnoreName)));
  return Lister(*this, tracked, rules).List();
}

TalVcs::Buffer Folder::Read(const std::string& path) const {
  const File file(PathOf(path), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  if (file.Handle() < 0) Fail("read", path, errno);
  if (!IsRegularFile(file.Handle()))
    throw Failure("cannot read \"" + Printable(path) + "\": it is not a regular file");
  TalVcs::Buffer bytes;
  const bool all = ReadBlocks(
      file.Handle(), [&](const char* data, std::size_t size) { return bytes.Append(data, size); });
  if (!all) Fail("read", path, errno);
  return bytes;
}

bool Folder::Holds(const std::string& path, const TalVcs::Buffer& bytes) const {
  const File file(PathOf(path), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  struct stat status {};
  if (file.Handle() < 0 || fstat(file.Handle(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode)) return false;
  if (static_cast<std::uint64_t>(status.st_size) != bytes.GetSize()) return false;
  std::uint64_t position = 0;
  std::vector<char> expected(kBlockSize);
  const bool same = ReadBlocks(file.Handle(), [&](const char* data, std::size_t size) {
    if (bytes.ReadAt(position, expected.data(), size) != size) return false;
    position += size;
    return std::memcmp(data, expected.data(), size) == 0;
  });
  return same && position == bytes.GetSize();
}

void Folder::Write(const std::string& path, const TalVcs::Buffer& bytes) const {
  const fs::path target = PathOf(path);
  std::error_code error;
  fs::create_directories(target.parent_path(), error);
  if (error) Fail("create the folder of", path, error.value());

  const fs::path parked = m_top / kStoreName / "tal-incoming";
  File file(parked, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0666);
  if (file.Handle() < 0) Fail("write", path, errno);
  struct stat status {};
  if (lstat(target.c_str(), &status) == 0 && S_ISREG(status.st_mode))
    fchmod(file.Handle(), status.st_mode & 07777);
  if (!WriteAll(file.Handle(), bytes) || !file.Close() ||
      rename(parked.c_str(), target.c_str()) != 0) {
    const int reason = errno;
    unlink(parked.c_str());
    Fail("write", path, reason);
  }
}

void Folder::Remove(const std::string& path) const {
  if (unlink(PathOf(path).c_str()) != 0 && errno != ENOENT) Fail("remove", path, errno);
  for (std::string folder = path; folder.find('/') != std::string::npos;) {
    folder.resize(folder.rfind('/'));
    if (rmdir(PathOf(folder).c_str()) != 0) return;  // not empty: its other files stay
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
