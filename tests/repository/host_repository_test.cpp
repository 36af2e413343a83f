// Operations on the whole repository call its other operations through the interface, so that a
// host's class can refuse, replace or count them.

#include <talvcs/repository/repository.h>
#include <talvcs/storage/mem_objects_storage.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <memory>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

/// Notes the operations that are called.
class NotingRepository final : public Repository {
 public:
  NotingRepository() : Repository(std::make_unique<MemObjectsStorage>()) {}

  cow_ptr<Commit> DoCommit(Commit& commit) override {
    Note("DoCommit");
    return Repository::DoCommit(commit);
  }
  cow_ptr<Commit> GetHead(TalStringViewT<WideChar> branch) const override {
    Note("GetHead(" + Ascii(branch) + ")");
    return Repository::GetHead(branch);
  }
  cow_ptr<Commit> GetHead() const override { return Repository::GetHead(); }
  TalStringT<WideChar> GetCurentBranch() const override {
    Note("GetCurentBranch");
    return Repository::GetCurentBranch();
  }
  using Repository::SyncWithStorage;
  cow_ptr<Commit> SyncWithStorage(cow_ptr<Commit> commit) override {
    Note("SyncWithStorage(" + Ascii(commit->GetDesciption()) + ")");
    return Repository::SyncWithStorage(std::move(commit));
  }
  void UpdateStorage() override {
    Note("UpdateStorage");
    Repository::UpdateStorage();
  }
  cow_ptr<Commit> GetCommonBase(cow_ptr<Commit> first, cow_ptr<Commit> second) const override {
    Note("GetCommonBase");
    return Repository::GetCommonBase(std::move(first), std::move(second));
  }
  bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override {
    Note("CreateBranch(" + Ascii(name) + ")");
    return Repository::CreateBranch(name, std::move(commit));
  }
  bool BranchExist(TalStringViewT<WideChar> name) override {
    Note("BranchExist(" + Ascii(name) + ")");
    return Repository::BranchExist(name);
  }
  bool MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override {
    Note("MoveBranchTo(" + Ascii(name) + ")");
    return Repository::MoveBranchTo(name, std::move(commit));
  }
  bool FastForwardMerge(cow_ptr<Commit> commit) override {
    Note("FastForwardMerge");
    return Repository::FastForwardMerge(std::move(commit));
  }
  bool Merge3Way(cow_ptr<Commit> commit, Resolvers resolvers) override {
    Note("Merge3Way");
    return Repository::Merge3Way(std::move(commit), std::move(resolvers));
  }

  /// Returns the calls since the last time, separated by blanks.
  std::string TakeCalls() { return std::exchange(m_calls, {}); }

 private:
  void Note(const std::string& call) const { m_calls += m_calls.empty() ? call : ' ' + call; }

  mutable std::string m_calls;
};

class HostRepository : public ::testing::Test {
 protected:
  /// Draws a history with branches and returns a commit of it.
  cow_ptr<Commit> Draw(const char* drawing, const char* branches, const char* name = "A") {
    const History history = DrawHistory(repository, drawing);
    PlaceBranches(repository, history, branches);
    repository.TakeCalls();
    return history.at(name);
  }
  std::string Calls() { return repository.TakeCalls(); }

  NotingRepository repository;
};

TEST_F(HostRepository, IsAskedForTheHeadOfANewBranch) {
  EXPECT_TRUE(repository.Repository::CreateBranch(TAL_WIDE("new"), nullptr));
  EXPECT_EQ(Calls(), "GetHead(master)");
}

TEST_F(HostRepository, MovesABranchWithoutHeadInAMerge) {
  const cow_ptr<Commit> commit = Draw("A", "");
  EXPECT_TRUE(repository.Merge(commit, {}));
  EXPECT_EQ(Calls(), "GetHead(master) GetCurentBranch MoveBranchTo(master)");
}

TEST_F(HostRepository, FastForwardsInAMerge) {
  const cow_ptr<Commit> commit = Draw("A-B", "master=A", "B");
  EXPECT_TRUE(repository.Merge(commit, {}));
  EXPECT_EQ(Calls(),
            "GetHead(master) FastForwardMerge GetHead(master) GetCommonBase GetCurentBranch "
            "MoveBranchTo(master)");
}

TEST_F(HostRepository, MergesAndCommits) {
  const cow_ptr<Commit> commit = Draw("A-B; A-C", "master=B", "C");
  const auto descend = [](auto, const MergeTrees&) { return TreeConflictChoice::Descend; };
  EXPECT_TRUE(repository.Merge(commit, {AlwaysChooseLeft(), descend}));
  EXPECT_EQ(Calls(),
            "GetHead(master) FastForwardMerge GetHead(master) GetCommonBase Merge3Way "
            "GetHead(master) GetCommonBase DoCommit SyncWithStorage()");
}

TEST_F(HostRepository, CreatesBranchesOnACommonRoot) {
  EXPECT_TRUE(repository.EnsureCommonRootFor(TAL_WIDE("one"), TAL_WIDE("two"), TAL_WIDE("root")));
  EXPECT_EQ(Calls(),
            "GetHead(one) GetHead(two) GetHead(root) SyncWithStorage(Root commit) "
            "CreateBranch(root) GetHead(root) GetHead(one) CreateBranch(one) GetHead(two) "
            "CreateBranch(two)");
}

TEST_F(HostRepository, MovesBranchesOntoACommonRoot) {
  Draw("A; B-C", "root=A two=C");
  EXPECT_TRUE(repository.EnsureCommonRootFor(TAL_WIDE("root"), TAL_WIDE("two"), TAL_WIDE("root")));
  EXPECT_EQ(Calls(),
            "GetHead(root) GetHead(two) GetCommonBase GetHead(root) GetHead(root) GetCommonBase "
            "GetHead(two) GetCommonBase SyncWithStorage(B) SyncWithStorage(C) MoveBranchTo(two)");
}

TEST_F(HostRepository, StoresAndMovesWhatADeletionKeeps) {
  const cow_ptr<Commit> commit = Draw("A-B-C", "low=A high=C", "C");
  EXPECT_TRUE(repository.DeleteCommits(commit));
  EXPECT_EQ(Calls(),
            "SyncWithStorage(A) SyncWithStorage(C) MoveBranchTo(high) MoveBranchTo(low) "
            "UpdateStorage");
}

TEST_F(HostRepository, StoresAndMovesWhatASimplificationKeeps) {
  ASSERT_TRUE(repository.RemoveBranch(TAL_WIDE("master")));
  Draw("A-B-C", "low=B high=C", "C");
  EXPECT_TRUE(repository.SimplifyCommitGraph(true));
  EXPECT_EQ(Calls(),
            "GetCommonBase SyncWithStorage(B) BranchExist(low) MoveBranchTo(low) "
            "SyncWithStorage(C) BranchExist(high) MoveBranchTo(high) UpdateStorage");
}

}  // namespace
}  // namespace TalVcs::Testing
