// Loading what a Serializer wrote, and what the parsers make of streams in good order.

#include <gmock/gmock.h>
#include <tests/support/forest.h>
#include <tests/support/store_fixture.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>

namespace TalVcs::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Deserialize = StoreTest;

// What a repository holds, for comparing two.
std::set<std::string> IdsOf(const Repository& repository) {
  std::set<std::string> ids;
  for (const auto& [id, commit] : repository.GetStorage()->GetCommits()) ids.insert(Ascii(id));
  for (const auto& [id, tree] : repository.GetStorage()->GetTrees()) ids.insert(Ascii(id));
  for (const auto& [id, blob] : repository.GetStorage()->GetBlobs()) ids.insert(Ascii(id));
  return ids;
}
std::set<std::string> HeadsOf(const Repository& repository) {
  std::set<std::string> heads;
  for (const auto& [name, head] : repository.GetStorage()->GetRefs()) {
    if (head) heads.insert(Ascii(name) + '=' + IdOf(head));
  }
  return heads;
}

TEST_F(Deserialize, NullRepositoryOrReaderGivesFalseAndReadsNothing) {
  SaveHistory("A", "master=A");
  EXPECT_FALSE(Deserializer(&store, TAL_WIDE("doc")).Deserialize(nullptr));
  EXPECT_FALSE(Deserializer(nullptr, TAL_WIDE("doc")).Deserialize(&loaded));
  EXPECT_THAT(store.calls, IsEmpty());
}

TEST_F(Deserialize, StoreWithoutBranchesGivesTrueAndLoadsNothing) {
  SaveHistory("A-B", "");
  EXPECT_TRUE(Load());
  EXPECT_EQ(loaded.GetCommitCount(), 0u);
  EXPECT_THAT(store.calls, ElementsAre("list doc/.vcs/refs/heads"));
}

TEST_F(Deserialize, HistoryComesBackUnderTheSameIds) {
  SaveHistory("A-B-C; B-D", "master=C topic=D");
  EXPECT_TRUE(Load());
  EXPECT_EQ(ChainOf(loaded, "master"), "A-B-C");
  EXPECT_EQ(ChainOf(loaded, "topic"), "A-B-D");
  EXPECT_EQ(IdOf(loaded.GetHead()->GetParent()),
            "659e5742dabcf67267afd5017056ad00b41eb46271a0c54576f939ded57c023d");
  EXPECT_EQ(loaded.GetHead()->GetParent(), loaded.GetHead(TAL_WIDE("topic"))->GetParent());
  EXPECT_EQ(ListingOf(loaded.GetHead()), "lib/common=common name=C");
  EXPECT_EQ(loaded.GetCommitCount(), 4u);
  EXPECT_EQ(loaded.GetTreeCount(), 5u);
  EXPECT_EQ(loaded.GetBlobCount(), 5u);
}

TEST_F(Deserialize, LoadedObjectsAreCanonicalInstances) {
  SaveHistory("A-B", "master=B");
  ASSERT_TRUE(Load());
  const cow_ptr<Commit> head = loaded.GetHead();
  EXPECT_EQ(loaded.GetCommitFromStorage(head->GetId()), head);
  EXPECT_EQ(loaded.GetCommitFromStorage(head->GetParent()->GetId()), head->GetParent());
  const cow_ptr<Tree> root = head->GetTree()->GetRoot();
  EXPECT_EQ(loaded.GetTreeFromStorage(root->GetId()), root);
  const cow_ptr<Blob> blob = root->GetDeepBlob(TAL_WIDE("lib/common"));
  EXPECT_EQ(loaded.GetBlobFromStorage(blob->GetId()), blob);
}

TEST_F(Deserialize, KeepsNoHandleAfterTheLoad) {
  SaveHistory("A-B", "master=B");
  ASSERT_TRUE(Load());
  loaded.RemoveBranch(TAL_WIDE("master"));
  loaded.UpdateStorage();
  EXPECT_THAT(IdsOf(loaded), IsEmpty());
}

TEST_F(Deserialize, DoesNotReadUnreachableObjects) {
  SaveHistory("A; X", "master=A");
  ASSERT_TRUE(Load());
  EXPECT_EQ(loaded.GetCommitCount(), 1u);
  EXPECT_EQ(store.CountOpens(IdOfChain("X")), 0u);
}

TEST_F(Deserialize, CommitsAreReadNewestFirstEachWithItsTree) {
  SaveHistory("A-B", "master=B");
  ASSERT_TRUE(Load());
  const auto position = [&](const cow_ptr<Tree>& tree, const cow_ptr<Commit>& commit) {
    const std::string id = tree ? IdOf(tree) : IdOf(commit);
    const std::string call = "open " + MemoryBlobIo::ObjectPath(id);
    return std::find(store.calls.begin(), store.calls.end(), call) - store.calls.begin();
  };
  const cow_ptr<Commit> b = loaded.GetHead();
  const cow_ptr<Commit> a = b->GetParent();
  EXPECT_LT(position(nullptr, b), position(b->GetTree()->GetRoot(), nullptr));
  EXPECT_LT(position(b->GetTree()->GetRoot(), nullptr), position(nullptr, a));
  EXPECT_LT(position(nullptr, a), position(a->GetTree()->GetRoot(), nullptr));
}

TEST_F(Deserialize, SharedHistoryAndContentIsReadOnce) {
  SaveHistory("A-B-C-D; B-E; C-F", "d=D e=E f=F low=B");
  ASSERT_TRUE(Load());
  EXPECT_EQ(store.MostOpensOfOneStream(), 1u);
}

TEST_F(Deserialize, DamagedHistoryIsReadOnceAlthoughAWholeOneComesBetween) {
  Repository source = NewOrdinaryRepository();
  PlaceBranches(source, DrawHistory(source, "A-B; X-Y"), "a=B b=Y c=B");
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(source.GetStorage()));
  const TalStringT<WideChar> lost =
      source.GetHead(TAL_WIDE("a"))->GetTree()->GetRootId().ToString();
  ASSERT_EQ(store.streams.erase(MemoryBlobIo::ObjectPath(Ascii(lost))), 1u);
  store.calls.clear();
  EXPECT_FALSE(Load());
  EXPECT_EQ(ChainOf(loaded, "b"), "X-Y");
  EXPECT_EQ(store.MostOpensOfOneStream(), 1u);
}

TEST_F(Deserialize, VersionsOfADirectoryOfManyChunksComeBack) {
  Repository source = NewOrdinaryRepository();
  Commit draft(&source, false);
  for (int file = 0; file < 300; ++file) {
    draft.AddBlob(&source, Wide("file" + std::to_string(file)), BlobOf(std::to_string(file)));
  }
  const cow_ptr<Commit> first = source.DoCommit(draft);
  Commit next(&source, false);
  next.AddBlob(&source, TAL_WIDE("file7"), BlobOf("changed"));
  const cow_ptr<Commit> second = source.DoCommit(next);
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(source.GetStorage()));
  for (Repository repository : {NewRepository(), NewOrdinaryRepository()}) {
    ASSERT_TRUE(LoadInto(repository));
    EXPECT_EQ(IdOf(repository.GetHead()), IdOf(second));
    EXPECT_EQ(ListingOf(repository.GetHead()), ListingOf(second));
    EXPECT_EQ(ListingOf(repository.GetHead()->GetParent()), ListingOf(first));
  }
}

TEST_F(Deserialize, SecondLoadReadsTheBranchesAlone) {
  SaveHistory("A-B; A-C", "master=B topic=C");
  ASSERT_TRUE(Load());
  const std::set<std::string> ids = IdsOf(loaded);
  store.calls.clear();
  EXPECT_TRUE(Load());
  EXPECT_EQ(IdsOf(loaded), ids);
  EXPECT_THAT(store.calls,
              ElementsAre("list doc/.vcs/refs/heads", "open doc/.vcs/refs/heads/master",
                          "open doc/.vcs/refs/heads/topic"));
}

TEST_F(Deserialize, RepositoryIsNotEmptiedFirst) {
  SaveHistory("A-B", "topic=B");
  PlaceBranches(loaded, DrawHistory(loaded, "X"), "other=X");
  EXPECT_TRUE(Load());
  EXPECT_EQ(ChainOf(loaded, "other"), "X");
  EXPECT_EQ(ChainOf(loaded, "topic"), "A-B");
  EXPECT_EQ(loaded.GetCommitCount(), 3u);
}

TEST_F(Deserialize, ExistingBranchIsMoved) {
  SaveHistory("A-B", "topic=B");
  PlaceBranches(loaded, DrawHistory(loaded, "X"), "topic=X");
  EXPECT_TRUE(Load());
  EXPECT_EQ(ChainOf(loaded, "topic"), "A-B");
}

TEST_F(Deserialize, DoesNotReadCommitsThatTheRepositoryHas) {
  SaveHistory("A-B-C", "topic=C");
  DrawHistory(loaded, "A-B");
  EXPECT_TRUE(Load());
  EXPECT_EQ(store.CountOpens(IdOfChain("A-B")), 0u);
  EXPECT_EQ(ChainOf(loaded, "topic"), "A-B-C");
}

// A tree can stand in a repository without what it refers to. A load that met it once took the
// entries of its older states from it, and so left their blobs unstored.
TEST_F(Deserialize, EntriesOfATreeThatStandsAloneAreStored) {
  Repository source = NewOrdinaryRepository();
  Commit older;
  older.AddBlob(&source, TAL_WIDE("x"), BlobOf("1"));
  older.AddBlob(&source, TAL_WIDE("y"), BlobOf("2"));
  Commit newer(source.SyncWithStorage(Make<Commit>(older)), false);
  newer.RemoveObject(&source, TAL_WIDE("y"));
  const cow_ptr<Commit> head = source.SyncWithStorage(Make<Commit>(newer));
  source.MoveBranchTo(TAL_WIDE("master"), head);
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(source.GetStorage()));

  loaded.SyncWithStorage(head->GetTree()->GetRoot());
  EXPECT_TRUE(Load());
  EXPECT_EQ(loaded.GetCommitCount(), 2u);
  EXPECT_EQ(loaded.GetTreeCount(), 2u);
  EXPECT_EQ(loaded.GetBlobCount(), 2u);
}

TEST_F(Deserialize, CurrentBranchStaysTheSame) {
  SaveHistory("A", "topic=A");
  ASSERT_TRUE(Load());
  EXPECT_EQ(Ascii(loaded.GetCurentBranch()), "master");
  EXPECT_FALSE(loaded.GetHead());
}

TEST_F(Deserialize, FirstCommitBecomesAChildOfTheCurrentHead) {
  SaveHistory("A; X", "master=A topic=X");
  EXPECT_FALSE(Load());
  EXPECT_EQ(ChainOf(loaded, "master"), "A");
  EXPECT_FALSE(loaded.GetCommitFromStorage(Id(Wide(IdOfChain("X")))));
  const cow_ptr<Commit> other = loaded.GetCommitFromStorage(Id(Wide(IdOfChain("A-X"))));
  ASSERT_TRUE(other);
  EXPECT_EQ(other->GetParent(), loaded.GetHead());
}

TEST_F(Deserialize, BranchThatCannotBeMovedStaysWhereItWasCreated) {
  SaveHistory("A; X", "master=A topic=X");
  ASSERT_FALSE(Load());
  EXPECT_EQ(loaded.GetHead(TAL_WIDE("topic")), loaded.GetHead())
      << "a new branch starts at the current head";
}

TEST_F(Deserialize, BranchNamesMayContainAnyCharacter) {
  SaveHistory("A", "a/b=A ..=A Master=A x\\y=A");
  EXPECT_TRUE(Load());
  for (const char* name : {"a/b", "..", "Master", "x\\y"}) {
    EXPECT_EQ(ChainOf(loaded, name), "A") << name;
  }
}

TEST_F(Deserialize, ContentOfAnyKindComesBack) {
  Repository source = NewOrdinaryRepository();
  Commit commit;
  const std::string zeros("\0\x01\0", 3);
  commit.AddBlob(&source, TAL_WIDE("dir/deep/zeros"), BlobOf(zeros));
  commit.AddBlob(&source, TAL_WIDE("empty"), BlobOf(""));
  commit.AddBlob(&source, TAL_WIDE("large"), BlobOf(std::string(300000, '\n')));
  commit.AddBlob(&source, TAL_WIDE("\u00E4 \U0001F600 \uFF5E"), BlobOf("name"));
  commit.SetAuthorName(TAL_WIDE("J\u00F6rg"));
  commit.SetAuthorEmail(TAL_WIDE("j@x"));
  commit.SetDescription(TAL_WIDE("\u4E2D"));
  commit.SetCommitTime(Time::FromTimeT(-5));
  commit.SetCommitTimezoneBias(TimeDelta{-90 * 600000000LL});
  const auto stored = source.SyncWithStorage(Make<Commit>(commit));
  source.CreateBranch(TAL_WIDE("topic"), stored);
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(source.GetStorage()));

  ASSERT_TRUE(Load());
  const cow_ptr<Commit> head = loaded.GetHead(TAL_WIDE("topic"));
  EXPECT_EQ(IdOf(head), IdOf(stored));
  EXPECT_EQ(ListingOf(head), ListingOf(stored));
  EXPECT_EQ(head->GetAuthorName(), stored->GetAuthorName());
  EXPECT_EQ(head->GetAuthorEmail(), stored->GetAuthorEmail());
  EXPECT_EQ(head->GetDesciption(), stored->GetDesciption());
  EXPECT_EQ(head->GetCommitTime().ToTimeT(), -5);
  EXPECT_EQ(head->GetCommitTimezoneBias().ticks, -90 * 600000000LL);
}

TEST_F(Deserialize, LoneSurrogateInANameComesBack) {
  Repository source = NewOrdinaryRepository();
  const WideChar lone[] = {0xD800, 'x', 0};
  Commit commit;
  commit.AddBlob(&source, lone, BlobOf("1"));
  source.CreateBranch(TAL_WIDE("topic"), source.SyncWithStorage(Make<Commit>(commit)));
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(source.GetStorage()));
  EXPECT_TRUE(Load());
  EXPECT_EQ(TextOf(loaded.GetHead(TAL_WIDE("topic"))->GetBlob(lone)), "1");
}

TEST_F(Deserialize, NamesKeepTheirOrderInUtf16) {
  // U+1F600 comes before U+FF5E in UTF-16, and after it in UTF-8.
  store.PutObject(FakeId(7), Packed("blob", "1"));
  PutCommitOnTree(Packed("tree", Record("blob", "\xEF\xBD\x9E", FakeId(7)) +
                                     Record("blob", "\xF0\x9F\x98\x80", FakeId(7))));
  Load();
  ASSERT_TRUE(OnlyCommit());
  EXPECT_EQ(Ascii(OnlyCommit()->GetTree()->GetRootId()),
            "fc0f24467107d1fbfdf9b3e4264177aa2cbe03318e77401a49458bcc4fb6c7eb");
}

TEST_F(Deserialize, NegativeBiasUnderAnHourLosesItsSignButNotItsId) {
  Repository source = NewOrdinaryRepository();
  Commit commit;
  commit.AddBlob(&source, TAL_WIDE("f"), BlobOf("1"));
  commit.SetCommitTimezoneBias(TimeDelta{-30 * 600000000LL});
  const auto stored = source.SyncWithStorage(Make<Commit>(commit));
  source.CreateBranch(TAL_WIDE("topic"), stored);
  ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(source.GetStorage()));
  EXPECT_TRUE(Load());
  const cow_ptr<Commit> head = loaded.GetHead(TAL_WIDE("topic"));
  EXPECT_EQ(IdOf(head), IdOf(stored));
  EXPECT_EQ(head->GetCommitTimezoneBias().ticks, 30 * 600000000LL);
}

TEST_F(Deserialize, EverythingThatWasSavedComesBackOnRandomHistories) {
  for (unsigned seed = 0; seed < 100 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const Forest forest = RandomForest(random, 1 + Below(random, 25));
    Repository source = NewOrdinaryRepository();
    {
      const History history = DrawHistory(source, forest.Drawing());
      for (int i = 0; i < 4; ++i) {
        source.CreateBranch(Wide("branch" + std::to_string(i)),
                            history.at(Forest::NameOf(Below(random, forest.Size()))));
      }
    }
    source.UpdateStorage();
    store = MemoryBlobIo();
    ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(source.GetStorage()));
    Repository target = NewRepository();
    ASSERT_TRUE(LoadInto(target));
    EXPECT_EQ(IdsOf(target), IdsOf(source));
    EXPECT_EQ(HeadsOf(target), HeadsOf(source));
    EXPECT_EQ(store.MostOpensOfOneStream(), 1u);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
