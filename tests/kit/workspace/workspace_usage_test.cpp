// What branches, versions and paths take, against a slow count of every version's objects.

#include <kit/diff/blame.h>
#include <kit/text.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <random>
#include <set>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;
using Kit::ObjectTotals;
using testing::ElementsAre;

using Objects = std::set<std::string>;

class WorkspaceUsage : public WorkspaceTest {
 protected:
  std::uint64_t SizeOf(const std::string& id) const {
    const Id of(Kit::ToWide(id));
    return store->Sizes({&of, 1}).value()[0].value();
  }

  ObjectTotals TotalsOf(const Objects& objects) const {
    ObjectTotals totals;
    for (const std::string& id : objects) {
      ++totals.count;
      totals.sizeBytes += SizeOf(id);
    }
    return totals;
  }

  /// Adds the objects below an entry of a tree.
  static void AddBelow(const cow_ptr<Tree>& tree, const TalStringT<WideChar>& name,
                       Objects& objects) {
    const cow_ptr<Object> entry = tree->GetLocalObject(name);
    objects.insert(Kit::ToUtf8(entry->GetId().View()));
    if (entry->GetHeader() != "tree") return;
    const cow_ptr<Tree> subtree = tree->GetLocalTree(name);
    for (const auto& below : subtree->GetLocalObjectPaths()) AddBelow(subtree, below, objects);
  }

  static Objects ObjectsOf(const Kit::Snapshot& files) {
    Objects objects{Kit::ToUtf8(files.GetTree()->GetId().View())};
    for (const auto& name : files.GetTree()->GetLocalObjectPaths()) {
      AddBelow(files.GetTree(), name, objects);
    }
    return objects;
  }

  /// Splits the objects of one holder by whether another one has them too.
  std::pair<ObjectTotals, ObjectTotals> Split(const std::map<std::string, Objects>& all,
                                              const std::string& holder) const {
    Objects own;
    Objects shared;
    for (const std::string& id : all.at(holder)) {
      bool is_shared = false;
      for (const auto& [other, objects] : all) {
        is_shared = is_shared || (other != holder && objects.contains(id));
      }
      (is_shared ? shared : own).insert(id);
    }
    return {TotalsOf(own), TotalsOf(shared)};
  }

  void CheckVersions() {
    std::map<std::string, Objects> all;
    for (const Version& version : workspace.Log({.allBranches = true, .limit = 10000}).value()) {
      Objects objects = ObjectsOf(workspace.At(version.id).value());
      objects.insert(Kit::ToUtf8(version.id.View()));
      all.emplace(Kit::ToUtf8(version.id.View()), objects);
    }
    const std::vector<Kit::VersionUsage> usage = workspace.MeasureVersions().value();
    ASSERT_EQ(usage.size(), all.size());
    for (const Kit::VersionUsage& found : usage) {
      const auto [own, shared] = Split(all, Kit::ToUtf8(found.version.id.View()));
      EXPECT_EQ(found.own, own) << found.version.summary;
      EXPECT_EQ(found.shared, shared) << found.version.summary;
    }
  }

  void CheckContents() {
    Kit::ContentUsage expected;
    std::set<std::string> contents;
    for (const Version& version : workspace.Log({.allBranches = true, .limit = 1000}).value()) {
      for (const auto& [path, text] : FilesOf(workspace.At(version.id).value())) {
        ++expected.apart.files;
        expected.apart.sizeBytes += text.size();
        contents.insert(text);
      }
    }
    for (const std::string& text : contents) {
      ++expected.stored.files;
      expected.stored.sizeBytes += text.size();
    }
    const Kit::ContentUsage usage = workspace.MeasureContents().value();
    EXPECT_EQ(usage.apart, expected.apart);
    EXPECT_EQ(usage.stored, expected.stored);
  }

  void CheckPaths(const std::string& folder) {
    std::map<std::string, Objects> all;
    for (const Version& version : workspace.Log({.allBranches = true, .limit = 10000}).value()) {
      AddPaths(workspace.At(version.id)->GetTree(), folder, all);
    }
    std::size_t entries = 0;
    for (const auto& [path, objects] : all) entries += path.empty() ? 0 : 1;
    const std::vector<Kit::PathUsage> usage = workspace.MeasurePaths(folder).value();
    ASSERT_EQ(usage.size(), entries);
    for (const Kit::PathUsage& found : usage) {
      const auto [own, shared] = Split(all, found.path);
      EXPECT_EQ(found.own, own) << found.path;
      EXPECT_EQ(found.shared, shared) << found.path;
    }
  }

  /// Adds what is at each entry of a folder of one level, or of the root, and under "" the rest.
  static void AddPaths(const cow_ptr<Tree>& root, const std::string& folder,
                       std::map<std::string, Objects>& all) {
    all[""].insert(Kit::ToUtf8(root->GetId().View()));
    for (const auto& name : root->GetLocalObjectPaths()) {
      const std::string text = Kit::ToUtf8(name);
      if (folder.empty()) {
        AddBelow(root, name, all[text]);
      } else if (text != folder || !root->GetLocalTree(name)) {
        AddBelow(root, name, all[""]);
      } else {
        const cow_ptr<Tree> tree = root->GetLocalTree(name);
        all[""].insert(Kit::ToUtf8(tree->GetId().View()));
        for (const auto& below : tree->GetLocalObjectPaths()) {
          AddBelow(tree, below, all[folder + "/" + Kit::ToUtf8(below)]);
        }
      }
    }
  }
};

TEST_F(WorkspaceUsage, VersionOwnsWhatOnlyItHas) {
  CommitFiles({{"a", "kept"}, {"b", "first"}}, "first");
  CommitFiles({{"b", "second"}}, "second");
  CommitFiles({{"b", "first"}}, "third");
  const std::vector<Kit::VersionUsage> usage = workspace.MeasureVersions().value();
  ASSERT_EQ(usage.size(), 3u);
  EXPECT_EQ(usage[1].version.summary, "second");
  EXPECT_EQ(usage[1].own.count, 3u);     // the version, its root and b
  EXPECT_EQ(usage[1].shared.count, 1u);  // a
  EXPECT_EQ(usage[0].own.count, 1u);     // the version: its files are those of the first one
  EXPECT_EQ(usage[0].shared.count, 3u);
  CheckVersions();
}

TEST_F(WorkspaceUsage, PathOwnsWhatIsNowhereElse) {
  CommitFiles({{"a", "one"}, {"d/copy", "one"}, {"d/e/other", "two"}}, "first");
  CommitFiles({{"a", "three"}}, "second");
  const std::vector<Kit::PathUsage> usage = workspace.MeasurePaths().value();
  ASSERT_EQ(usage.size(), 2u);
  EXPECT_EQ(usage[0].path, "a");
  EXPECT_EQ(usage[0].own.count, 1u);
  EXPECT_EQ(usage[0].shared.count, 1u);
  EXPECT_EQ(usage[1].path, "d");
  EXPECT_EQ(usage[1].own.count, 3u);
  EXPECT_EQ(usage[1].shared.count, 1u);
  EXPECT_EQ(workspace.MeasurePaths("d")->back().path, "d/e");
  EXPECT_TRUE(workspace.MeasurePaths("nowhere")->empty());
}

TEST_F(WorkspaceUsage, BranchesAndTagsAreMeasuredTogether) {
  CommitFiles({{"a", "1"}}, "first");
  workspace.CreateTag("1.0").value();
  CommitFiles({{"a", "2"}}, "second");
  const std::vector<Kit::BranchStatistics> usage = workspace.MeasureBranches().value();
  ASSERT_EQ(usage.size(), 2u);
  EXPECT_EQ(usage[0].name, "master");
  EXPECT_EQ(usage[0].commits, 2u);
  EXPECT_EQ(usage[0].own.count, 3u);
  EXPECT_EQ(usage[1].name, "tags/1.0");
  EXPECT_EQ(usage[1].own.count, 0u);
  EXPECT_EQ(usage[1].shared.count, 3u);
}

TEST_F(WorkspaceUsage, RandomHistoriesAreCountedAsASlowCountDoes) {
  for (unsigned seed = 1; seed <= 15 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    store = std::make_shared<Kit::MemoryObjectStore>();
    workspace = OpenAgain();
    const std::vector<std::string> paths{"a", "b", "d/x", "d/y", "d/e/x", "d/e/y", "f/x", "f/e/x"};
    for (int i = 0; i < 25; ++i) {
      workspace.Write(paths[random() % 8], std::to_string(random() % 3)).value();
      if (random() % 4 == 0) (void)workspace.Remove(paths[random() % 8]).ok();
      if (random() % 6 == 0) (void)workspace.Rename("d", "f/moved").ok();
      workspace.Commit(std::to_string(i)).value();
      if (random() % 5 == 0) workspace.CreateBranch("branch " + std::to_string(i)).value();
      const std::vector<Kit::Head> branches = workspace.GetBranches();
      if (random() % 3 == 0) workspace.Switch(branches[random() % branches.size()].name).value();
    }
    CheckVersions();
    CheckContents();
    CheckPaths("");
    CheckPaths("d");
    CheckPaths("f");
  }
}

TEST_F(WorkspaceUsage, ContentsCountOnceForEachVersionAndOnceInAll) {
  EXPECT_EQ(workspace.MeasureContents()->apart, Kit::ContentTotals());
  CommitFiles({{"a", "12345"}, {"d/e/b", std::string(1000, 'x')}}, "first");
  CommitFiles({{"d/c", "12345"}}, "second");
  workspace.CreateTag("second").value();
  const Kit::ContentUsage usage = workspace.MeasureContents().value();
  EXPECT_EQ(usage.apart, (Kit::ContentTotals{5, 2015}));
  EXPECT_EQ(usage.stored, (Kit::ContentTotals{2, 1005}));
}

TEST_F(WorkspaceUsage, CancelledMeasuringFails) {
  CommitFiles({{"a", "1"}, {"d/b", "2"}}, "first");
  const auto cancelled_at = [](int number) {
    auto calls = std::make_shared<int>(0);
    return Kit::MeasureOptions{
        [calls, number](const Kit::ProgressStep&) { return ++*calls != number; }};
  };
  EXPECT_TRUE(workspace.MeasureContents(cancelled_at(5)).ok());
  for (int number = 1; number <= 4; ++number) {
    EXPECT_THAT(workspace.MeasureContents(cancelled_at(number)), FailsWith(ErrorCode::Cancelled));
    EXPECT_THAT(workspace.MeasureVersions(cancelled_at(number)), FailsWith(ErrorCode::Cancelled));
    EXPECT_THAT(workspace.MeasurePaths("d", cancelled_at(number)), FailsWith(ErrorCode::Cancelled));
    EXPECT_THAT(workspace.MeasureBranches(cancelled_at(number)), FailsWith(ErrorCode::Cancelled));
  }
  EXPECT_TRUE(workspace.MeasureVersions(cancelled_at(5)).ok());
}

TEST_F(WorkspaceUsage, BlameNamesTheVersionOfEachLine) {
  const Version first = CommitFiles({{"text", "one\ntwo\nthree\n"}, {"other", "x"}}, "first");
  CommitFiles({{"other", "y"}}, "of another file");
  const Version second = CommitFiles({{"text", "one\n2\nthree\n"}}, "second");
  const Version third = CommitFiles({{"text", "zero\none\n2\nthree\n"}}, "third");
  workspace.Write("text", "pending\n").value();
  const Kit::Blame blame = workspace.BlameFile("text").value();
  std::vector<std::string> origins;
  for (const Kit::BlamedLine& line : blame.lines) origins.push_back(blame.versions[line.version]);
  const auto text = [](const Version& version) { return Kit::ToUtf8(version.id.View()); };
  EXPECT_THAT(origins, ElementsAre(text(third), text(first), text(second), text(first)));
  EXPECT_EQ(workspace.BlameFile("text", {.mostVersions = 1})->versions.size(), 1u);
}

TEST_F(WorkspaceUsage, BlameEndsWhereTheFileWasGone) {
  CommitFiles({{"text", "one\n"}, {"x", "x"}}, "first");
  CommitFiles({{"text", ""}}, "removed");
  const Version again = CommitFiles({{"text", "one\n"}}, "again");
  EXPECT_THAT(workspace.BlameFile("text")->versions, ElementsAre(Kit::ToUtf8(again.id.View())));
  EXPECT_THAT(workspace.BlameFile("none"), FailsWith(ErrorCode::NotFound));
}

}  // namespace
}  // namespace TalVcs::Testing
