#include <talvcs/persistence/deserializer.h>
#include <talvcs/persistence/serializer.h>
#include <talvcs/repository/repository.h>
#include <talvcs/storage/mem_objects_storage.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>
#include <tests/support/memory_blob_io.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

class DeleteCommits : public ::testing::Test {
 protected:
  // Draws, places branches and keeps ids alone, so that no handle stands in the way of a purge.
  void Draw(const char* drawing, const char* branches) {
    const History history = DrawHistory(repository, drawing);
    PlaceBranches(repository, history, branches);
    for (const auto& [name, commit] : history) ids[name] = commit->GetId();
  }
  cow_ptr<Commit> Stored(const char* name) const {
    return repository.GetCommitFromStorage(ids.at(name));
  }
  bool Delete(const char* name) { return repository.DeleteCommits(Stored(name)); }
  std::string Chain(const char* branch) const { return ChainOf(repository, branch); }

  Repository repository = NewRepository();
  std::map<std::string, Id> ids;
};

TEST_F(DeleteCommits, WithoutStorageReturnsFalse) {
  Draw("A-B", "master=B");
  Repository without(nullptr);
  EXPECT_FALSE(without.DeleteCommits(Stored("B")));
  EXPECT_FALSE(without.DeleteCommits(nullptr));
}

TEST_F(DeleteCommits, NullChangesNothing) {
  Draw("A-B", "");
  EXPECT_TRUE(repository.DeleteCommits(nullptr));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST_F(DeleteCommits, OfACommitWithoutParentKeepsIt) {
  Draw("A; B", "master=B");
  EXPECT_TRUE(Delete("A"));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST_F(DeleteCommits, BelowABranchRemovesCommitsFromTheTableOnly) {
  Draw("A-B-C-D", "master=D");
  EXPECT_TRUE(Delete("B"));
  EXPECT_FALSE(Stored("A"));
  EXPECT_FALSE(Stored("B"));
  EXPECT_EQ(repository.GetHead(), Stored("D"));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
  EXPECT_EQ(Chain("master"), "A-B-C-D");
  EXPECT_TRUE(Stored("C")->GetParent()->GetId() == ids.at("B"));
}

TEST_F(DeleteCommits, DoesNotPurgeIfNoCommitIsKept) {
  Draw("A-B-C; X-Y", "master=C");
  repository.SyncWithStorage(SharedBlob("unused"));
  ASSERT_TRUE(Delete("Y"));
  EXPECT_EQ(repository.GetCommitCount(), 3u);
  EXPECT_EQ(repository.GetTreeCount(), 6u) << "also those of X and Y";
  EXPECT_EQ(repository.GetBlobCount(), 7u);
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetTreeCount(), 4u);
  EXPECT_EQ(repository.GetBlobCount(), 4u);
}

TEST_F(DeleteCommits, SavedHistoryWithDeletedCommitsDoesNotLoad) {
  Draw("A-B-C-D", "master=D");
  ASSERT_TRUE(Delete("B"));
  MemoryBlobIo store;
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  Repository loaded = NewRepository();
  EXPECT_FALSE(Deserializer(&store, TAL_WIDE("doc")).Deserialize(&loaded));
  EXPECT_FALSE(loaded.GetHead());
  EXPECT_TRUE(loaded.BranchExist(TAL_WIDE("master")));
  EXPECT_EQ(loaded.GetCommitCount(), 2u);
  const cow_ptr<Commit> tip = loaded.GetCommitFromStorage(
      Id(Wide("70b81005bafe65c3da84fc5c7c4fda1fb333b20c32af2b1aa4e0de2ad701cb14")));
  EXPECT_EQ(ChainOf(tip), "C-D");
}

TEST_F(DeleteCommits, OfTheHeadLeavesTheHeadAlone) {
  Draw("A-B-C-D", "master=D");
  EXPECT_TRUE(Delete("D"));
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(IdOf(repository.GetHead()),
            "c6a6a517266d0eef9b0b42049bcbd1a541498b26bd07acd6bace2ba8135eafed");
  EXPECT_EQ(ListingOf(repository.GetHead()), "lib/common=common name=D");
  EXPECT_EQ(repository.GetTreeCount(), 2u);
  EXPECT_EQ(repository.GetBlobCount(), 2u);
}

TEST_F(DeleteCommits, LinksTheHeadsOfBranchesAmongDeletedCommits) {
  Draw("A-B-C", "low=A master=C");
  EXPECT_TRUE(Delete("C"));
  EXPECT_EQ(Chain("master"), "A-C");
  EXPECT_EQ(Chain("low"), "A");
  EXPECT_TRUE(repository.GetHead(TAL_WIDE("low"))->GetId() == ids.at("A"));
  EXPECT_EQ(repository.GetHead()->GetParent(), repository.GetHead(TAL_WIDE("low")));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("low")), Stored("A"));
  EXPECT_FALSE(Stored("B"));
  EXPECT_FALSE(Stored("C"));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

TEST_F(DeleteCommits, MovesAllBranchesOfAKeptCommit) {
  Draw("A-B-C", "x=B y=B z=B master=C");
  EXPECT_TRUE(Delete("B"));
  EXPECT_EQ(Chain("x"), "B");
  EXPECT_EQ(repository.GetHead(TAL_WIDE("y")), repository.GetHead(TAL_WIDE("x")));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("z")), repository.GetHead(TAL_WIDE("x")));
  EXPECT_EQ(Chain("master"), "A-B-C") << "above the run nothing changes";
}

TEST_F(DeleteCommits, KeepsTheGivenCommitIfABranchNamesIt) {
  Draw("A-B-C-D-E", "low=B middle=D master=E");
  EXPECT_TRUE(Delete("D"));
  EXPECT_EQ(Chain("middle"), "B-D");
  EXPECT_EQ(Chain("low"), "B");
  EXPECT_EQ(repository.GetHead(), Stored("E"));
}

TEST_F(DeleteCommits, OtherBranchOfAForkKeepsDeletedCommitsInMemory) {
  Draw("A-B-C; B-X", "master=C fork=X");
  EXPECT_TRUE(Delete("C"));
  EXPECT_EQ(Chain("master"), "C");
  EXPECT_EQ(Chain("fork"), "A-B-X");
  EXPECT_TRUE(repository.GetHead(TAL_WIDE("fork"))->GetId() == ids.at("X"));
  EXPECT_FALSE(Stored("B"));
  EXPECT_EQ(repository.GetCommitCount(), 2u);
  EXPECT_EQ(repository.GetTreeCount(), 5u) << "A and B live on below X";
}

TEST_F(DeleteCommits, DeletesCommitWhoseBranchHoldsAnotherInstance) {
  Draw("A-B-C", "master=C");
  Repository elsewhere = NewRepository();
  const cow_ptr<Commit> twin = DrawHistory(elsewhere, "A-B").at("B");
  ASSERT_TRUE(repository.CreateBranch(TAL_WIDE("twin"), twin));
  EXPECT_TRUE(Delete("B"));
  EXPECT_FALSE(Stored("B"));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("twin")), twin);
}

TEST_F(DeleteCommits, DeletesAncestorsOfACommitThatIsNotStored) {
  Draw("A-B", "");
  const cow_ptr<Commit> unstored = MakeCommit(repository, "X", Stored("B"));
  EXPECT_TRUE(repository.DeleteCommits(unstored));
  EXPECT_EQ(repository.GetCommitCount(), 0u);
}

TEST_F(DeleteCommits, ArgumentDoesNotKeepTheCommitDuringThePurge) {
  Draw("A-B-C", "low=B");
  EXPECT_TRUE(Delete("C"));
  EXPECT_EQ(Chain("low"), "B");
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(repository.GetTreeCount(), 2u);
  EXPECT_EQ(repository.GetBlobCount(), 2u);
}

TEST_F(DeleteCommits, HandleKeepsTreesOfDeletedCommit) {
  Draw("A-B-C", "low=B");
  const cow_ptr<Commit> held = Stored("C");
  EXPECT_TRUE(repository.DeleteCommits(held));
  EXPECT_EQ(repository.GetCommitCount(), 1u);
  EXPECT_EQ(repository.GetTreeCount(), 4u);
  EXPECT_EQ(ChainOf(held), "A-B-C");
}

TEST_F(DeleteCommits, PurgesUnusedCommitsOfOtherHistories) {
  Draw("A-B; X-Y", "low=A");
  EXPECT_TRUE(Delete("B"));
  EXPECT_EQ(repository.GetCommitCount(), 1u);
}

TEST_F(DeleteCommits, MovesTheCurrentBranchAndKeepsItCurrent) {
  Draw("A-B-C", "master=B top=C");
  EXPECT_TRUE(Delete("C"));
  EXPECT_EQ(Ascii(repository.GetCurentBranch()), "master");
  EXPECT_EQ(ChainOf(repository.GetHead()), "B");
  EXPECT_EQ(Chain("top"), "B-C");
}

TEST_F(DeleteCommits, KeptCommitBecomesTheCanonicalInstanceOfItsNewId) {
  Draw("A-B", "low=B");
  const cow_ptr<Commit> known = repository.SyncWithStorage(MakeCommit(repository, "B"));
  EXPECT_TRUE(Delete("B"));
  EXPECT_EQ(repository.GetHead(TAL_WIDE("low")), known);
}

class RefusingRepository : public Repository {
 public:
  RefusingRepository() : Repository(NewStorage()) {}
  bool MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override {
    ++moves;
    return !refuses && Repository::MoveBranchTo(name, std::move(commit));
  }
  bool refuses = false;
  int moves = 0;
};

/// Says of one commit that a branch stands on it, and counts how often it is asked.
class GuardingStorage : public MemObjectsStorage {
 public:
  std::vector<TalStringT<WideChar>> GetCommitBranches(cow_ptr<Commit> commit) const override {
    ++asked;
    auto names = MemObjectsStorage::GetCommitBranches(commit);
    if (Ascii(commit->GetDesciption()) == "B") names.emplace_back(TAL_WIDE("guard"));
    return names;
  }
  mutable int asked = 0;
};

TEST(DeleteCommitsWithHostStorage, KeepsCommitsForWhichTheStorageReturnsBranches) {
  auto owned = std::make_unique<GuardingStorage>();
  const GuardingStorage& storage = *owned;
  Repository repository(std::move(owned));
  PlaceBranches(repository, DrawHistory(repository, "A-B-C-D"), "d=D");
  EXPECT_TRUE(repository.DeleteCommits(repository.GetHead(TAL_WIDE("d"))));
  EXPECT_EQ(storage.asked, 4);
  EXPECT_EQ(ChainOf(repository, "d"), "B-D");
}

TEST(DeleteCommitsWithRefusedMoves, ReturnsTrueAfterARefusedMove) {
  RefusingRepository refusing;
  PlaceBranches(refusing, DrawHistory(refusing, "A-B-C"), "a=A b=C c=C d=C");
  refusing.refuses = true;
  refusing.moves = 0;
  EXPECT_TRUE(refusing.DeleteCommits(refusing.GetHead(TAL_WIDE("b"))));
  EXPECT_EQ(refusing.moves, 2) << "one for each of the two commits with branches";
  EXPECT_EQ(ChainOf(refusing, "d"), "A-B-C");
}

}  // namespace
}  // namespace TalVcs::Testing
