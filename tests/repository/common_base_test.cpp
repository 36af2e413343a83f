#include <talvcs/repository/repository.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/forest.h>
#include <tests/support/history_drawing.h>

#include <algorithm>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

class CommonBase : public ::testing::Test {
 protected:
  void Draw(const char* drawing) { history = DrawHistory(repository, drawing); }
  std::string BaseOf(const char* first, const char* second) {
    return ChainOf(repository.GetCommonBase(history.at(first), history.at(second)));
  }

  Repository repository = NewRepository();
  History history;
};

// The same commits as separate instances, linked to each other.
History TwinOf(const char* drawing) {
  Repository elsewhere = NewRepository();
  return DrawHistory(elsewhere, drawing);
}

TEST_F(CommonBase, OfNullIsNull) {
  Draw("A");
  EXPECT_FALSE(repository.GetCommonBase(nullptr, history.at("A")));
  EXPECT_FALSE(repository.GetCommonBase(history.at("A"), nullptr));
  EXPECT_FALSE(repository.GetCommonBase(nullptr, nullptr));
}

TEST_F(CommonBase, OfACommitWithItselfIsThatCommit) {
  Draw("A-B");
  EXPECT_EQ(repository.GetCommonBase(history.at("B"), history.at("B")), history.at("B"));
}

TEST_F(CommonBase, DistinguishesCommitsWithoutCachedIds) {
  const auto loose = [this](const char* name) { return MakeCommit(repository, name); };
  EXPECT_FALSE(repository.GetCommonBase(loose("A"), loose("B")));
  const cow_ptr<Commit> second = loose("A");
  EXPECT_EQ(repository.GetCommonBase(loose("A"), second), second);
}

TEST_F(CommonBase, OfTheFirstCommitAndADescendantIsTheFirstCommit) {
  Draw("A-B-C-D");
  EXPECT_EQ(repository.GetCommonBase(history.at("A"), history.at("D")), history.at("A"));
  EXPECT_EQ(repository.GetCommonBase(history.at("D"), history.at("A")), history.at("A"));
}

TEST_F(CommonBase, OfACommitAndItsAncestorIsTheAncestor) {
  Draw("A-B-C-D-E");
  EXPECT_EQ(BaseOf("C", "E"), "A-B-C");
  EXPECT_EQ(BaseOf("E", "C"), "A-B-C");
}

TEST_F(CommonBase, OfTheTipsOfAForkIsTheFork) {
  Draw("A-B-C; B-D");
  EXPECT_EQ(BaseOf("C", "D"), "A-B");
}

TEST_F(CommonBase, OfTipsAtUnequalDistancesIsTheFork) {
  Draw("A-B-C-D-E-F; B-X");
  EXPECT_EQ(BaseOf("F", "X"), "A-B");
  EXPECT_EQ(BaseOf("X", "F"), "A-B");
}

TEST_F(CommonBase, OfUnrelatedCommitsIsNull) {
  Draw("A-B-C; X-Y");
  EXPECT_FALSE(repository.GetCommonBase(history.at("C"), history.at("Y")));
  EXPECT_FALSE(repository.GetCommonBase(history.at("Y"), history.at("C")));
}

TEST_F(CommonBase, OfTwoInstancesOfOneCommitReturnsTheSecond) {
  const History first = TwinOf("A");
  const History second = TwinOf("A");
  EXPECT_EQ(repository.GetCommonBase(first.at("A"), second.at("A")), second.at("A"));
}

TEST_F(CommonBase, AtEqualDistanceReturnsTheInstanceInTheSecondHistory) {
  const History first = TwinOf("A-B-C; B-D");
  const History second = TwinOf("A-B-C; B-D");
  EXPECT_EQ(repository.GetCommonBase(first.at("C"), second.at("D")), second.at("B"));
  EXPECT_EQ(repository.GetCommonBase(second.at("C"), first.at("D")), first.at("B"));
}

TEST_F(CommonBase, AtUnequalDistancesReturnsTheInstanceInTheLongerHistory) {
  const History first = TwinOf("A-B-C-D-E; B-X");
  const History second = TwinOf("A-B-C-D-E; B-X");
  EXPECT_EQ(repository.GetCommonBase(first.at("E"), second.at("X")), first.at("B"));
  EXPECT_EQ(repository.GetCommonBase(first.at("X"), second.at("E")), second.at("B"));
}

TEST_F(CommonBase, NeedsNoStorage) {
  const History elsewhere = TwinOf("A-B-C; B-D");
  const Repository without(nullptr);
  EXPECT_EQ(without.GetCommonBase(elsewhere.at("C"), elsewhere.at("D")), elsewhere.at("B"));
}

TEST_F(CommonBase, IsFoundAmongCommitsThatAreNotStored) {
  Draw("A-B-C; B-D");
  repository.GetStorage()->DeleteCommit(history.at("B"));
  EXPECT_EQ(BaseOf("C", "D"), "A-B");
}

TEST_F(CommonBase, IsFoundFarBackInBothHistories) {
  std::string drawing = "A-B";
  for (const char* side : {"x", "y"}) {
    drawing += "; B";
    for (int number = 0; number < 300; ++number) drawing += "-" + (side + std::to_string(number));
  }
  Draw(drawing.c_str());
  EXPECT_EQ(BaseOf("x299", "y299"), "A-B");
  EXPECT_EQ(BaseOf("x299", "y150"), "A-B");
}

TEST_F(CommonBase, KeepsNoHandle) {
  Draw("A-B-C; B-D");
  const long before = history.at("B").use_count();
  repository.GetCommonBase(history.at("C"), history.at("D"));
  EXPECT_EQ(history.at("B").use_count(), before);
}

// Where two lines meet, found by comparing everything with everything: the distances from both.
struct Meeting {
  int commit = -1;
  std::size_t fromFirst = 0;
  std::size_t fromSecond = 0;
};

Meeting SlowMeeting(const Forest& forest, int first, int second) {
  const std::vector<int> firstLine = forest.LineOf(first);
  const std::vector<int> secondLine = forest.LineOf(second);
  for (std::size_t i = 0; i < firstLine.size(); ++i) {
    const auto met = std::find(secondLine.begin(), secondLine.end(), firstLine[i]);
    if (met == secondLine.end()) continue;
    return {firstLine[i], i, static_cast<std::size_t>(met - secondLine.begin())};
  }
  return {};
}

TEST_F(CommonBase, AgreesWithASlowSearchOnEveryForestOfUpToSixCommits) {
  int pairs = 0;
  for (const Forest& forest : AllForests(6)) {
    // Separate instances on the two sides show whose handle the result is.
    const History left = TwinOf(forest.Drawing().c_str());
    const History right = TwinOf(forest.Drawing().c_str());
    for (int first = 0; first < forest.Size(); ++first) {
      for (int second = 0; second < forest.Size(); ++second) {
        const Meeting met = SlowMeeting(forest, first, second);
        const History& side = met.fromFirst > met.fromSecond ? left : right;
        const cow_ptr<Commit> expected =
            met.commit < 0 ? cow_ptr<Commit>() : side.at(Forest::NameOf(met.commit));
        const cow_ptr<Commit> found = repository.GetCommonBase(left.at(Forest::NameOf(first)),
                                                               right.at(Forest::NameOf(second)));
        ASSERT_EQ(found, expected) << forest.Drawing() << first << ' ' << second;
        ++pairs;
      }
    }
  }
  EXPECT_EQ(pairs, 1 * 1 + 2 * 4 + 6 * 9 + 24 * 16 + 120 * 25 + 720 * 36);
}

}  // namespace
}  // namespace TalVcs::Testing
