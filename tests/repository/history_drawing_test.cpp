// The histories that other tests draw, against ids worked out with another tool.

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <stdexcept>

namespace TalVcs::Testing {
namespace {

constexpr char kIdOfA[] = "3d78e8a213f446e37d4dd5c8b072f75d3898ea74c8f4e3f7784d33a8499fe5da";
constexpr char kIdOfB[] = "659e5742dabcf67267afd5017056ad00b41eb46271a0c54576f939ded57c023d";
constexpr char kTreeOfA[] = "9895d34e87440a4a2be82d84bcdae0d88a663764948d42714d103ea79823a6c3";

TEST(HistoryDrawing, CommitsHaveTheIdsOfTheirContent) {
  Repository repository = NewRepository();
  const History history = DrawHistory(repository, "A-B");
  EXPECT_EQ(IdOf(history.at("A")), kIdOfA);
  EXPECT_EQ(IdOf(history.at("B")), kIdOfB);
  EXPECT_EQ(IdOf(history.at("A")->GetTree()->GetRoot()), kTreeOfA);
  EXPECT_EQ(IdOfChain("A-B"), kIdOfB);
}

TEST(HistoryDrawing, LaterChainsContinueFromEarlierNames) {
  Repository repository = NewRepository();
  const History history = DrawHistory(repository, "A-B-C; B-D; X");
  EXPECT_EQ(ChainOf(history.at("C")), "A-B-C");
  EXPECT_EQ(ChainOf(history.at("D")), "A-B-D");
  EXPECT_EQ(ChainOf(history.at("X")), "X");
  EXPECT_EQ(repository.GetCommitCount(), 5u);
  EXPECT_EQ(repository.GetTreeCount(), 6u);
  EXPECT_EQ(repository.GetBlobCount(), 6u);
}

TEST(HistoryDrawing, RefusesASecondParent) {
  Repository repository = NewRepository();
  EXPECT_THROW(DrawHistory(repository, "A-B; C-B"), std::invalid_argument);
}

TEST(HistoryDrawing, GrownChainHasItsLength) {
  Repository repository = NewRepository();
  const cow_ptr<Commit> tip = GrowChain(repository, nullptr, 3);
  EXPECT_EQ(ChainOf(tip), "0-1-2");
  EXPECT_EQ(repository.GetCommitCount(), 3u);
  EXPECT_EQ(repository.GetTreeCount(), 2u);
}

}  // namespace
}  // namespace TalVcs::Testing
