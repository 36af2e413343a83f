// DeleteCommits on random histories, against a model that holds them as lists of numbers.

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/forest.h>
#include <tests/support/history_drawing.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

struct Model {
  Forest forest;
  std::map<std::string, int> heads;

  std::set<int> CommitsWithBranches() const {
    std::set<int> commits;
    for (const auto& [name, head] : heads) commits.insert(head);
    return commits;
  }
};

// What the commit table, the branches and the memory hold after a deletion.
struct Outcome {
  std::map<std::string, std::string> chains;  // of the branches
  std::set<std::string> stored;               // ids
  std::set<int> alive;                        // commits whose trees are in use
};

Outcome Predict(const Model& model, int argument) {
  Outcome outcome;
  const std::vector<int> line = model.forest.LineOf(argument);
  const bool isRoot = line.size() == 1;
  const std::set<int> run = isRoot ? std::set<int>() : std::set<int>(line.begin(), line.end());
  std::set<int> kept;
  for (const int commit : model.CommitsWithBranches()) {
    if (run.contains(commit)) kept.insert(commit);
  }
  const bool purges = !kept.empty();

  std::set<int> reached;
  for (const auto& [name, head] : model.heads) {
    if (kept.contains(head)) {
      const std::string chain = model.forest.ChainOf(head, kept);
      outcome.chains[name] = chain;
      outcome.stored.insert(IdOfChain(chain));
      outcome.alive.insert(head);
      continue;
    }
    outcome.chains[name] = model.forest.ChainOf(head);
    for (const int ancestor : model.forest.LineOf(head)) reached.insert(ancestor);
  }
  for (int commit = 0; commit < model.forest.Size(); ++commit) {
    if (!purges || reached.contains(commit)) outcome.alive.insert(commit);
    if (run.contains(commit) || (purges && !reached.contains(commit))) continue;
    outcome.stored.insert(IdOfChain(model.forest.ChainOf(commit)));
  }
  return outcome;
}

void CheckOneDeletion(unsigned seed) {
  std::mt19937 random(seed);
  Model model{RandomForest(random, 1 + Below(random, 16)), {}};
  Repository repository = NewRepository();
  History history = DrawHistory(repository, model.forest.Drawing());
  for (int branch = Below(random, 6); branch > 0; --branch) {
    const int head = Below(random, model.forest.Size());
    const std::string name = "branch" + std::to_string(branch);
    model.heads[name] = head;
    repository.CreateBranch(Wide(name), history.at(Forest::NameOf(head)));
  }
  const int argument = Below(random, model.forest.Size());
  const Id argumentId = history.at(Forest::NameOf(argument))->GetId();
  history.clear();
  const Outcome expected = Predict(model, argument);

  ASSERT_TRUE(repository.DeleteCommits(repository.GetCommitFromStorage(argumentId)));

  for (const auto& [name, chain] : expected.chains) {
    EXPECT_EQ(ChainOf(repository, name), chain) << name;
    EXPECT_EQ(IdOf(repository.GetHead(Wide(name))), IdOfChain(chain)) << name;
  }
  std::set<std::string> stored;
  for (const auto& [id, commit] : repository.GetStorage()->GetCommits()) stored.insert(Ascii(id));
  EXPECT_EQ(stored, expected.stored) << model.forest.Drawing() << " from " << argument;
  const std::size_t shared = expected.alive.empty() ? 0 : 1;
  EXPECT_EQ(repository.GetTreeCount(), expected.alive.size() + shared);
  EXPECT_EQ(repository.GetBlobCount(), expected.alive.size() + shared);
}

TEST(DeleteCommitsModel, AgreesOnRandomHistories) {
  for (unsigned seed = 0; seed < 400 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    CheckOneDeletion(seed);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
