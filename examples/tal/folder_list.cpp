#include "failure.h"
#include "file_handle.h"
#include "file_kinds.h"
#include "folder.h"
#include "terminal.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

namespace Tal {
namespace {

const char* KindName(mode_t mode) {
  if (S_ISFIFO(mode)) return "pipe";
  return S_ISSOCK(mode) ? "socket" : "special file";
}

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

/// Walks a folder with a work list, so that no depth of nesting matters.
class Lister {
 public:
  Lister(int top, const Folder::IsTracked& isTracked, const IgnoreRules& rules)
      : m_top(top), m_isTracked(isTracked), m_rules(rules) {}

  FolderContents List() {
    m_pending.push_back({"", false});
    while (!m_pending.empty()) {
      const Pending pending = std::move(m_pending.back());
      m_pending.pop_back();
      ListOne(pending);
    }
    const auto by_path = [](const auto& a, const auto& b) { return a.path < b.path; };
    std::sort(m_contents.files.begin(), m_contents.files.end(), by_path);
    std::sort(m_contents.refused.begin(), m_contents.refused.end());
    std::sort(m_contents.skipped.begin(), m_contents.skipped.end(), by_path);
    return std::move(m_contents);
  }

 private:
  struct Pending {
    std::string path;
    bool isIgnored;  // it is here for what is tracked in it
  };

  void ListOne(const Pending& pending) {
    const std::string& folder = pending.path;
    const OpenedParent parent =
        OpenParent(m_top, folder.empty() ? "." : folder + "/.", MissingFolders::Fail);
    const int handle = parent.folder.IsOpen()
                           ? openat(parent.folder.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                           : -1;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(handle < 0 ? nullptr : fdopendir(handle),
                                                      &closedir);
    if (!entries) FailOnFile("list", folder.empty() ? "." : folder, errno);
    for (errno = 0; const dirent* entry = readdir(entries.get()); errno = 0) {
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      Place(folder.empty() ? std::string(name) : folder + "/" + entry->d_name, name, handle,
            pending.isIgnored);
    }
    if (errno != 0) FailOnFile("list", folder, errno);
  }

  void Place(std::string path, std::string_view name, int folder, bool isInIgnored) {
    if (path == Folder::kStoreName) return;
    struct stat status {};
    if (fstatat(folder, name.data(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) return;  // it has gone meanwhile
      FailOnFile("examine", path, errno);
    }
    const bool is_folder = S_ISDIR(status.st_mode);
    const bool is_ignored = isInIgnored || m_rules.Matches(path, is_folder);
    if (is_ignored && !m_isTracked(path)) return;

    if (name == Folder::kStoreName) {
      m_contents.skipped.push_back({std::move(path), "the store of another history"});
    } else if (!is_folder && !S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) {
      m_contents.skipped.push_back({std::move(path), KindName(status.st_mode)});
    } else if (path == FileKinds::kKindsName) {
      m_contents.skipped.push_back({std::move(path), "the name is reserved for the history"});
    } else if (!IsAscii(name) && !ToWideExactly(name)) {
      m_contents.refused.push_back(std::move(path));
    } else if (is_folder) {
      m_pending.push_back({std::move(path), is_ignored});
    } else {
      m_contents.files.push_back({std::move(path), StatOf(status)});
    }
  }

  int m_top;
  const Folder::IsTracked& m_isTracked;
  const IgnoreRules& m_rules;
  std::vector<Pending> m_pending;
  FolderContents m_contents;
};

}  // namespace

FolderContents Folder::List(const IsTracked& isTracked) const {
  IgnoreRules rules;
  const Entry entry = Examine(kIgnoreName);
  if (entry.type == EntryType::File && entry.stat.kind != FileKind::Link)
    rules = IgnoreRules(TalVcs::Kit::BytesFromBuffer(Read(kIgnoreName).bytes));
  return Lister(m_handle, isTracked, rules).List();
}

}  // namespace Tal
