// SimplifyCommitGraph on random histories: against a model that compares every pair of branches,
// and by its laws.

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/forest.h>
#include <tests/support/history_drawing.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Heads = std::map<std::string, int>;

// The nearest commit on both lines, or -1.
int BaseOf(const Forest& forest, int first, int second) {
  const std::vector<int> line = forest.LineOf(second);
  for (const int commit : forest.LineOf(first)) {
    if (std::find(line.begin(), line.end(), commit) != line.end()) return commit;
  }
  return -1;
}

std::set<int> KeptCommits(const Forest& forest, const Heads& heads) {
  std::set<int> kept;
  for (const auto& [first, firstHead] : heads) {
    for (const auto& [second, secondHead] : heads) {
      const int base = BaseOf(forest, firstHead, secondHead);
      if (base >= 0) kept.insert(base);
    }
  }
  return kept;
}

std::map<std::string, std::string> ChainsOf(const Repository& repository, const Heads& heads) {
  std::map<std::string, std::string> chains;
  for (const auto& [name, head] : heads) chains[name] = ChainOf(repository, name);
  return chains;
}

// Ids of commits or of root trees of all branches.
std::map<std::string, std::string> HeadIds(const Repository& repository, const Heads& heads) {
  std::map<std::string, std::string> ids;
  for (const auto& [name, head] : heads) ids[name] = IdOf(repository.GetHead(Wide(name)));
  return ids;
}
std::map<std::string, std::string> HeadTrees(const Repository& repository, const Heads& heads) {
  std::map<std::string, std::string> ids;
  for (const auto& [name, head] : heads) {
    ids[name] = Ascii(repository.GetHead(Wide(name))->GetTree()->GetRootId());
  }
  return ids;
}

void CheckOneHistory(unsigned seed) {
  std::mt19937 random(seed);
  const Forest forest = RandomForest(random, 1 + Below(random, 24));
  Repository repository = NewRepository();
  Heads heads;
  {
    const History history = DrawHistory(repository, forest.Drawing());
    for (int branch = Below(random, 8); branch > 0; --branch) {
      const std::string name = "branch" + std::to_string(branch);
      heads[name] = Below(random, forest.Size());
      repository.CreateBranch(Wide(name), history.at(Forest::NameOf(heads[name])));
    }
  }
  const bool purges = Below(random, 2) == 0;
  const std::set<int> kept = KeptCommits(forest, heads);
  const auto treesBefore = HeadTrees(repository, heads);
  std::set<std::string> expectedIds;
  std::map<std::string, std::string> expectedChains;
  for (const int commit : kept) expectedIds.insert(IdOfChain(forest.ChainOf(commit, kept)));
  for (const auto& [name, head] : heads) expectedChains[name] = forest.ChainOf(head, kept);
  if (!purges) {
    for (int commit = 0; commit < forest.Size(); ++commit) {
      expectedIds.insert(IdOfChain(forest.ChainOf(commit)));
    }
  }

  ASSERT_TRUE(repository.SimplifyCommitGraph(purges));

  EXPECT_EQ(ChainsOf(repository, heads), expectedChains) << forest.Drawing();
  EXPECT_EQ(HeadTrees(repository, heads), treesBefore);
  std::set<std::string> ids;
  for (const auto& [id, commit] : repository.GetStorage()->GetCommits()) ids.insert(Ascii(id));
  EXPECT_EQ(ids, expectedIds) << forest.Drawing();

  const auto headsBefore = HeadIds(repository, heads);
  ASSERT_TRUE(repository.SimplifyCommitGraph(purges));
  EXPECT_EQ(HeadIds(repository, heads), headsBefore);
  EXPECT_EQ(repository.GetCommitCount(), ids.size());
}

TEST(SimplifyCommitGraphModel, AgreesOnRandomHistories) {
  for (unsigned seed = 0; seed < 300 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    CheckOneHistory(seed);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
