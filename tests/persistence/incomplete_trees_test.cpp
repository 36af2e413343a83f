// Trees that lost entries while they were loaded, and can get them back later in the same load.

#include <tests/support/store_fixture.h>

#include <cstddef>
#include <cstdio>
#include <string>

namespace TalVcs::Testing {
namespace {

/// Stores of two commits with one root, and objects of which the streams are missing.
class IncompleteTrees : public StoreTest {
 protected:
  void SetUp() override {
    store.PutObject(FakeId(7), Packed("blob", "x"));
    m_x = IdOf(BlobOf("x"));
    store.PutObject(m_x, Packed("blob", "x"));
  }

  /// Returns the id of the tree with the file "b" of the content "x".
  std::string IdOfTreeWithB() {
    Repository scratch = NewRepository();
    return IdOf(TreeOf(&scratch, {{"b", "x"}}));
  }

  void PutTwoCommitsOn(const std::string& root) {
    store.PutObject(FakeId(2), Packed("commit", CommitText(root, "", "older")));
    store.PutObject(FakeId(3), Packed("commit", CommitText(root, FakeId(2), "newer")));
    store.PutBranch("master", FakeId(3));
  }

  /// Returns the loaded commit with this description, or null.
  cow_ptr<Commit> CommitOf(const char* description) const {
    for (const auto& [id, commit] : loaded.GetStorage()->GetCommits()) {
      if (Ascii(commit->GetDesciption()) == description) return commit;
    }
    return nullptr;
  }
  /// Returns its listing.
  std::string ListingOfCommit(const char* description) const {
    const cow_ptr<Commit> commit = CommitOf(description);
    return commit ? ListingOf(commit) : "no commit";
  }

  std::string m_x;
};

TEST_F(IncompleteTrees, TreeIsReadAgainOnceAMissingSubtreeIsStored) {
  store.PutObject(FakeId(1),
                  Packed("tree", Record("tree", "A", IdOfTreeWithB()) + Record("blob", "b", m_x)));
  PutTwoCommitsOn(FakeId(1));
  EXPECT_FALSE(Load());
  EXPECT_EQ(ListingOfCommit("newer"), "b=x");
  EXPECT_EQ(ListingOfCommit("older"), "A/b=x b=x");
  EXPECT_EQ(store.MostOpensOfOneStream(), 1U);
}

TEST_F(IncompleteTrees, SavedHistoryKeepsTheOlderCommitWhole) {
  Repository source = NewOrdinaryRepository();
  Commit first(&source, false);
  first.AddBlob(&source, TAL_WIDE("A/b"), BlobOf("x"));
  first.AddBlob(&source, TAL_WIDE("b"), BlobOf("x"));
  const std::string first_id = IdOf(source.DoCommit(first));
  Commit second(&source, false);
  second.SetDescription(TAL_WIDE("newer"));
  source.DoCommit(second);
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(source.GetStorage()));
  ASSERT_EQ(store.streams.erase(MemoryBlobIo::ObjectPath(IdOfTreeWithB())), 1U);
  store.calls.clear();
  EXPECT_FALSE(Load());
  EXPECT_EQ(ListingOfCommit("newer"), "b=x");
  EXPECT_EQ(ListingOf(loaded.GetCommitFromStorage(Id(Wide(first_id)))), "A/b=x b=x");
  EXPECT_EQ(store.MostOpensOfOneStream(), 1U);
}

TEST_F(IncompleteTrees, TreeAboveIsReadAgainToo) {
  store.PutObject(FakeId(4),
                  Packed("tree", Record("tree", "A", IdOfTreeWithB()) + Record("blob", "b", m_x)));
  store.PutObject(FakeId(5), Packed("tree", Record("tree", "d", FakeId(4))));
  store.PutObject(FakeId(1), Packed("tree", Record("tree", "c", FakeId(5))));
  PutTwoCommitsOn(FakeId(1));
  EXPECT_FALSE(Load());
  EXPECT_EQ(ListingOfCommit("newer"), "c/d/b=x");
  EXPECT_EQ(ListingOfCommit("older"), "c/d/A/b=x c/d/b=x");
  EXPECT_EQ(store.MostOpensOfOneStream(), 1U);
}

// The commit without a tree gets the root of the head, and stores it.
TEST_F(IncompleteTrees, TreeIsReadAgainOnceTheRootOfTheHeadIsStored) {
  Commit head(&loaded, false);
  head.AddBlob(&loaded, {}, Blob());
  ASSERT_TRUE(loaded.DoCommit(head));
  const std::string empty = IdOf(Tree());
  ASSERT_FALSE(loaded.GetTreeFromStorage(Id(Wide(empty))));
  store.PutObject(FakeId(1), Packed("tree", Record("tree", "A", empty) + Record("blob", "b", m_x)));
  store.PutObject(FakeId(2), Packed("commit", CommitText(FakeId(1), "", "oldest")));
  store.PutObject(FakeId(3), Packed("commit", CommitText("", FakeId(2), "between")));
  store.PutObject(FakeId(4), Packed("commit", CommitText(FakeId(1), FakeId(3), "newest")));
  store.PutBranch("topic", FakeId(4));
  EXPECT_FALSE(Load());
  EXPECT_FALSE(CommitOf("newest")->GetTree(TAL_WIDE("A")));
  EXPECT_TRUE(CommitOf("oldest")->GetTree(TAL_WIDE("A")));
  EXPECT_EQ(store.MostOpensOfOneStream(), 1U);
}

TEST_F(IncompleteTrees, TreeIsReadAgainOnceAMissingBlobIsStored) {
  store.streams.erase(MemoryBlobIo::ObjectPath(m_x));
  store.PutObject(FakeId(1),
                  Packed("tree", Record("blob", "a", m_x) + Record("blob", "b", FakeId(7))));
  PutTwoCommitsOn(FakeId(1));
  EXPECT_FALSE(Load());
  EXPECT_EQ(ListingOfCommit("newer"), "b=x");
  EXPECT_EQ(ListingOfCommit("older"), "a=x b=x");
  EXPECT_EQ(store.MostOpensOfOneStream(), 1U);
}

TEST_F(IncompleteTrees, DirectoriesMadeForANameOfSeveralComponentsCount) {
  store.PutObject(FakeId(1), Packed("tree", Record("tree", "A", IdOfTreeWithB()) +
                                                Record("blob", "t/b", FakeId(7))));
  PutTwoCommitsOn(FakeId(1));
  EXPECT_FALSE(Load());
  EXPECT_EQ(ListingOfCommit("newer"), "t/b=x");
  EXPECT_EQ(ListingOfCommit("older"), "A/b=x t/b=x");
}

TEST_F(IncompleteTrees, SubtreesOfATreeOfUnknownTypeWordsAreStoredWholeTheSecondTime) {
  store.PutObject(FakeId(4),
                  Packed("tree", Record("tree", "A", IdOfTreeWithB()) + Record("blob", "b", m_x)));
  store.PutObject(FakeId(1),
                  Packed("tree", Record("tree", "d", FakeId(4)) + Record("link", "e", FakeId(7))));
  PutTwoCommitsOn(FakeId(1));
  EXPECT_FALSE(Load());
  EXPECT_EQ(loaded.GetTreeCount(), 2U) << "the tree with b, and the one with A and b";
}

TEST_F(IncompleteTrees, ResultHoldsWhileNothingThatIsMissingIsStored) {
  store.PutObject(FakeId(1),
                  Packed("tree", Record("tree", "A", FakeId(4)) + Record("blob", "b", m_x)));
  PutTwoCommitsOn(FakeId(1));
  EXPECT_FALSE(Load());
  EXPECT_EQ(ListingOfCommit("newer"), "b=x");
  EXPECT_EQ(ListingOfCommit("older"), "b=x");
  EXPECT_EQ(loaded.GetTreeCount(), 1U);
}

// One tree lacks thousands of subtrees, which are stored one after the other, and is asked for
// after each. The work has a limit, after which the latest result is kept.
TEST_F(IncompleteTrees, ReadingAgainIsLimited) {
  constexpr int kSubtrees = 5000;
  Repository scratch = NewRepository();
  std::string lacking;
  std::string records;
  for (int number = 0; number < kSubtrees; ++number) {
    char name[16];
    std::snprintf(name, sizeof(name), "%05d", number);
    const std::string id = IdOf(TreeOf(&scratch, {{name, "x"}}));
    const auto fake = FakeId(static_cast<unsigned>(1000 + number));
    store.PutObject(fake, Packed("tree", Record("blob", name, m_x)));
    lacking += Record("tree", name, id);
    records += Record("tree", std::string(name) + "a", fake);
    records += Record("tree", std::string(name) + "b", FakeId(4));
  }
  store.PutObject(FakeId(4), Packed("tree", lacking));
  store.PutObject(FakeId(1), Packed("tree", records));
  PutTwoCommitsOn(FakeId(1));
  store.records = false;
  EXPECT_FALSE(Load());
  const cow_ptr<Tree> root =
      loaded.GetStorage()->GetCommits().begin()->second->GetTree()->GetRoot();
  const auto entries = [&root](const char* name) {
    return root->GetLocalTree(Wide(name))->GetLocalObjectCount();
  };
  EXPECT_EQ(entries("00000b"), 1U);
  EXPECT_EQ(entries("00020b"), 21U);
  // All of these subtrees, and the states of the tree that lacked them.
  EXPECT_GE(loaded.GetTreeCount(), kSubtrees + 50U);
  EXPECT_LE(loaded.GetTreeCount(), kSubtrees + 200U);
}

}  // namespace
}  // namespace TalVcs::Testing
