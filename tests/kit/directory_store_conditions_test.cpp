// What a file system does to a store outside of its own calls: it is full, may not be written,
// loses folders, has things of another kind under their names, or serves others at the same time.

#ifndef _WIN32

#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/child_process.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/mount.h>
#endif

#include <functional>
#include <optional>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;
namespace fs = std::filesystem;

DirectoryStore Open(const fs::path& folder) {
  DirectoryStoreOptions options;
  options.durable = false;
  return DirectoryStore(folder, options);
}

/// Saves, and returns what went wrong, or "".
std::string SaveIn(const fs::path& folder, Repository& repository) {
  DirectoryStore store = Open(folder);
  const bool saved = Save(repository, store);
  return store.Commit() && saved ? "" : store.LastError() + '.';
}

/// Loads by a new store object. The result names objects that are missing or altered.
std::string LoadFrom(const fs::path& folder) {
  DirectoryStore store = Open(folder);
  const std::string found = Load(store);
  return store.FindDamage().empty() ? found : found + ", with damage: " + store.LastError();
}

/// A repository with a file of each size up to some 40 kB, so that its save may end anywhere.
Repository LargeState() {
  Repository repository = NewState();
  for (int number = 1; number <= 10; ++number) {
    const std::string name = "large/" + std::to_string(number);
    CommitFile(repository, Wide("master"), name, std::string(4000u * number, 'x') + name);
  }
  return repository;
}

class DirectoryStoreConditions : public testing::Test {
 protected:
  void SaveOld(const fs::path& folder) { ASSERT_EQ(SaveIn(folder, m_old), ""); }
  fs::path File(const std::string& name) const { return m_folder.Path() / ".vcs" / name; }

  TemporaryFolder m_folder;
  Repository m_old = OldState();
  Repository m_large = LargeState();
};

/// While it lives, no file may grow beyond so many bytes.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : m_handler(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &m_former);
    const rlimit limit{bytes, m_former.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &m_former);
    ::signal(SIGXFSZ, m_handler);
  }

 private:
  void (*m_handler)(int);
  rlimit m_former{};
};

#ifdef __linux__
/// A medium of so many pages of 4 kB, as long as it lives: a file system of its own, or, for a
/// process that may not mount one, a limit for each file.
class SmallMedium {
 public:
  SmallMedium(const fs::path& folder, int pages) : m_folder(folder) {
    m_mounted = ::mount("tmpfs", folder.c_str(), "tmpfs", 0, SizeOf(pages).c_str()) == 0;
    if (!m_mounted) m_limit.emplace(rlim_t{4096} * pages);
  }
  SmallMedium(const SmallMedium&) = delete;
  SmallMedium& operator=(const SmallMedium&) = delete;
  ~SmallMedium() {
    if (m_mounted) ::umount2(m_folder.c_str(), MNT_DETACH);
  }
  bool IsMounted() const noexcept { return m_mounted; }
  bool MakeRoom() {
    m_limit.reset();
    return !m_mounted ||
           ::mount("tmpfs", m_folder.c_str(), "tmpfs", MS_REMOUNT, SizeOf(1000).c_str()) == 0;
  }

 private:
  static std::string SizeOf(int pages) { return "size=" + std::to_string(pages * 4) + "k"; }

  fs::path m_folder;
  bool m_mounted = false;
  std::optional<FileSizeLimit> m_limit;
};

TEST_F(DirectoryStoreConditions, FullMediumLeavesTheOldStateOrTheNew) {
  int refused = 0;
  bool mounted = true;
  for (int pages = 1;; ++pages) {
    fs::remove_all(File(""));
    SmallMedium medium(m_folder.Path(), pages);
    mounted = medium.IsMounted();
    if (SaveIn(m_folder.Path(), m_old) != "") continue;
    const std::string error = SaveIn(m_folder.Path(), m_large);
    ASSERT_EQ(LoadFrom(m_folder.Path()), Describe(error.empty() ? m_large : m_old)) << pages;
    if (error.empty()) break;
    EXPECT_NE(error.find(mounted ? "space" : "cannot write"), std::string::npos) << error;
    ++refused;
    ASSERT_TRUE(medium.MakeRoom());
    ASSERT_EQ(SaveIn(m_folder.Path(), m_large), "") << pages;
    ASSERT_EQ(LoadFrom(m_folder.Path()), Describe(m_large)) << pages;
  }
  // All pages together, or those of the largest file alone.
  EXPECT_GT(refused, mounted ? 30 : 7);
}
#endif

TEST_F(DirectoryStoreConditions, FilesThatMayNotGrowLeaveTheOldStateOrTheNew) {
  SaveOld(m_folder.Path());
  for (const rlim_t limit : {0, 100, 300, 1000, 4100, 10000, 40000}) {
    std::string error;
    {
      const FileSizeLimit small(limit);
      error = SaveIn(m_folder.Path(), m_large);
    }
    EXPECT_NE(error.find("cannot write"), std::string::npos) << limit << ": " << error;
    EXPECT_EQ(LoadFrom(m_folder.Path()), Describe(m_old)) << limit;
  }
  const FileSizeLimit enough(50000);
  EXPECT_EQ(SaveIn(m_folder.Path(), m_large), "");
}

TEST_F(DirectoryStoreConditions, FolderThatMayNotBeWrittenCanStillBeRead) {
  SaveOld(m_folder.Path());
  const auto all = fs::perms::owner_all | fs::perms::group_all | fs::perms::others_all;
  const auto writing = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
  fs::permissions(m_folder.Path(), all & ~writing);
  for (const auto& entry : fs::recursive_directory_iterator(m_folder.Path())) {
    fs::permissions(entry.path(), all & ~writing);
  }
  // The child enters the folder first: the folders above it may be closed to other users.
  constexpr int kSuperuser = 3;
  const int code = InChild([&] {
    fs::current_path(m_folder.Path());
    const bool superuser = !BecomeOrdinaryUser();
    if (LoadFrom(".") != Describe(m_old)) return 1;
    const std::string error = SaveIn(".", m_large);
    if (superuser) return error.empty() ? kSuperuser : 2;
    return error.find("cannot ") == 0 ? 0 : 2;
  });
  fs::permissions(m_folder.Path(), all);
  for (const auto& entry : fs::recursive_directory_iterator(m_folder.Path())) {
    fs::permissions(entry.path(), all);
  }
  EXPECT_TRUE(code == 0 || code == kSuperuser) << code;
  EXPECT_EQ(LoadFrom(m_folder.Path()), Describe(code == kSuperuser ? m_large : m_old));
}

TEST_F(DirectoryStoreConditions, FolderThatVanishesDuringALoadFailsIt) {
  SaveOld(m_folder.Path());
  DirectoryStore store = Open(m_folder.Path());
  ASSERT_FALSE(store.ListBlobs(Wide("/.vcs/refs/heads")).empty());
  fs::remove_all(File("objects"));
  const WideString path = PathBuilder(WideString()).GetObjectW(m_old.GetHead(Wide("old"))->GetId());
  EXPECT_FALSE(store.OpenBlob(path));
  EXPECT_NE(store.LastError().find("cannot read"), std::string::npos);
  EXPECT_EQ(Load(store), "damaged 0 commits, 0 trees, 0 blobs");
}

TEST_F(DirectoryStoreConditions, FolderThatVanishesBetweenSavesIsMadeAnew) {
  SaveOld(m_folder.Path());
  DirectoryStore store = Open(m_folder.Path());
  ASSERT_TRUE(Save(m_large, store));
  fs::remove_all(File(""));
  EXPECT_FALSE(store.Commit());
  EXPECT_EQ(SaveIn(m_folder.Path(), m_large), "");
  EXPECT_EQ(LoadFrom(m_folder.Path()), Describe(m_large));
}

/// Puts a file where a folder was, or the other way round.
void Replace(const fs::path& path) {
  const bool folder = fs::is_directory(path);
  fs::remove_all(path);
  if (folder) {
    WriteWhole(path, "a file");
  } else {
    fs::create_directories(path / "inside");
  }
}

TEST_F(DirectoryStoreConditions, ThingsOfAnotherKindAreReported) {
  const std::string object = IdOf(*m_old.GetHead(Wide("old")));
  const std::string folder = "objects/" + object.substr(0, 2);
  // The name, whether a load can do without it, and whether a save puts it right.
  const struct {
    std::string name;
    bool loads;
    bool saves;
  } cases[] = {{"state", false, false},   {"objects", false, false},
               {folder, false, false},    {folder + '/' + object.substr(2), false, false},
               {"lock", true, false},     {"readers", true, true},
               {"state.new", true, false}};
  for (const auto& one : cases) {
    const TemporaryFolder place;
    const fs::path path = place.Path() / ".vcs" / one.name;
    SaveOld(place.Path());
    Replace(path);
    const std::string loaded = LoadFrom(place.Path());
    EXPECT_EQ(loaded == Describe(m_old), one.loads) << one.name << ": " << loaded;
    const std::string error = SaveIn(place.Path(), m_old);
    EXPECT_EQ(error.empty(), one.saves) << one.name << ": " << error;
    EXPECT_EQ(error.find(fs::path(one.name).filename().string()) != std::string::npos, !one.saves)
        << error;
    fs::remove_all(path);
    EXPECT_EQ(LoadFrom(place.Path()) == Describe(m_old), one.loads) << one.name;
  }
}

// Each process saves its own state time after time. A save that isn't the only one is refused, and
// says so; in the end the store is one of the states, whole.
TEST_F(DirectoryStoreConditions, ProcessesThatSaveAtOnceTakeTurns) {
  SaveOld(m_folder.Path());
  Repository newState = NewState();
  Repository* const states[] = {&m_old, &m_large, &newState, &m_large};
  std::vector<pid_t> children;
  for (Repository* const state : states) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child != 0) {
      children.push_back(child);
      continue;
    }
    int done = 0;
    for (int turn = 0; turn < 2000 && done < 5; ++turn) {
      const std::string error = SaveIn(m_folder.Path(), *state);
      if (error.empty()) ++done;
      if (!error.empty() && error.find("another writer") == std::string::npos) ::_exit(100);
      const std::string found = LoadFrom(m_folder.Path());
      if (found != Describe(m_old) && found != Describe(m_large) && found != Describe(newState)) {
        ::_exit(101);
      }
    }
    ::_exit(done);
  }
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 5) << "100: another error; 101: a state that nobody saved";
  }
  ASSERT_EQ(SaveIn(m_folder.Path(), m_old), "");
  EXPECT_EQ(LoadFrom(m_folder.Path()), Describe(m_old));
  EXPECT_EQ(CountFiles(File("objects")),
            static_cast<int>(m_old.GetCommitCount() + m_old.GetTreeCount() + m_old.GetBlobCount()));
}

}  // namespace
}  // namespace TalVcs::Kit

#endif
