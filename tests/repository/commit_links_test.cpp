#include <talvcs/repository/repository.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

class MakeCommitLinksInOrder : public ::testing::Test {
 protected:
  cow_ptr<Commit> Loose(const char* name) { return MakeCommit(repository, name); }

  Repository repository = NewRepository();
};

TEST_F(MakeCommitLinksInOrder, NullRepositoryLeavesTheListUntouched) {
  const cow_ptr<Commit> commit = Loose("A");
  std::vector<cow_ptr<Commit>> commits{commit, nullptr};
  EXPECT_FALSE(Commit::MakeCommitLinksInOrder(commits, nullptr));
  EXPECT_EQ(commits, (std::vector<cow_ptr<Commit>>{commit, nullptr}));
}

TEST_F(MakeCommitLinksInOrder, ReturnsFalseForAnEmptyList) {
  std::vector<cow_ptr<Commit>> commits;
  EXPECT_FALSE(Commit::MakeCommitLinksInOrder(commits, &repository));
}

TEST_F(MakeCommitLinksInOrder, StoresASingleCommitWithItsParent) {
  const cow_ptr<Commit> parent = Loose("P");
  std::vector<cow_ptr<Commit>> commits{MakeCommit(repository, "A", parent)};
  EXPECT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
  EXPECT_EQ(commits[0]->GetParent(), parent);
  EXPECT_EQ(repository.GetCommitFromStorage(commits[0]->GetId()), commits[0]);
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST_F(MakeCommitLinksInOrder, ComputesTheIdOfTheLastCommitAgain) {
  cow_ptr<Commit> commit = Loose("A");
  const Id stale = commit->GetId();
  commit.write()->ReplaceRoot(&repository, Make<Tree>());
  ASSERT_TRUE(commit->GetId() == stale);
  std::vector<cow_ptr<Commit>> commits{commit};
  ASSERT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
  EXPECT_FALSE(commits[0]->GetId() == stale);
  EXPECT_FALSE(repository.GetCommitFromStorage(stale));
}

TEST_F(MakeCommitLinksInOrder, LinksEachCommitToTheNextInTheList) {
  std::vector<cow_ptr<Commit>> commits{Loose("C"), Loose("B"), Loose("A")};
  EXPECT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
  EXPECT_EQ(ChainOf(commits[0]), "A-B-C");
  EXPECT_EQ(IdOf(commits[0]), IdOfChain("A-B-C"));
  EXPECT_EQ(commits[0]->GetParent(), commits[1]);
  EXPECT_EQ(repository.GetCommitCount(), 3u);
}

TEST_F(MakeCommitLinksInOrder, DoesNotChangeCommitsThatOtherHandlesHold) {
  const cow_ptr<Commit> old = Loose("B");
  std::vector<cow_ptr<Commit>> commits{old, Loose("A")};
  ASSERT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
  EXPECT_NE(commits[0], old);
  EXPECT_FALSE(old->GetParent());
}

TEST_F(MakeCommitLinksInOrder, ReplacesElementsByCanonicalInstances) {
  const History stored = DrawHistory(repository, "A-B");
  std::vector<cow_ptr<Commit>> commits{Loose("B"), Loose("A")};
  ASSERT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
  EXPECT_EQ(commits[0], stored.at("B"));
  EXPECT_EQ(commits[1], stored.at("A"));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST_F(MakeCommitLinksInOrder, DoesNotStoreTheCommitBeforeANull) {
  const cow_ptr<Commit> front = Loose("C");
  std::vector<cow_ptr<Commit>> commits{Loose("D"), front, nullptr, Loose("A")};
  EXPECT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
  EXPECT_EQ(ChainOf(commits[0]), "C-D");
  EXPECT_EQ(commits[0]->GetParent(), front);
  EXPECT_EQ(commits[1], front);
  EXPECT_FALSE(repository.GetCommitFromStorage(front->GetId()));
  EXPECT_FALSE(commits[2]);
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST_F(MakeCommitLinksInOrder, SkipsNullAtTheBeginning) {
  std::vector<cow_ptr<Commit>> commits{nullptr, Loose("B"), Loose("A")};
  EXPECT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
  EXPECT_FALSE(commits[0]);
  EXPECT_EQ(ChainOf(commits[1]), "A-B");
}

TEST_F(MakeCommitLinksInOrder, ReplacesNullAtTheEndByADefaultCommit) {
  std::vector<cow_ptr<Commit>> commits{Loose("B"), nullptr};
  EXPECT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
  ASSERT_TRUE(commits[1]);
  EXPECT_EQ(IdOf(commits[1]), IdOf(Make<Commit>()));
  EXPECT_EQ(commits[0]->GetParent(), commits[1]);
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST_F(MakeCommitLinksInOrder, ReplacesASingleNullByADefaultCommit) {
  std::vector<cow_ptr<Commit>> commits{nullptr};
  EXPECT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
  ASSERT_TRUE(commits[0]);
  EXPECT_EQ(repository.GetCommitFromStorage(Make<Commit>()->GetId()), commits[0]);
}

/// Has no memory for one of the commits that it is to store.
class ShortOfMemory : public Repository {
 public:
  explicit ShortOfMemory(int stored_before) : Repository(NewStorage()), m_left(stored_before) {}
  using Repository::SyncWithStorage;
  cow_ptr<Commit> SyncWithStorage(cow_ptr<Commit> commit) override {
    if (m_left-- == 0) throw std::bad_alloc();
    return Repository::SyncWithStorage(std::move(commit));
  }

 private:
  int m_left;
};

TEST(MakeCommitLinksInOrderWithoutMemory, KeepsTheListForTheNextCall) {
  for (int stored = 0; stored < 3; ++stored) {
    ShortOfMemory repository(stored);
    std::vector<cow_ptr<Commit>> commits;
    for (const char* name : {"C", "B", "A"}) commits.push_back(MakeCommit(repository, name));
    EXPECT_THROW(Commit::MakeCommitLinksInOrder(commits, &repository), std::bad_alloc);
    for (const auto& commit : commits) ASSERT_TRUE(commit) << stored;
    EXPECT_TRUE(Commit::MakeCommitLinksInOrder(commits, &repository));
    EXPECT_EQ(ChainOf(commits[0]), "A-B-C");
    EXPECT_EQ(IdOf(commits[0]), IdOfChain("A-B-C"));
  }
}

}  // namespace
}  // namespace TalVcs::Testing
