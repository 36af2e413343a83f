#include <kit/open/statistics.h>
#include <kit/open/verify.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <algorithm>
#include <random>
#include <set>

namespace TalVcs::Testing {
namespace {

using Kit::Decision;
using Kit::ErrorCode;
using Kit::Retention;
using Kit::RetentionReport;
using testing::ElementsAre;
using testing::IsEmpty;

class WorkspaceRetention : public WorkspaceTest {
 protected:
  void CommitNumbers(int first, int last) {
    for (int i = first; i <= last; ++i) {
      CommitFiles({{"a", std::to_string(i)}, {"file " + std::to_string(i), "x"}},
                  std::to_string(i));
    }
  }

  /// Forgets, and checks that the preview said what happened and that nothing else did.
  RetentionReport Forget(const Retention& rule) {
    const std::size_t objects = store->GetCount();
    const auto heads = store->Heads().value();
    const RetentionReport preview = workspace.PreviewForget(rule).value();
    EXPECT_EQ(store->GetCount(), objects);
    EXPECT_EQ(store->Heads().value(), heads);
    const FileTexts files = FilesOf(workspace);
    const std::uint64_t size_before = store->GetSizeInBytes();
    const RetentionReport report = workspace.Forget(rule).value();
    EXPECT_EQ(report.freed, preview.freed);
    EXPECT_EQ(report.keptVersions, preview.keptVersions);
    EXPECT_EQ(report.forgotten, preview.forgotten);
    EXPECT_EQ(report.forgottenVersions, report.forgotten.size());
    EXPECT_EQ(FilesOf(workspace), files);
    const Kit::VerifyReport verified = Kit::Verify(*store).value();
    EXPECT_TRUE(verified.IsWhole());
    EXPECT_EQ(verified.unreferencedObjects, 0u);
    EXPECT_LE(store->GetSizeInBytes(), size_before + 200 * report.keptVersions);
    for (const Version& version : report.forgotten) {
      EXPECT_THAT(workspace.At(version.id), FailsWith(ErrorCode::NotFound));
    }
    return report;
  }
};

TEST_F(WorkspaceRetention, KeepNewestForgetsTheRestInMemoryAndStore) {
  CommitNumbers(1, 10);
  const RetentionReport report = Forget(Retention::KeepNewest(3));
  EXPECT_EQ(report.forgotten.size(), 7u);
  EXPECT_EQ(report.keptVersions, 3u);
  EXPECT_THAT(Summaries(workspace), ElementsAre("10", "9", "8"));
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("10", "9", "8"));
  EXPECT_THAT(Forget(Retention::KeepNewest(3)).forgotten, IsEmpty());
}

TEST_F(WorkspaceRetention, KeptVersionsAreAsTheyWere) {
  CommitNumbers(1, 6);
  const std::vector<Version> before = workspace.Log().value();
  Forget(Retention::KeepNewest(4));
  const std::vector<Version> after = workspace.Log().value();
  ASSERT_EQ(after.size(), 4u);
  for (std::size_t i = 0; i < after.size(); ++i) {
    EXPECT_EQ(after[i].message, before[i].message);
    EXPECT_EQ(after[i].time, before[i].time);
    EXPECT_EQ(workspace.At(after[i].id).value().Read("a").value().text(), before[i].summary);
  }
}

TEST_F(WorkspaceRetention, OldestVersionThatIsLeftCantBeUndone) {
  CommitNumbers(1, 4);
  Forget(Retention::KeepNewest(2));
  EXPECT_EQ(workspace.Undo().value()->summary, "Undo \"4\"");
  EXPECT_EQ(workspace.Undo().value(), std::nullopt);
  EXPECT_EQ(workspace.Redo().value()->summary, "Redo \"4\"");
}

TEST_F(WorkspaceRetention, UndoOfAForgottenVersionIsPassedOver) {
  CommitNumbers(1, 3);
  workspace.Undo().value();
  CommitNumbers(5, 5);
  Forget(Retention::KeepNewest(2));
  EXPECT_THAT(Summaries(workspace), ElementsAre("5", "Undo \"3\""));
  workspace.Undo().value();
  EXPECT_EQ(workspace.FindUndo().value(), std::nullopt);
  EXPECT_EQ(workspace.FindRedo().value()->summary, "Undo \"5\"");
}

TEST_F(WorkspaceRetention, TagsAndTheirFilesStay) {
  CommitNumbers(1, 3);
  workspace.CreateTag("old").value();
  CommitNumbers(4, 8);
  Forget(Retention::KeepNewest(1));
  EXPECT_THAT(Summaries(workspace), ElementsAre("8", "3"));
  const Version old = workspace.Find("old").value();
  EXPECT_EQ(workspace.At(old.id).value().Read("a").value().text(), "3");
}

TEST_F(WorkspaceRetention, KeepSinceKeepsByTime) {
  CommitNumbers(1, 5);
  Forget(Retention::KeepSince(now - Seconds(60)));
  EXPECT_THAT(Summaries(workspace), ElementsAre("5", "4"));
}

TEST_F(WorkspaceRetention, ForgetThroughForgetsAVersionAndAllBeforeIt) {
  CommitNumbers(1, 3);
  workspace.CreateTag("two", workspace.Log({.limit = 2})->back().id).value();
  CommitNumbers(4, 6);
  const Id fourth = workspace.Log({.limit = 3})->back().id;
  EXPECT_EQ(Forget(Retention::ForgetThrough(fourth)).forgotten.size(), 3u);
  EXPECT_THAT(Summaries(workspace), ElementsAre("6", "5", "2"));
  EXPECT_EQ(workspace.At(workspace.Find("two")->id)->Read("a")->text(), "2");
  EXPECT_THAT(workspace.Forget(Retention::ForgetThrough(fourth)), FailsWith(ErrorCode::NotFound));
  EXPECT_THAT(workspace.Forget(Retention::ForgetThrough({})), FailsWith(ErrorCode::NotFound));
}

TEST_F(WorkspaceRetention, ForgetThroughLeavesHeadsAndForgetsWhatMergesBeginWith) {
  CommitNumbers(1, 2);
  workspace.CreateBranch("topic").value();
  CommitNumbers(3, 4);
  workspace.Switch("topic").value();
  CommitFiles({{"b", "5"}}, "5");
  workspace.Switch("master").value();
  const Id base = workspace.Log()->at(2).id;
  Forget(Retention::ForgetThrough(base));
  EXPECT_THAT(Summaries(workspace), ElementsAre("4", "3"));
  EXPECT_THAT(Summaries(workspace, {.branch = "topic"}), ElementsAre("5"));
  Forget(Retention::ForgetThrough(workspace.GetHead().value()->id));
  EXPECT_THAT(Summaries(workspace), ElementsAre("4"));
  const Kit::MergePreview preview = workspace.PreviewMerge("topic").value();
  EXPECT_THAT(preview.conflicts, testing::SizeIs(1));
  EXPECT_EQ(preview.conflicts[0].kind, Kit::ConflictKind::BothAdded);
}

TEST_F(WorkspaceRetention, KeepUnderFitsTheBytes) {
  for (int i = 1; i <= 20; ++i) {
    CommitFiles({{"a", std::to_string(i) + std::string(10000, 'x')}}, std::to_string(i));
  }
  EXPECT_GT(store->GetSizeInBytes(), 200000u);
  Forget(Retention::KeepUnder(55000));
  EXPECT_THAT(Summaries(workspace), ElementsAre("20", "19", "18", "17", "16"));
  EXPECT_LE(store->GetSizeInBytes(), 55000u);
  Forget(Retention::KeepUnder(0));
  EXPECT_THAT(Summaries(workspace), ElementsAre("20"));
}

TEST_F(WorkspaceRetention, ThinAutosavesLeavesOtherVersions) {
  const auto save = [&](int hours, bool is_checkpoint) {
    const std::string text = std::to_string(hours);
    const std::chrono::sys_seconds time = now + std::chrono::hours(hours);
    workspace.Write("a", text + (is_checkpoint ? "" : "!")).value();
    if (is_checkpoint) {
      workspace.Checkpoint(text, "", time).value();
    } else {
      workspace.Commit(text + "!", {.time = time}).value();
    }
  };
  now = std::chrono::floor<std::chrono::days>(now);
  for (const int hour : {1, 2, 3, 24, 25, 26, 47}) save(hour, true);
  save(47, false);
  for (int i = 0; i < 3; ++i) {
    workspace.Write("b", std::to_string(i)).value();
    workspace.Checkpoint("last " + std::to_string(i), "", now + std::chrono::hours(48)).value();
  }
  Forget(Retention::ThinAutosaves(2, 1, now + std::chrono::hours(49)));
  EXPECT_THAT(Summaries(workspace), ElementsAre("last 2", "last 1", "47!", "47", "26", "25", "3"));
}

TEST_F(WorkspaceRetention, TipsAndForksStay) {
  CommitNumbers(1, 3);
  workspace.CreateBranch("topic").value();
  CommitNumbers(4, 6);
  workspace.Switch("topic").value();
  CommitNumbers(7, 9);
  Forget(Retention::TipsAndForks());
  EXPECT_THAT(Summaries(workspace, {.branch = "master"}), ElementsAre("6", "3"));
  EXPECT_THAT(Summaries(workspace, {.branch = "topic"}), ElementsAre("9", "3"));
}

TEST_F(WorkspaceRetention, MergesAreRememberedWhenTheirVersionsGo) {
  CommitFiles({{"a", "1"}, {"b", "1"}}, "base");
  workspace.CreateBranch("topic").value();
  workspace.Switch("topic").value();
  CommitFiles({{"a", "topic's"}, {"b", "topic's"}}, "T1");
  workspace.Switch("master").value();
  CommitFiles({{"b", "ours"}}, "M1");
  workspace.Merge(workspace.PreviewMerge("topic").value(), {{"b", Decision::Ours()}}).value();
  CommitFiles({{"a", "1"}}, "Take a back");
  CommitFiles({{"c", "1"}}, "M4");
  workspace.Switch("topic").value();
  CommitFiles({{"d", "1"}}, "T2");
  CommitFiles({{"d", "2"}}, "T3");
  workspace.Switch("master").value();
  Forget(Retention::KeepNewest(1));
  EXPECT_THAT(Summaries(workspace), ElementsAre("M4"));
  EXPECT_THAT(Summaries(workspace, {.branch = "topic"}), ElementsAre("T3", "T1"));
  Kit::Workspace again = OpenAgain();
  EXPECT_THAT(again.PreviewMerge("topic").value().conflicts, IsEmpty());
  again.Merge("topic").value();
  EXPECT_EQ(FilesOf(again), (FileTexts{{"a", "1"}, {"b", "ours"}, {"c", "1"}, {"d", "2"}}));
}

TEST_F(WorkspaceRetention, PendingEditsStay) {
  CommitNumbers(1, 3);
  workspace.Write("b", "pending").value();
  workspace.Forget(Retention::KeepNewest(1)).value();
  EXPECT_EQ(workspace.Read("b").value().text(), "pending");
  workspace.Commit("4").value();
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("4", "3"));
}

TEST_F(WorkspaceRetention, CancelledForgettingLeavesNoTrace) {
  CommitNumbers(1, 4);
  const auto heads = store->Heads().value();
  const std::uint64_t objects = store->GetCount();
  bool was_cancelled = false;
  for (int most = 0;; ++most) {
    int calls = 0;
    Kit::ForgetOptions options;
    options.progress = [&](const Kit::ProgressStep&) { return calls++ < most; };
    const auto report = workspace.Forget(Retention::KeepNewest(2), options);
    if (report.ok()) break;
    was_cancelled = true;
    EXPECT_THAT(report, FailsWith(ErrorCode::Cancelled));
    EXPECT_EQ(store->Heads().value(), heads);
    EXPECT_THAT(Summaries(workspace), ElementsAre("4", "3", "2", "1"));
  }
  EXPECT_TRUE(was_cancelled);
  EXPECT_LT(store->GetCount(), objects);
  EXPECT_THAT(Summaries(OpenAgain()), ElementsAre("4", "3"));
}

TEST_F(WorkspaceRetention, ForgettingOnAMovedBranchFails) {
  CommitNumbers(1, 4);
  Kit::Workspace other = OpenAgain();
  CommitFiles(other, {{"b", "1"}}, "theirs");
  EXPECT_THAT(workspace.Forget(Retention::KeepNewest(1)), FailsWith(ErrorCode::HeadMoved));
  EXPECT_EQ(Summaries(OpenAgain()).size(), 5u);
}

/// All versions of a workspace, for slow and obvious searches.
class PlainHistory {
 public:
  explicit PlainHistory(const Kit::Workspace& workspace) {
    for (Kit::Version& version : workspace.Log({.allBranches = true, .limit = 1000}).value()) {
      const Id id = version.id;
      m_versions.emplace(id, std::move(version));
    }
  }

  const Kit::Version& At(const Id& id) const { return m_versions.at(id); }
  std::size_t Count() const { return m_versions.size(); }

  /// Returns a version and those before it, newest first.
  std::vector<Id> LineOf(Id id) const {
    std::vector<Id> line;
    for (; !id.View().IsEmpty(); id = At(id).parent) line.push_back(id);
    return line;
  }

  /// Returns a version and all that it comes from, by parents and merges.
  std::set<Id> ContentOf(const Id& id) const {
    std::set<Id> content{id};
    std::vector<Id> pending{id};
    while (!pending.empty()) {
      const Kit::Version version = At(pending.back());
      pending.pop_back();
      std::vector<Id> before = version.merges;
      if (!version.parent.View().IsEmpty()) before.push_back(version.parent);
      for (const Id& next : before) {
        if (content.insert(next).second) pending.push_back(next);
      }
    }
    return content;
  }

  /// Returns what two versions have in common and no other such version contains.
  std::set<Id> BasesOf(const Id& a, const Id& b) const {
    std::set<Id> common;
    const std::set<Id> of_b = ContentOf(b);
    for (const Id& id : ContentOf(a)) {
      if (of_b.contains(id)) common.insert(id);
    }
    std::set<Id> bases = common;
    for (const Id& id : common) {
      for (const Id& below : ContentOf(id)) {
        if (!(below == id)) bases.erase(below);
      }
    }
    return bases;
  }

 private:
  std::map<Id, Kit::Version> m_versions;
};

/// Returns what a rule has to keep: the versions wanted of each branch, heads, tags and bases.
template <class KeptOfLine>
std::set<Id> PlainChoice(const Kit::Workspace& workspace, const PlainHistory& history,
                         KeptOfLine kept_of_line) {
  std::set<Id> kept;
  const std::vector<Kit::Head> branches = workspace.GetBranches();
  for (const Kit::Head& branch : branches) {
    kept.insert(branch.id);
    for (const Id& id : kept_of_line(history.LineOf(branch.id))) kept.insert(id);
    for (const Kit::Head& other : branches) {
      if (other.name == branch.name) continue;
      for (const Id& id : history.BasesOf(branch.id, other.id)) kept.insert(id);
    }
  }
  for (const Kit::Head& tag : workspace.GetTags()) kept.insert(tag.id);
  return kept;
}

// Both rules go down all branches at once, and the bases of all pairs of branches are found
// together.
TEST_F(WorkspaceRetention, RulesOfManyBranchesKeepWhatASlowSearchFinds) {
  std::mt19937 random(11);
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    store = std::make_shared<Kit::MemoryObjectStore>();
    workspace = OpenAgain();
    CommitNumbers(0, 0);
    std::vector<std::string> branches{"master"};
    for (int i = 1; i < 40; ++i) {
      const std::string& branch = branches[random() % branches.size()];
      workspace.Switch(branch).value();
      const std::uint64_t what = random() % 8;
      if (what == 0 && branches.size() < 5) {
        branches.push_back("b" + std::to_string(i));
        workspace.CreateBranch(branches.back()).value();
      } else if (what == 1 && i % 3 == 0) {
        workspace.CreateTag("t" + std::to_string(i)).value();
      } else if (what <= 3) {
        const Kit::MergePreview preview =
            workspace.PreviewMerge(branches[random() % branches.size()]).value();
        if (!preview.conflicts.empty()) continue;
        workspace.Merge(preview).value();
      } else {
        workspace.Write("file " + branch, std::to_string(i)).value();
        now += std::chrono::hours(random() % 3);
        workspace.Checkpoint(std::to_string(i), "", now += Seconds(60)).value();
      }
    }
    const PlainHistory history(workspace);
    const std::uint64_t count = 1 + random() % 3;
    const auto newest = [&](std::vector<Id> line) {
      line.resize(std::min<std::size_t>(line.size(), count));
      return line;
    };
    const auto thinned = [&](const std::vector<Id>& line) {
      std::map<std::int64_t, std::uint64_t> taken;
      std::vector<Id> kept;
      for (const Id& id : line) {
        const Version& version = history.At(id);
        const bool is_recent = version.time > now - std::chrono::hours(24);
        const std::int64_t seconds = version.time.time_since_epoch().count();
        const std::int64_t span = is_recent ? seconds / 3600 : -seconds / 86400;
        if (!version.isCheckpoint || taken[span]++ < (is_recent ? count : 1)) kept.push_back(id);
      }
      return kept;
    };
    const auto check = [&](const Retention& rule, const std::set<Id>& kept) {
      const RetentionReport report = workspace.PreviewForget(rule).value();
      for (const Version& version : report.forgotten) EXPECT_FALSE(kept.contains(version.id));
      EXPECT_EQ(report.forgotten.size(), history.Count() - kept.size());
      EXPECT_EQ(report.keptVersions, kept.size());
    };
    check(Retention::KeepNewest(count), PlainChoice(workspace, history, newest));
    check(Retention::ThinAutosaves(count, 1, now), PlainChoice(workspace, history, thinned));
  }
}

TEST_F(WorkspaceRetention, ReportListsNoMoreThanItIsAskedTo) {
  CommitNumbers(1, 10);
  const RetentionReport preview =
      workspace.PreviewForget(Retention::KeepNewest(2), {.mostListed = 3}).value();
  ASSERT_EQ(preview.forgotten.size(), 3u);
  EXPECT_EQ(preview.forgotten.front().summary, "8");
  EXPECT_EQ(preview.forgottenVersions, 8u);
  const RetentionReport report =
      workspace.Forget(Retention::KeepNewest(2), {.mostListed = 0}).value();
  EXPECT_THAT(report.forgotten, IsEmpty());
  EXPECT_EQ(report.forgottenVersions, 8u);
  EXPECT_EQ(report.freed, preview.freed);
}

// After any rule, two branches merge as they did before it.
TEST_F(WorkspaceRetention, RandomHistoriesMergeAsBefore) {
  std::mt19937 random(7);
  for (int round = 0; round < 30; ++round) {
    SCOPED_TRACE(round);
    store = std::make_shared<Kit::MemoryObjectStore>();
    workspace = OpenAgain();
    CommitNumbers(0, 0);
    workspace.CreateBranch("topic").value();
    for (int i = 0; i < 25; ++i) {
      const std::string branch = random() % 2 == 0 ? "master" : "topic";
      workspace.Switch(branch).value();
      const std::string other = branch == "master" ? "topic" : "master";
      if (random() % 4 == 0) {
        const Kit::MergePreview preview = workspace.PreviewMerge(other).value();
        Kit::Decisions decisions;
        for (const Kit::Conflict& conflict : preview.conflicts) {
          decisions.emplace(conflict.path,
                            random() % 2 == 0 ? Decision::Ours() : Decision::Theirs());
        }
        workspace.Merge(preview, decisions).value();
      } else {
        workspace.Write(std::string(1, static_cast<char>('a' + random() % 4)), std::to_string(i))
            .value();
        workspace.Commit(std::to_string(i)).value();
      }
    }
    const auto outcome = [&] {
      std::string text;
      const Kit::MergePreview preview =
          workspace.PreviewMerge(workspace.GetBranch() == "master" ? "topic" : "master").value();
      for (const Kit::Conflict& conflict : preview.conflicts) {
        text += conflict.path + ToString(conflict.kind) + " ";
      }
      for (const Kit::TreeChange& change : preview.changes) text += change.path + " ";
      return text + (preview.isUpToDate ? "nothing" : "");
    };
    const std::string before = outcome();
    Forget(random() % 2 == 0 ? Retention::KeepNewest(1 + random() % 5) : Retention::TipsAndForks());
    EXPECT_EQ(outcome(), before);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
