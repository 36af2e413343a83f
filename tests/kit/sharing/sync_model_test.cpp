// Random programs for several workspaces that share a history, against a plain model; and many
// threads at once on a store in a folder.

#include <kit/store/directory_object_store.h>
#include <tests/kit/sharing/sharing_fixture.h>
#include <tests/kit/temporary_folder.h>
#include <tests/kit/workspace/plain_merge.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <thread>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;

int NumberFrom(const char* variable, int otherwise) {
  const char* wish = std::getenv(variable);
  return wish == nullptr ? otherwise : std::atoi(wish);
}

/// A version of the model: its message and its files.
struct PlainVersion {
  std::string message;
  FileTexts files;
};

using PlainLine = std::vector<PlainVersion>;  // oldest first

/// What one workspace has. The first `shared` versions of its line are those of the remote.
struct PlainSite {
  PlainLine line;
  std::size_t shared = 0;
};

class SyncModel : public SharingTest {
 protected:
  void Run(unsigned seed, int steps) {
    m_random.seed(seed);
    shared = std::make_shared<Kit::MemoryObjectStore>();
    m_sites.clear();
    m_plain.assign(3, {});
    m_remote.clear();
    m_edits = 0;
    for (const char* author : {"Ada", "Bob", "Cara"}) m_sites.push_back(MakeSite(author));
    for (int step = 0; step < steps && !HasFailure(); ++step) Step();
    for (std::size_t i = 0; i < m_sites.size() && !HasFailure(); ++i) SyncSite(i);
    for (std::size_t i = 0; i < m_sites.size() && !HasFailure(); ++i) SyncSite(i);
    ExpectWhole(*shared);
  }

 private:
  unsigned Number(unsigned below) { return static_cast<unsigned>(m_random() % below); }

  static FileTexts FilesAt(const PlainLine& line, std::size_t count) {
    return count == 0 ? FileTexts() : line[count - 1].files;
  }

  void Step() {
    const std::size_t index = Number(3);
    switch (Number(4)) {
      case 0:
      case 1:
        return EditSite(index);
      case 2:
        return SyncSite(index);
      default:
        return SyncSiteWithFault(index);
    }
  }

  void EditSite(std::size_t index) {
    constexpr const char* kPaths[] = {"a", "b", "d/x", "d/y", "e/f/g"};
    const std::string path = kPaths[Number(5)];
    PlainLine& line = m_plain[index].line;
    FileTexts files = FilesAt(line, line.size());
    Kit::Workspace& workspace = m_sites[index].workspace;
    if (Number(4) == 0 && files.erase(path) != 0) {
      workspace.Remove(path).value();
    } else {
      files[path] = std::to_string(Number(3));
      workspace.Write(path, files[path]).value();
    }
    const std::string message = "edit " + std::to_string(++m_edits);
    if (workspace.Commit(message).value()) line.push_back({message, files});
  }

  /// Syncs. Each conflict is decided by chance, in the workspace's terms and in the model's.
  void SyncSite(std::size_t index) {
    PlainSite& plain = m_plain[index];
    std::vector<ModelMerge> merges;
    const bool decides = Number(4) != 0;
    std::optional<std::set<std::string>> undecided;
    PlainLine next = m_remote;
    // The model replays as the workspace asks for decisions, version by version.
    std::size_t at = plain.shared;
    const auto replay_until = [&](const std::string* message, const Kit::MergePreview* preview,
                                  Kit::Decisions* decisions) {
      for (; at < plain.line.size(); ++at) {
        const FileTexts base = FilesAt(plain.line, at);
        const FileTexts& theirs = plain.line[at].files;
        const FileTexts ours = FilesAt(next, next.size());
        ModelMerge merge = MergeFiles(base, ours, theirs);
        if (!merge.conflicts.empty()) {
          if (message == nullptr || *message != plain.line[at].message) {
            undecided = merge.conflicts;
            return;
          }
          std::set<std::string> paths;
          for (const Kit::Conflict& conflict : preview->conflicts) {
            paths.insert(conflict.path);
            const bool takes_theirs = Number(2) == 0;
            decisions->emplace(conflict.path,
                               takes_theirs ? Kit::Decision::Theirs() : Kit::Decision::Ours());
            if (!takes_theirs) continue;
            merge.files.erase(conflict.path);
            if (const std::string* text = TextAt(theirs, conflict.path)) {
              merge.files.emplace(conflict.path, *text);
            }
          }
          EXPECT_EQ(paths, merge.conflicts);
        }
        if (merge.files != ours) next.push_back({plain.line[at].message, merge.files});
        if (message != nullptr && *message == plain.line[at].message) {
          ++at;
          return;
        }
      }
    };
    const bool is_ahead = m_remote.size() == plain.shared;  // nothing to bring in
    Kit::SyncOptions options = Options();
    if (decides) {
      options.decide = [&](const Kit::MergePreview& preview) {
        Kit::Decisions decisions;
        replay_until(&preview.version.message, &preview, &decisions);
        return Kit::Result(decisions);
      };
    }
    Site& site = m_sites[index];
    const Kit::SyncReport report = site.workspace.Sync(site.remote, options).value();
    if (is_ahead) {
      next = plain.line;
    } else {
      replay_until(nullptr, nullptr, nullptr);
    }
    ASSERT_EQ(report.undecided.has_value(), undecided.has_value());
    if (undecided) {
      std::set<std::string> paths;
      for (const Kit::Conflict& conflict : report.undecided->conflicts) paths.insert(conflict.path);
      EXPECT_EQ(paths, *undecided);
    } else {
      m_remote = next;
      plain = {next, next.size()};
    }
    Check(site.workspace, plain.line);
    if (!m_remote.empty()) Check(OpenOn(shared, ""), m_remote);
  }

  /// Lets a call fail in the middle; the next sync goes on.
  void SyncSiteWithFault(std::size_t index) {
    Site& site = m_sites[index];
    Kit::FaultInjectionStore& faulty = Number(2) == 0 ? *site.far : *site.local;
    // A sync without conflicts that is interrupted ends as one that isn't.
    faulty.Restart();
    faulty.FailFrom(1 + Number(5));
    const auto fetched = site.remote.Fetch(*site.local);
    faulty.FailFrom(0);
    EXPECT_TRUE(fetched.ok() || faulty.HasFailed());
    site.workspace = OpenOn(site.local, "Again");
    SyncSite(index);
  }

  static void Check(const Kit::Workspace& workspace, const PlainLine& line) {
    PlainLine::const_reverse_iterator at = line.rbegin();
    for (const Kit::Version& version : workspace.Log({.limit = 10000}).value()) {
      ASSERT_TRUE(at != line.rend());
      EXPECT_EQ(version.message, at->message);
      EXPECT_EQ(FilesOf(workspace.At(version.id).value()), at->files) << at->message;
      ++at;
    }
    EXPECT_TRUE(at == line.rend());
  }

  std::mt19937 m_random;
  std::vector<Site> m_sites;
  std::vector<PlainSite> m_plain;
  PlainLine m_remote;
  int m_edits = 0;
};

// TALVCS_SYNC_PROGRAMS sets the number of programs.
TEST_F(SyncModel, RandomProgramsDoWhatThePlainModelDoes) {
  const int programs = NumberFrom("TALVCS_SYNC_PROGRAMS", 40);
  for (int seed = 1; seed <= programs && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Run(static_cast<unsigned>(seed), 30);
  }
}

/// One who edits a file of his own and one that all edit, and syncs after each edit.
class Writer {
 public:
  Writer(const std::filesystem::path& folder, std::string name)
      : m_name(std::move(name)),
        m_remote(std::make_shared<Kit::DirectoryObjectStore>(
            Kit::DirectoryObjectStore::Open(
                folder, {.durable = false, .busyTimeout = std::chrono::minutes(1)})
                .value())),
        m_workspace(
            Kit::Workspace::Open(std::make_shared<Kit::MemoryObjectStore>(), {.author = m_name})
                .value()) {}

  void Run(int edits) {
    Kit::SyncOptions options;
    options.mostLosses = 10000;
    options.decide = [](const Kit::MergePreview& preview) {
      Kit::Decisions decisions;
      for (const Kit::Conflict& conflict : preview.conflicts) {
        decisions.emplace(conflict.path, Kit::Decision::Theirs());
      }
      return Kit::Result(decisions);
    };
    for (int edit = 0; edit < edits; ++edit) {
      const std::string text = m_name + " " + std::to_string(edit);
      m_workspace.Write("own/" + m_name, text).value();
      m_workspace.Write("everybody's", text).value();
      m_workspace.Commit(text).value();
      const auto synced = m_workspace.Sync(m_remote, options);
      if (!synced) ++m_failures;
      m_lostRaces += synced ? synced->lostRaces : 0;
    }
    // A failure, such as that of a store that is busy for too long, leaves the edits in place.
    for (int attempt = 0; attempt < 10; ++attempt) {
      if (m_workspace.Sync(m_remote, options)) break;
    }
  }

  std::uint64_t LostRaces() const { return m_lostRaces; }
  int Failures() const { return m_failures; }

 private:
  std::string m_name;
  Kit::Remote m_remote;
  Kit::Workspace m_workspace;
  std::uint64_t m_lostRaces = 0;
  int m_failures = 0;
};

// TALVCS_SYNC_EDITS sets the number of edits of each thread.
TEST(SyncThreads, EditsOfEightThreadsAreAllInTheHistoryOnce) {
  const int edits = NumberFrom("TALVCS_SYNC_EDITS", 25);
  const TemporaryFolder folder;
  const auto place = folder.Path() / "shared";
  { Kit::DirectoryObjectStore::Create(place, {.durable = false}).value(); }
  std::vector<std::unique_ptr<Writer>> writers;
  for (int i = 0; i < 8; ++i) {
    writers.push_back(std::make_unique<Writer>(place, "w" + std::to_string(i)));
  }
  std::vector<std::thread> threads;
  for (const auto& writer : writers) threads.emplace_back([&writer, edits] { writer->Run(edits); });
  for (std::thread& thread : threads) thread.join();
  std::multiset<std::string> expected;
  for (int i = 0; i < 8; ++i) {
    for (int edit = 0; edit < edits; ++edit) {
      expected.insert("w" + std::to_string(i) + " " + std::to_string(edit));
    }
  }
  auto store =
      std::make_shared<Kit::DirectoryObjectStore>(Kit::DirectoryObjectStore::Open(place).value());
  EXPECT_TRUE(Kit::Verify(*store).value().IsWhole());
  const Kit::Workspace last = Kit::Workspace::Open(store).value();
  std::multiset<std::string> found;
  for (const Kit::Version& version : last.Log({.limit = 100000}).value()) {
    found.insert(version.message);
    EXPECT_EQ(last.At(version.id).value().Read("everybody's").value().text(), version.message);
  }
  EXPECT_EQ(found, expected);
  for (int i = 0; i < 8; ++i) {
    const std::string name = "w" + std::to_string(i);
    EXPECT_EQ(last.Read("own/" + name).value().text(), name + " " + std::to_string(edits - 1));
  }
  std::uint64_t lost = 0;
  int failures = 0;
  for (const auto& writer : writers) {
    lost += writer->LostRaces();
    failures += writer->Failures();
  }
  RecordProperty("lost_races", std::to_string(lost));
  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace TalVcs::Testing
