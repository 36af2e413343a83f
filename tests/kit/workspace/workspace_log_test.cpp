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

}  // namespace
}  // namespace TalVcs::Testing
