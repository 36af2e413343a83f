// The order of a log of all branches, what it reads for that, and that long walks can be cancelled.

#include <kit/store/passing_store.h>
#include <kit/text.h>
#include <tests/kit/workspace/counting_store.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::LogOptions;
using testing::ElementsAre;

constexpr std::chrono::seconds kExactly = std::chrono::seconds::max();

class WorkspaceLog : public WorkspaceTest {
 protected:
  /// Makes a version at a time in seconds.
  Version CommitAt(std::int64_t time, const std::string& message) {
    workspace.Write("a", message + std::to_string(++m_versions)).value();
    const std::chrono::sys_seconds at{Seconds(1000000000 + time)};
    return workspace.Commit(message, {.time = at}).value().value();
  }

  /// Makes so many versions, a minute apart, of which the first is tagged.
  void CommitMany(int count) {
    workspace.Write("once", "text").value();
    for (int i = 0; i < count; ++i) {
      CommitAt(60 * i, std::to_string(i));
      if (i == 0) workspace.CreateTag("old").value();
    }
  }

  /// Returns how many objects another workspace reads for a log, beyond those of opening.
  std::uint64_t CountReads(const LogOptions& options) {
    const auto slow = std::make_shared<CountingStore>(store);
    const Kit::Workspace other = Kit::Workspace::Open(slow).value();
    slow->count = 0;
    other.Log(options).value();
    return slow->count;
  }

  /// Cancels a call at its second report, or at a later one. Returns how many objects it has read.
  std::uint64_t CountReadsOfCancelled(
      const std::function<Kit::Status(Kit::Workspace&, const Kit::Progress&)>& call, int last = 2) {
    const auto slow = std::make_shared<CountingStore>(store);
    Kit::Workspace other = Kit::Workspace::Open(slow).value();
    slow->count = 0;
    // Longer than the time between two reports.
    slow->delay = std::chrono::milliseconds(25);
    int reports = 0;
    const Kit::Status status =
        call(other, [&reports, last](const Kit::ProgressStep&) { return ++reports < last; });
    EXPECT_THAT(status, FailsWith(ErrorCode::Cancelled));
    EXPECT_EQ(reports, last);
    return slow->count;
  }

 private:
  int m_versions = 0;
};

TEST_F(WorkspaceLog, FollowersOfOneSecondComeFirst) {
  CommitAt(0, "root");
  workspace.CreateBranch("topic").value();
  CommitAt(0, "master 1");
  CommitAt(0, "master 2");
  workspace.Switch("topic").value();
  CommitAt(0, "topic 1");
  workspace.CreateBranch("a tag's place").value();
  CommitAt(0, "topic 2");
  EXPECT_THAT(Summaries(workspace, {.allBranches = true}),
              ElementsAre("master 2", "topic 2", "topic 1", "master 1", "root"));
}

// A version of another branch, made after it on a computer with a slow clock, came later.
TEST_F(WorkspaceLog, FollowersOfASlowClockComeFirst) {
  CommitAt(0, "root");
  CommitAt(900, "fork");
  workspace.CreateBranch("topic").value();
  CommitAt(1000, "newest");
  workspace.Switch("topic").value();
  CommitAt(300, "slow clock");
  EXPECT_THAT(Summaries(workspace, {.allBranches = true}),
              ElementsAre("newest", "slow clock", "fork", "root"));
  EXPECT_THAT(Summaries(workspace, {.allBranches = true, .clockError = Seconds(599)}),
              ElementsAre("newest", "fork", "slow clock", "root"))
      << "each version comes once also where clocks were wrong by more";
  EXPECT_THAT(Summaries(workspace, {.allBranches = true, .clockError = kExactly}),
              ElementsAre("newest", "slow clock", "fork", "root"));
}

// Random histories with random clocks: each version comes once, after its followers, and is the
// latest of those whose followers were there. Pages make the same log.
TEST_F(WorkspaceLog, RandomHistoriesAreInOrder) {
  std::mt19937 random(20);
  for (int round = 0; round < 60; ++round) {
    store = std::make_shared<Kit::MemoryObjectStore>();
    workspace = OpenAgain();
    const int error = round % 3 == 0 ? 0 : round % 3 == 1 ? 50 : 1000;
    std::map<std::string, Version> versions;
    std::vector<Version> list;
    std::int64_t clock = 2000;
    for (int i = 0; i < 14; ++i) {
      if (!list.empty() && random() % 3 == 0) {
        const std::string branch = "branch " + std::to_string(i);
        workspace.CreateBranch(branch, list[random() % list.size()].id).value();
        workspace.Switch(branch).value();
      }
      clock += random() % 40;
      const std::int64_t wrong = error == 0 ? 0 : static_cast<std::int64_t>(random() % error);
      list.push_back(CommitAt(clock - wrong, std::to_string(i)));
      versions.emplace(Kit::ToUtf8(list.back().id.View()), list.back());
    }
    LogOptions options{.allBranches = true};
    if (round % 2 == 0) options.clockError = Seconds(1000);
    std::map<Id, int> followers;
    for (const Version& version : list) ++followers[version.parent];
    std::vector<Version> ready;
    for (const Version& version : list) {
      if (followers[version.id] == 0) ready.push_back(version);
    }
    std::vector<Version> paged;
    const std::vector<Version> log = workspace.Log(options).value();
    ASSERT_EQ(log.size(), list.size()) << round;
    for (const Version& version : log) {
      const auto at = std::ranges::find(ready, version.id, &Version::id);
      ASSERT_NE(at, ready.end()) << round << ": " << version.summary;
      EXPECT_EQ(version.time, std::ranges::max(ready, {}, &Version::time).time) << round;
      ready.erase(at);
      if (--followers[version.parent] > 0) continue;
      const auto parent = versions.find(Kit::ToUtf8(version.parent.View()));
      if (parent != versions.end()) ready.push_back(parent->second);
    }
    options.limit = 3;
    while (paged.size() < log.size()) {
      const std::vector<Version> page = workspace.Log(options).value();
      ASSERT_FALSE(page.empty());
      paged.insert(paged.end(), page.begin(), page.end());
      options.after = page.back().id;
    }
    EXPECT_EQ(paged, log) << round;
  }
}

TEST_F(WorkspaceLog, PageReadsNoMoreThanTheErrorOfClocks) {
  CommitMany(600);
  const std::uint64_t one = CountReads({.limit = 10});
  EXPECT_LE(CountReads({.allBranches = true, .limit = 10}), one + 1) << "the old tag";
  workspace.CreateBranch("topic").value();
  EXPECT_LE(CountReads({.allBranches = true, .limit = 10}), one + 1) << "a branch on the same head";
  CommitAt(60 * 600, "of master");
  workspace.Switch("topic").value();
  CommitAt(60 * 600, "of the topic");
  EXPECT_LE(CountReads({.allBranches = true, .limit = 10}), one + 3) << "branches that have met";
  // A branch that has met none within the hour.
  workspace.CreateBranch("other", workspace.Find("old")->id).value();
  workspace.Switch("other").value();
  CommitAt(60 * 600, "of another");
  EXPECT_LE(CountReads({.allBranches = true, .limit = 10}), 200U);
  EXPECT_GT(CountReads({.allBranches = true, .clockError = kExactly, .limit = 1}), 550U);
}

// What lies ahead of a page and can't be read doesn't hold it up.
TEST_F(WorkspaceLog, PageComesAlsoIfWhatLiesAheadIsGone) {
  CommitAt(0, "root");
  workspace.CreateBranch("topic").value();
  CommitAt(1, "master 1");
  CommitAt(2, "master 2");
  workspace.Switch("topic").value();
  const Version lost = CommitAt(1, "lost");
  CommitAt(2, "topic 2");
  class Lacking final : public Kit::PassingStore {
   public:
    Lacking(std::shared_ptr<IObjectStore> below, Id id) : PassingStore(below), m_id(id) {}

   protected:
    Kit::Result<Buffer> Found(const Id& id, Kit::Result<Buffer> packed) override {
      if (!(id == m_id)) return packed;
      Kit::Error error;
      error.code = ErrorCode::Unavailable;
      return error;
    }

   private:
    Id m_id;
  };
  const auto lacking = std::make_shared<Lacking>(store, lost.id);
  const Kit::Workspace other = Kit::Workspace::Open(lacking).value();
  EXPECT_THAT(Summaries(other, {.allBranches = true, .limit = 1}), ElementsAre("master 2"));
  EXPECT_THAT(other.Log({.allBranches = true}), FailsWith(ErrorCode::Unavailable));
}

// Skipped versions of a blame, the pages before and what is read ahead could not be cancelled.
TEST_F(WorkspaceLog, EachLongWalkCanBeCancelled) {
  CommitMany(300);
  const Id oldest = workspace.Find("old")->id;
  const auto log = [](const LogOptions& options) {
    return [options](Kit::Workspace& other, const Kit::Progress& progress) {
      LogOptions with_progress = options;
      with_progress.progress = progress;
      const auto versions = other.Log(with_progress);
      return versions ? Kit::Status() : Kit::Status(versions.error());
    };
  };
  EXPECT_LT(CountReadsOfCancelled(log({.author = "nobody"})), 50U);
  EXPECT_LT(CountReadsOfCancelled(log({.path = "once", .author = "nobody"})), 50U);
  EXPECT_LT(CountReadsOfCancelled(log({.allBranches = true, .after = oldest})), 50U);
  const auto blame = [](Kit::Workspace& other, const Kit::Progress& progress) {
    const auto lines = other.BlameFile("once", {.progress = progress});
    return lines ? Kit::Status() : Kit::Status(lines.error());
  };
  // The first two reports come before any version is read.
  EXPECT_LT(CountReadsOfCancelled(blame, 3), 50U);
  workspace.CreateBranch("other", oldest).value();
  workspace.Switch("other").value();
  CommitAt(60 * 300, "of another");
  EXPECT_LT(CountReadsOfCancelled(log({.allBranches = true, .clockError = kExactly})), 50U);
}

/// The log of a path reads stored forms where the path is the only wish, and objects otherwise.
class WorkspaceLogOfPath : public WorkspaceLog {
 protected:
  using Damage = std::function<Kit::Result<Buffer>(const Buffer& packed)>;

  /// Passes one object on as `damage` leaves it.
  class DamagedStore final : public Kit::PassingStore {
   public:
    DamagedStore(std::shared_ptr<IObjectStore> below, Id id, Damage damage)
        : PassingStore(std::move(below)), m_id(std::move(id)), m_damage(std::move(damage)) {}

    Kit::Result<Buffer> Found(const Id& id, Kit::Result<Buffer> packed) override {
      return id == m_id && packed ? m_damage(*packed) : packed;
    }

   private:
    Id m_id;
    Damage m_damage;
  };

  static Kit::Error ErrorWith(ErrorCode code) {
    Kit::Error error;
    error.code = code;
    return error;
  }

  /// Returns the wish for a path by which objects are walked: each version is before that time.
  static LogOptions ByObjects(const std::string& path) {
    return {.path = path, .until = std::chrono::sys_seconds(Seconds(4000000000))};
  }

  /// Returns the summaries of a log, or the description of its error.
  static std::string Describe(const Kit::Workspace& of, const LogOptions& options) {
    const auto versions = of.Log(options);
    if (!versions) return Kit::Describe(versions.error());
    std::string text;
    for (const Version& version : *versions) text += version.summary + "\n";
    return text;
  }

  /// Returns how many versions a log reports to have passed.
  static std::uint64_t CountPassed(const Kit::Workspace& of, LogOptions options) {
    std::uint64_t count = 0;
    options.progress = [&count](const Kit::ProgressStep& step) {
      count = step.done;
      return true;
    };
    of.Log(options).value();
    return count;
  }

  /// Makes a history with files and folders at paths of each depth, which become one another.
  void CommitPaths() {
    CommitFiles({{"a", "1"}, {"b/c", "1"}, {"d/e/f", "1"}}, "first");
    CommitFiles({{"a", "2"}}, "file");
    CommitFiles({{"d/e/f", "2"}}, "deep file");
    CommitFiles({{"d/e/f", "1"}}, "deep file back");
    CommitFiles({{"b/c", ""}}, "folder removed");
    CommitFiles({{"b", "1"}, {"a", "1"}}, "folder is a file");
    CommitFiles({{"b", ""}}, "file removed");
    CommitFiles({{"b/c", "1"}}, "file is a folder");
    CommitFiles({{"a-b", "1"}, {"ab", "1"}, {"d/e.f", "1"}}, "like names");
  }
};

TEST_F(WorkspaceLogOfPath, ListsTheVersionsThatChangedWhatIsThere) {
  CommitPaths();
  const auto log = [this](const std::string& path) { return Summaries(workspace, {.path = path}); };
  EXPECT_THAT(log("a"), ElementsAre("folder is a file", "file", "first"));
  EXPECT_THAT(log("b"), ElementsAre("file is a folder", "file removed", "folder is a file",
                                    "folder removed", "first"));
  EXPECT_THAT(log("b/c"), ElementsAre("file is a folder", "folder removed", "first"));
  EXPECT_THAT(log("d"), ElementsAre("like names", "deep file back", "deep file", "first"));
  EXPECT_THAT(log("d/e/f"), ElementsAre("deep file back", "deep file", "first"));
  EXPECT_THAT(log("a/b"), ElementsAre());
  EXPECT_THAT(log("e"), ElementsAre());
}

TEST_F(WorkspaceLogOfPath, IsThatOfObjectsForRandomHistories) {
  const std::vector<std::string> paths{"a", "b/c", "b/d", "b/e/f", "g/h/i", "g/h", "g"};
  std::mt19937 random(20);
  for (int i = 0; i < 200; ++i) {
    const std::string& path = paths[random() % paths.size()];
    const std::string text = std::to_string(random() % 3);
    // A file where there is a folder is refused.
    static_cast<void>(random() % 4 == 0 ? workspace.Remove(path) : workspace.Write(path, text));
    workspace.Commit(std::to_string(i)).value();
  }
  for (const std::string path : {"a", "b", "b/c", "b/e", "b/e/f", "g", "g/h", "g/h/i", "g/h/i/j"}) {
    EXPECT_EQ(Describe(workspace, {.path = path}), Describe(workspace, ByObjects(path))) << path;
    LogOptions some = ByObjects(path);
    some.limit = 3;
    EXPECT_EQ(Describe(workspace, {.path = path, .limit = 3}), Describe(workspace, some)) << path;
    EXPECT_EQ(CountPassed(workspace, {.path = path}), CountPassed(workspace, ByObjects(path)));
    EXPECT_EQ(CountPassed(workspace, {.path = path, .limit = 3}), CountPassed(workspace, some));
  }
}

// An object that isn't needed may have any damage; one that is needed fails as it does by objects.
TEST_F(WorkspaceLogOfPath, FailsOnDamageAsObjectsDo) {
  CommitPaths();
  const std::vector<Damage> damages{
      [](const Buffer&) { return ErrorWith(ErrorCode::NotFound); },
      [](const Buffer&) { return ErrorWith(ErrorCode::Unavailable); },
      [](Buffer packed) {
        packed.Append(" ", 1);
        return packed;
      },
  };
  std::vector<Id> ids;
  store
      ->List([&ids](std::span<const Id> listed) {
        ids.insert(ids.end(), listed.begin(), listed.end());
        return true;
      })
      .value();
  int failures = 0;
  for (const Id& id : ids) {
    for (const Damage& damage : damages) {
      const auto damaged = std::make_shared<DamagedStore>(store, id, damage);
      const auto other = Kit::Workspace::Open(damaged);
      for (const std::string path : {"a", "b/c", "d/e/f"}) {
        if (!other) continue;
        const auto again = Kit::Workspace::Open(damaged);
        const std::string expected = Describe(*again, ByObjects(path));
        EXPECT_EQ(Describe(*other, {.path = path}), expected) << path;
        failures += expected.find("object") != expected.npos ? 1 : 0;
      }
    }
  }
  EXPECT_GT(failures, 50);
}

// A folder whose names aren't in order has the digest of its id, and is refused all the same.
TEST_F(WorkspaceLogOfPath, RefusesFolderOfAnotherForm) {
  const std::string zeros(64, '0');
  const std::string records = "100644 blob b" + ('\0' + zeros) + "100644 blob a" + ('\0' + zeros);
  const auto write = [this](const std::string& type, const std::string& data) {
    const std::string bytes = type + " " + std::to_string(data.size()) + '\0' + data;
    Buffer packed;
    packed.Append(bytes.data(), bytes.size());
    store->Write({{{Id(packed), packed, Id()}}}).value();
    return Id(packed);
  };
  const Version head = CommitAt(0, "head");
  const cow_ptr<Tree> files = workspace.At(head.id).value().GetTree();
  std::string commit;
  store
      ->Read({&head.id, 1},
             [&commit](const Id&, const Kit::Result<Buffer>& packed) {
               commit = Kit::BytesFromBuffer(*packed);
             })
      .value();
  commit.erase(0, commit.find('\0') + 1);
  const std::string tree = Kit::ToUtf8(write("tree", records).View());
  commit.replace(commit.find("tree ") + 5, tree.size(), tree);
  const Id bad = write("commit", commit);
  commit.insert(commit.find('\n') + 1, "parent " + Kit::ToUtf8(bad.View()) + "\n");
  commit.replace(commit.find("tree ") + 5, tree.size(), Kit::ToUtf8(files->GetId().View()));
  const Id top = write("commit", commit);
  store->MoveHeads({{{"master", head.id, top}}}).value();
  const Kit::Workspace other = OpenAgain();
  EXPECT_THAT(other.Log({.path = "a"}), FailsWith(ErrorCode::Damaged));
  EXPECT_EQ(Describe(other, {.path = "a"}), Describe(other, ByObjects("a")));
}

// A cancelled call of the store counted as objects that can't be read, and the log went on.
TEST_F(WorkspaceLogOfPath, EndsWhenTheStoreIsCancelled) {
  CommitMany(40);
  class Cancelling final : public Kit::PassingStore {
   public:
    using PassingStore::PassingStore;
    std::optional<Kit::StoreOperation> failing;
    ErrorCode code = ErrorCode::Cancelled;

   protected:
    Kit::Status Before(const Kit::StoreCall& call) override {
      if (call.operation != failing || call.count < 16) return {};
      failing.reset();
      return ErrorWith(code);
    }
  };
  for (const auto operation : {Kit::StoreOperation::Read, Kit::StoreOperation::ReadHistory}) {
    const auto cancelling = std::make_shared<Cancelling>(store);
    const Kit::Workspace other = Kit::Workspace::Open(cancelling).value();
    cancelling->failing = operation;
    EXPECT_THAT(other.Log({.path = "once"}), FailsWith(ErrorCode::Cancelled));
    EXPECT_EQ(cancelling->failing, std::nullopt);
    cancelling->failing = operation;
    cancelling->code = ErrorCode::Busy;
    EXPECT_THAT(Summaries(other, {.path = "once"}), ElementsAre("0"));
    EXPECT_EQ(cancelling->failing, std::nullopt);
  }
}

// The folders of a window were read without a report in between.
TEST_F(WorkspaceLogOfPath, ReportsBetweenReadsOfOneWindow) {
  CommitMany(400);
  EXPECT_LT(CountReadsOfCancelled(
                [](Kit::Workspace& other, const Kit::Progress& progress) {
                  const auto versions = other.Log({.path = "once", .progress = progress});
                  return versions ? Kit::Status() : Kit::Status(versions.error());
                },
                11),
            750U);
}

// Folders of many versions were read one at a time, each by a call of its own.
TEST_F(WorkspaceLogOfPath, ReadsFoldersTogether) {
  CommitMany(300);
  class Calls final : public Kit::PassingStore {
   public:
    using PassingStore::PassingStore;
    int count = 0;

   protected:
    Kit::Status Before(const Kit::StoreCall&) override {
      ++count;
      return {};
    }
  };
  const auto calls = std::make_shared<Calls>(store);
  const Kit::Workspace other = Kit::Workspace::Open(calls).value();
  calls->count = 0;
  EXPECT_THAT(Summaries(other, {.path = "once"}), ElementsAre("0"));
  EXPECT_LT(calls->count, 30);
}

}  // namespace
}  // namespace TalVcs::Testing
