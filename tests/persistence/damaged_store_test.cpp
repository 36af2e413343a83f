// Each way in which a store can be damaged, and what the load then gives.

#include <gmock/gmock.h>
#include <tests/support/store_fixture.h>

#include <memory>
#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

using ::testing::ElementsAre;

class DamagedStore : public StoreTest {
 protected:
  // A store of "A-B-C" with "master" on C; the damage is done to one of its streams.
  void SetUp() override { SaveHistory("A-B-C", "master=C"); }

  std::string& ObjectStream(const std::string& id) {
    return store.streams.at(MemoryBlobIo::ObjectPath(id));
  }
  std::string& CommitStream(const char* chain) { return ObjectStream(IdOfChain(chain)); }
  void Remove(const std::string& id) { store.streams.erase(MemoryBlobIo::ObjectPath(id)); }

  const std::string m_common = "5730a42bb2ae0abf6a91b70a1f4dc18fdcc392b2ad6065939804d01ca70fedf4";
  const std::string m_lib = "4f88064c289eae5e7decdfb84fda37c5086395b0743ec3be5474c828b9c67466";
};

TEST_F(DamagedStore, MissingRefStreamReturnsFalseAndSkipsThatBranch) {
  store.PutBranch("zeta", IdOfChain("A-B"));
  store.SpoilOpen(0, MemoryBlobIo::Fault::Missing);
  EXPECT_FALSE(Load());
  EXPECT_TRUE(store.HasFired());
  EXPECT_FALSE(loaded.GetHead());
  EXPECT_EQ(ChainOf(loaded, "zeta"), "A-B");
}

TEST_F(DamagedStore, EmptyRefStreamReturnsFalseAndCreatesNoBranch) {
  store.PutBranch("alpha", "");
  EXPECT_FALSE(Load());
  EXPECT_FALSE(loaded.BranchExist(TAL_WIDE("alpha")));
  EXPECT_EQ(ChainOf(loaded, "master"), "A-B-C");
}

TEST_F(DamagedStore, RefWithALineEndFindsNothing) {
  store.PutBranch("alpha", IdOfChain("A-B") + "\n");
  EXPECT_FALSE(Load());
  EXPECT_FALSE(loaded.BranchExist(TAL_WIDE("alpha")));
  EXPECT_EQ(store.CountOpens(IdOfChain("A-B") + "\n"), 1u);
}

TEST_F(DamagedStore, MissingHeadDoesNotMoveTheBranch) {
  PlaceBranches(loaded, DrawHistory(loaded, "X"), "master=X");
  for (const bool readsAsEmpty : {false, true}) {
    store.missingReadsAsEmpty = readsAsEmpty;
    Remove(IdOfChain("A-B-C"));
    EXPECT_FALSE(Load());
    EXPECT_EQ(ChainOf(loaded, "master"), "X");
  }
}

TEST_F(DamagedStore, MissingHeadCreatesNoBranch) {
  store.PutBranch("alpha", FakeId(1));
  EXPECT_FALSE(Load());
  EXPECT_FALSE(loaded.BranchExist(TAL_WIDE("alpha")));
}

TEST_F(DamagedStore, HeadThatIsNotACommitDoesNotMoveTheBranch) {
  const std::string text = CommitText("", "", "C");
  const std::string streams[] = {
      Packed("blob", text),               // another type
      Packed("commi", text),              // a part of the type word
      std::string("commit\0", 7) + text,  // no blank after the type word, nor a size
      Packed("commits", text),            // more than the type word
      "commit " + text,                   // no zero byte
      Packed("commit", ""),               // no text
      Packed("commit", "author\n"),       // no tree line
      "",
  };
  for (const std::string& stream : streams) {
    CommitStream("A-B-C") = stream;
    Repository target = NewRepository();
    EXPECT_FALSE(LoadInto(target)) << stream;
    EXPECT_FALSE(target.GetHead()) << stream;
    EXPECT_EQ(target.GetCommitCount(), 0u) << stream;
  }
}

TEST_F(DamagedStore, HistoryStartsAfterAMissingCommit) {
  Remove(IdOfChain("A"));
  EXPECT_FALSE(Load());
  EXPECT_FALSE(loaded.GetHead());
  EXPECT_EQ(loaded.GetCommitCount(), 2u);
  EXPECT_EQ(ChainOf(loaded.GetCommitFromStorage(Id(Wide(IdOfChain("B-C"))))), "B-C");
}

TEST_F(DamagedStore, HistoryStartsAfterAnUnreadableCommit) {
  CommitStream("A-B") = Packed("blob", "no commit");
  EXPECT_FALSE(Load());
  EXPECT_EQ(loaded.GetCommitCount(), 1u);
  EXPECT_TRUE(loaded.GetCommitFromStorage(Id(Wide(IdOfChain("C")))));
}

TEST_F(DamagedStore, IncompleteHistoryDoesNotMoveAnExistingBranch) {
  PlaceBranches(loaded, DrawHistory(loaded, "X"), "topic=X");
  store.PutBranch("topic", IdOfChain("A-B-C"));
  Remove(IdOfChain("A"));
  EXPECT_FALSE(Load());
  EXPECT_EQ(ChainOf(loaded, "topic"), "X");
}

TEST_F(DamagedStore, IncompleteHistoryBecomesAChildOfTheCurrentHead) {
  PlaceBranches(loaded, DrawHistory(loaded, "X"), "master=X");
  Remove(IdOfChain("A"));
  EXPECT_FALSE(Load());
  EXPECT_EQ(ChainOf(loaded, "master"), "X");
  EXPECT_TRUE(loaded.GetCommitFromStorage(Id(Wide(IdOfChain("X-B-C")))));
}

TEST_F(DamagedStore, BranchesThatShareTheUnreadablePartAreReadOnce) {
  SaveHistory("A-B-C; B-D; B-E", "c=C d=D e=E");
  Remove(IdOfChain("A"));
  EXPECT_FALSE(Load());
  EXPECT_EQ(store.MostOpensOfOneStream(), 1u);
  for (const char* chain : {"B", "B-C", "B-D", "B-E"}) {
    EXPECT_TRUE(loaded.GetCommitFromStorage(Id(Wide(IdOfChain(chain))))) << chain;
  }
  EXPECT_EQ(loaded.GetCommitCount(), 4u);
}

TEST_F(DamagedStore, MissingHeadOfTwoBranchesIsReadOnce) {
  Remove(IdOfChain("A-B-C"));
  store.PutBranch("other", IdOfChain("A-B-C"));
  EXPECT_FALSE(Load());
  EXPECT_EQ(store.CountOpens(IdOfChain("A-B-C")), 1u);
}

TEST_F(DamagedStore, MissingBlobDropsItsEntry) {
  Remove(m_common);
  EXPECT_FALSE(Load());
  EXPECT_FALSE(loaded.GetHead());
  EXPECT_EQ(loaded.GetCommitCount(), 3u);
  for (const auto& [id, commit] : loaded.GetStorage()->GetCommits()) {
    EXPECT_EQ(ListingOf(commit), "name=" + Ascii(commit->GetDesciption()));
  }
  EXPECT_EQ(store.CountOpens(m_common), 1u);
}

TEST_F(DamagedStore, SubtreeWithoutReadableEntriesStaysAsAnEmptyTree) {
  Remove(m_common);
  ASSERT_FALSE(Load());
  const cow_ptr<Commit> any = loaded.GetStorage()->GetCommits().begin()->second;
  const cow_ptr<Tree> lib = any->GetTree()->GetRoot()->GetLocalTree(TAL_WIDE("lib"));
  ASSERT_TRUE(lib);
  EXPECT_TRUE(lib->IsEmpty());
}

TEST_F(DamagedStore, UnreadableSubtreeDropsItsEntry) {
  ObjectStream(m_lib) = Packed("blob", "no tree");
  EXPECT_FALSE(Load());
  const cow_ptr<Commit> any = loaded.GetStorage()->GetCommits().begin()->second;
  EXPECT_FALSE(any->GetTree()->GetRoot()->GetLocalTree(TAL_WIDE("lib")));
  EXPECT_EQ(store.CountOpens(m_lib), 1u);
}

TEST_F(DamagedStore, BlobStreamOfAnotherTypeDropsItsEntry) {
  ObjectStream(m_common) = Packed("tree", "x");
  EXPECT_FALSE(Load());
  EXPECT_EQ(loaded.GetBlobCount(), 3u);
}

TEST_F(DamagedStore, MissingRootMakesACommitWithoutTree) {
  PutCommitOnTree("");
  EXPECT_FALSE(Load());
  const cow_ptr<Commit> commit = OnlyCommit();
  ASSERT_TRUE(commit);
  EXPECT_FALSE(commit->GetTree());
  EXPECT_EQ(Bytes(commit->GetData()).substr(0, 6), "tree \n");
}

TEST_F(DamagedStore, UnknownTypeWordMakesTheTreeUnreadable) {
  store.PutObject(FakeId(7), Packed("blob", "in front"));
  store.PutObject(FakeId(8), Packed("blob", "behind"));
  PutCommitOnTree(Packed("tree", Record("blob", "a", FakeId(7)) + Record("link", "b", FakeId(7)) +
                                     Record("blob", "c", FakeId(8))));
  EXPECT_FALSE(Load());
  ASSERT_TRUE(OnlyCommit());
  EXPECT_FALSE(OnlyCommit()->GetTree());
  EXPECT_EQ(loaded.GetTreeCount(), 0u);
}

TEST_F(DamagedStore, EntriesBeforeAnUnknownTypeWordAreStored) {
  store.PutObject(FakeId(7), Packed("blob", "in front"));
  store.PutObject(FakeId(8), Packed("blob", "behind"));
  PutCommitOnTree(Packed("tree", Record("blob", "a", FakeId(7)) + Record("link", "b", FakeId(7)) +
                                     Record("blob", "c", FakeId(8))));
  Load();
  EXPECT_TRUE(loaded.GetBlobFromStorage(BlobOf("in front").GetId()));
  EXPECT_FALSE(loaded.GetBlobFromStorage(BlobOf("behind").GetId()));
  EXPECT_EQ(store.CountOpens(FakeId(8)), 0u);
}

TEST_F(DamagedStore, SizeInAHeaderIsNotChecked) {
  for (auto& [path, bytes] : store.streams) {
    const std::size_t zero = bytes.find('\0');
    if (zero == std::string::npos) continue;
    bytes.replace(bytes.find(' ') + 1, zero - bytes.find(' ') - 1, "99999999999999999999");
  }
  EXPECT_TRUE(Load());
  EXPECT_EQ(ChainOf(loaded, "master"), "A-B-C");
}

TEST_F(DamagedStore, PrefixOfATypeWordIsEnoughForTreesAndBlobs) {
  for (auto& [path, bytes] : store.streams) {
    if (bytes.starts_with("tree ")) bytes.insert(4, "ish");
    if (bytes.starts_with("blob ")) bytes.insert(4, "by");
  }
  EXPECT_TRUE(Load());
  EXPECT_EQ(ListingOf(loaded.GetHead()), "lib/common=common name=C");
}

TEST_F(DamagedStore, ExchangedBlobsHaveOtherIds) {
  std::swap(ObjectStream(m_common), ObjectStream(IdOf(BlobOf("C"))));
  EXPECT_FALSE(Load());
  EXPECT_FALSE(loaded.GetHead());
  EXPECT_EQ(loaded.GetCommitCount(), 3u);
}

class RefusingRepository : public Repository {
 public:
  RefusingRepository() : Repository(NewStorage()) {}
  bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override {
    return !refusesCreation && Repository::CreateBranch(name, std::move(commit));
  }
  bool MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override {
    return !refusesMoves && Repository::MoveBranchTo(name, std::move(commit));
  }
  bool refusesCreation = false;
  bool refusesMoves = false;
};

TEST_F(DamagedStore, BranchThatCannotBeCreatedDoesNotStopTheOthers) {
  store.PutBranch("alpha", IdOfChain("A-B"));
  RefusingRepository refusing;
  refusing.refusesCreation = true;
  EXPECT_FALSE(LoadInto(refusing));
  EXPECT_FALSE(refusing.BranchExist(TAL_WIDE("alpha")));
  EXPECT_EQ(ChainOf(refusing, "master"), "A-B-C");
}

TEST_F(DamagedStore, BranchThatCannotBeMovedStaysAsItWasCreated) {
  store.PutBranch("alpha", IdOfChain("A-B"));
  RefusingRepository refusing;
  refusing.refusesMoves = true;
  EXPECT_FALSE(LoadInto(refusing));
  EXPECT_TRUE(refusing.BranchExist(TAL_WIDE("alpha")));
  EXPECT_FALSE(refusing.GetHead(TAL_WIDE("alpha")));
  EXPECT_EQ(refusing.GetCommitCount(), 3u);
}

TEST_F(DamagedStore, BranchOfTheEmptyNameCannotBeCreated) {
  store.PutBranch("", IdOfChain("A"));
  EXPECT_FALSE(Load());
  EXPECT_FALSE(loaded.BranchExist(TAL_WIDE("")));
  EXPECT_EQ(ChainOf(loaded, "master"), "A-B-C");
}

TEST_F(DamagedStore, RepositoryWithoutStorageLoadsNothing) {
  Repository without(nullptr);
  EXPECT_FALSE(LoadInto(without));
}

TEST_F(DamagedStore, EachFaultOfEachReadIsHarmless) {
  using Fault = MemoryBlobIo::Fault;
  for (const Fault fault : {Fault::Missing, Fault::Shortened, Fault::Altered}) {
    std::size_t reads = 0;
    for (;; ++reads) {
      MemoryBlobIo failing = store;
      failing.SpoilOpen(reads, fault);
      Repository target = NewRepository();
      PlaceBranches(target, DrawHistory(target, "X"), "kept=X");
      const bool whole = Deserializer(&failing, TAL_WIDE("doc")).Deserialize(&target);
      EXPECT_EQ(ChainOf(target, "kept"), "X");
      if (whole) {
        EXPECT_EQ(ChainOf(target, "master"), "A-B-C");
      }
      if (!failing.HasFired()) {
        EXPECT_TRUE(whole);
        break;
      }
      // A changed byte may be one that is never read.
      EXPECT_TRUE(fault == Fault::Altered || !whole) << reads;
    }
    // The branch; three commits with a tree and a blob each. The repository has the shared ones.
    EXPECT_EQ(reads, 1u + 3u + 3u + 3u);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
