#include "failure.h"
#include "file_handle.h"
#include "file_kinds.h"
#include "folder.h"
#include "terminal.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace Tal {
namespace {

constexpr std::size_t kFoldersOfThread = 16;  // from which a thread is worth starting
constexpr std::size_t kMostThreads = 8;

const char* KindName(mode_t mode) {
  if (S_ISFIFO(mode)) return "pipe";
  return S_ISSOCK(mode) ? "socket" : "special file";
}

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

/// Walks a folder with a work list, so that no depth of nesting matters, and on several threads
/// where there are many folders: most of the time goes into asking the system about each file.
class Lister {
 public:
  Lister(int top, const Folder::IsTracked& isTracked, const IgnoreRules& rules)
      : m_top(top), m_isTracked(isTracked), m_rules(rules) {}

  FolderContents List() {
    Listing& top = m_listings.emplace_back();
    m_pending.push_back(&top);
    Work();
    for (std::thread& thread : m_threads) thread.join();
    if (m_failure) std::rethrow_exception(m_failure);
    TakeFiles(top);
    const auto by_path = [](const auto& a, const auto& b) { return a.path < b.path; };
    std::sort(m_contents.refused.begin(), m_contents.refused.end());
    std::sort(m_contents.skipped.begin(), m_contents.skipped.end(), by_path);
    return std::move(m_contents);
  }

 private:
  struct Listing;

  struct Item {
    std::string path;  // of a folder with a "/" at its end, so that paths sort as all files do
    FileStat stat;
    Listing* folder = nullptr;  // null for a file
  };

  struct Listing {
    std::string prefix;      // of the paths in it
    bool isIgnored = false;  // it is here for what is tracked in it
    std::vector<Item> items;
  };

  /// Lists pending folders until there is none, and none can come.
  void Work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
      m_changed.wait(lock, [this] { return !m_pending.empty() || m_busy == 0; });
      if (m_pending.empty()) return;
      Listing& listing = *m_pending.back();
      m_pending.pop_back();
      ++m_busy;
      lock.unlock();
      std::exception_ptr failure;
      try {
        ListOne(listing);
      } catch (...) {
        failure = std::current_exception();
      }
      lock.lock();
      --m_busy;
      if (failure) {
        m_pending.clear();
        if (!m_failure) m_failure = failure;
      } else if (!m_failure) {
        AddFolders(listing);
      }
      m_changed.notify_all();
    }
  }

  /// Adds the folders of a listing to the pending ones. Called under the mutex.
  void AddFolders(const Listing& listing) {
    for (const Item& item : listing.items) {
      if (item.folder != nullptr) m_pending.push_back(item.folder);
    }
    const std::size_t wanted =
        std::min({kMostThreads, m_pending.size() / kFoldersOfThread + 1, m_processors});
    try {
      while (m_threads.size() + 1 < wanted) m_threads.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {
      // The threads that started, and the first one, do it.
    }
  }

  // A listing moves the position of its handle, so the top needs one that isn't shared.
  FileHandle OpenFolder(const std::string& prefix) const {
    if (prefix.empty()) return FileHandle(openat(m_top, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return OpenParent(m_top, prefix + ".", MissingFolders::Fail).folder;
  }

  void ListOne(Listing& listing) {
    const std::string& prefix = listing.prefix;
    FileHandle folder = OpenFolder(prefix);
    const int handle = folder.Get();
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(handle < 0 ? nullptr : fdopendir(handle),
                                                      &closedir);
    if (entries) folder.Release();  // the entries close it
    const auto fail = [&] {
      FailOnFile("list", prefix.empty() ? "." : prefix.substr(0, prefix.size() - 1), errno);
    };
    if (!entries) fail();
    for (errno = 0; const dirent* entry = readdir(entries.get()); errno = 0) {
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") Place(listing, name, handle);
    }
    if (errno != 0) fail();
    std::sort(listing.items.begin(), listing.items.end(),
              [](const Item& a, const Item& b) { return a.path < b.path; });
  }

  void Place(Listing& listing, std::string_view name, int folder) {
    std::string path = listing.prefix;
    path += name;
    if (path == Folder::kStoreName) return;
    struct stat status {};
    if (fstatat(folder, name.data(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) return;  // it has gone meanwhile
      FailOnFile("examine", path, errno);
    }
    const bool is_folder = S_ISDIR(status.st_mode);
    const bool is_ignored = listing.isIgnored || m_rules.Matches(path, is_folder);
    if (is_ignored && !IsTracked(path)) return;

    if (name == Folder::kStoreName) {
      Skip(std::move(path), "the store of another history");
    } else if (!is_folder && !S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) {
      Skip(std::move(path), KindName(status.st_mode));
    } else if (path == FileKinds::kKindsName) {
      Skip(std::move(path), "the name is reserved for the history");
    } else if (!IsAscii(name) && !ToWideExactly(name)) {
      const std::lock_guard lock(m_mutex);
      m_contents.refused.push_back(std::move(path));
    } else if (is_folder) {
      path += '/';
      Listing* const inner = AddListing(path, is_ignored);
      listing.items.push_back({std::move(path), {}, inner});
    } else {
      listing.items.push_back({std::move(path), StatOf(status), nullptr});
    }
  }

  bool IsTracked(const std::string& path) {
    const std::lock_guard lock(m_mutex);
    return m_isTracked(path);
  }

  void Skip(std::string path, const char* reason) {
    const std::lock_guard lock(m_mutex);
    m_contents.skipped.push_back({std::move(path), reason});
  }

  Listing* AddListing(const std::string& prefix, bool isIgnored) {
    const std::lock_guard lock(m_mutex);
    return &m_listings.emplace_back(Listing{prefix, isIgnored, {}});
  }

  /// Takes all files out of a folder and those inside, in the order of their paths.
  void TakeFiles(Listing& top) {
    struct Place {
      Listing& listing;
      std::size_t next;
    };
    std::size_t count = 0;
    for (const Listing& listing : m_listings) count += listing.items.size();
    m_contents.files.reserve(count);
    std::vector<Place> stack{{top, 0}};
    while (!stack.empty()) {
      Place& at = stack.back();
      if (at.next == at.listing.items.size()) {
        stack.pop_back();
        continue;
      }
      Item& item = at.listing.items[at.next++];
      if (item.folder == nullptr) {
        m_contents.files.push_back({std::move(item.path), item.stat});
      } else {
        stack.push_back({*item.folder, 0});
      }
    }
  }

  int m_top;
  // Asked once: the system opens a file for each answer.
  const std::size_t m_processors = std::max(1U, std::thread::hardware_concurrency());
  const Folder::IsTracked& m_isTracked;
  const IgnoreRules& m_rules;
  std::mutex m_mutex;  // of all that follows, and of the calls of `m_isTracked`
  std::condition_variable m_changed;
  std::deque<Listing> m_listings;
  std::vector<Listing*> m_pending;
  std::size_t m_busy = 0;  // folders that are being listed
  std::vector<std::thread> m_threads;
  std::exception_ptr m_failure;
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
