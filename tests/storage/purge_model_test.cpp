// What a purge leaves equals what branches and held handles reach, on random histories.

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/forest.h>
#include <tests/support/history_drawing.h>

#include <random>
#include <set>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

void CheckOnePurge(unsigned seed) {
  std::mt19937 random(seed);
  const Forest forest = RandomForest(random, 1 + Below(random, 40));
  Repository repository = NewRepository();
  History history = DrawHistory(repository, forest.Drawing());

  // Each of a few commits gets a branch or a handle of its own.
  std::set<int> used;
  std::vector<cow_ptr<Commit>> held;
  for (int root = Below(random, 6); root > 0; --root) {
    const int commit = Below(random, forest.Size());
    for (const int ancestor : forest.LineOf(commit)) used.insert(ancestor);
    const cow_ptr<Commit>& instance = history.at(Forest::NameOf(commit));
    if (Below(random, 2) == 0) {
      held.push_back(instance);
    } else {
      repository.CreateBranch(Wide("branch" + std::to_string(root)), instance);
    }
  }
  std::set<std::string> expected;
  for (const int commit : used) expected.insert(IdOf(history.at(Forest::NameOf(commit))));
  history.clear();

  repository.UpdateStorage();

  std::set<std::string> survivors;
  for (const auto& [id, commit] : repository.GetStorage()->GetCommits()) {
    survivors.insert(Ascii(id));
    EXPECT_TRUE(repository.GetTreeFromStorage(commit->GetTree()->GetRootId()));
  }
  EXPECT_EQ(survivors, expected) << forest.Drawing();
  const std::size_t shared = used.empty() ? 0 : 1;
  EXPECT_EQ(repository.GetTreeCount(), used.size() + shared);
  EXPECT_EQ(repository.GetBlobCount(), used.size() + shared);
}

TEST(PurgeModel, SurvivorsAreWhatBranchesAndHandlesReach) {
  for (unsigned seed = 0; seed < 200 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    CheckOnePurge(seed);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
