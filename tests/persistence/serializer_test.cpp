#include <talvcs/persistence/serializer.h>

#include <gmock/gmock.h>
#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/ordinary_repository.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kCommon[] = "5730a42bb2ae0abf6a91b70a1f4dc18fdcc392b2ad6065939804d01ca70fedf4";
constexpr char kLib[] = "4f88064c289eae5e7decdfb84fda37c5086395b0743ec3be5474c828b9c67466";
constexpr char kNameA[] = "c8c8c134138d356e5412fe143a62ccff706e787a5179ee26100ba1d571001a2a";
constexpr char kTreeA[] = "9895d34e87440a4a2be82d84bcdae0d88a663764948d42714d103ea79823a6c3";
constexpr char kCommitA[] = "3d78e8a213f446e37d4dd5c8b072f75d3898ea74c8f4e3f7784d33a8499fe5da";
constexpr char kCommitB[] = "659e5742dabcf67267afd5017056ad00b41eb46271a0c54576f939ded57c023d";

class SerializerTest : public ::testing::Test {
 protected:
  bool Save() { return Serializer(&store, TAL_WIDE("doc")).Serialize(repository.GetStorage()); }
  void Draw(const char* drawing, const char* branches) {
    PlaceBranches(repository, DrawHistory(repository, drawing), branches);
  }

  Repository repository = NewOrdinaryRepository();
  MemoryBlobIo store;
};

TEST_F(SerializerTest, StoreHoldsThePackedFormOfEachObjectAndTheIdOfEachHead) {
  Draw("A", "master=A");
  EXPECT_TRUE(Save());
  MemoryBlobIo expected;
  expected.PutObject(kCommon, Packed("blob", "common"));
  expected.PutObject(kNameA, Packed("blob", "A"));
  expected.PutObject(kLib, Packed("tree", Record("blob", "common", kCommon)));
  expected.PutObject(kTreeA,
                     Packed("tree", Record("tree", "lib", kLib) + Record("blob", "name", kNameA)));
  expected.PutObject(kCommitA, Packed("commit", CommitText(kTreeA, "", "A")));
  expected.PutBranch("master", kCommitA);
  EXPECT_EQ(store.streams, expected.streams);
}

TEST_F(SerializerTest, CommitNamesItsParent) {
  Draw("A-B", "master=B");
  ASSERT_TRUE(Save());
  const std::string& text = store.streams.at(MemoryBlobIo::ObjectPath(kCommitB));
  EXPECT_NE(text.find("\nparent " + std::string(kCommitA) + "\nauthor "), std::string::npos);
  EXPECT_EQ(store.streams.at(MemoryBlobIo::BranchPath("master")), kCommitB);
}

TEST_F(SerializerTest, OldStoreIsRemovedFirst) {
  store.PutObject(FakeId(1), "old");
  store.streams["elsewhere"] = "kept";
  Draw("A", "master=A");
  ASSERT_TRUE(Save());
  EXPECT_EQ(store.calls.front(), "remove doc/.vcs");
  EXPECT_EQ(store.streams.count(MemoryBlobIo::ObjectPath(FakeId(1))), 0u);
  EXPECT_EQ(store.streams.count("elsewhere"), 1u);
}

TEST_F(SerializerTest, OrderIsCommitsBlobsTreesBranches) {
  Draw("A-B", "master=B topic=A");
  ASSERT_TRUE(Save());
  std::vector<std::string> kinds;
  for (const std::string& call : store.calls) {
    if (!call.starts_with("commit ")) continue;
    const std::string path = call.substr(7);
    const std::string& bytes = store.streams.at(path);
    const std::string kind =
        path.find("/refs/") != std::string::npos ? "branch" : bytes.substr(0, bytes.find(' '));
    if (kinds.empty() || kinds.back() != kind) kinds.push_back(kind);
  }
  EXPECT_THAT(kinds, ElementsAre("commit", "blob", "tree", "branch"));
}

TEST_F(SerializerTest, EachStreamIsCreatedAndCommittedOnceInTurn) {
  Draw("A-B; A-C", "master=B topic=C");
  ASSERT_TRUE(Save());
  std::set<std::string> paths;
  for (std::size_t i = 1; i < store.calls.size(); i += 2) {
    const std::string path = store.calls[i].substr(7);
    EXPECT_EQ(store.calls[i], "create " + path);
    EXPECT_EQ(store.calls.at(i + 1), "commit " + path);
    EXPECT_TRUE(paths.insert(path).second) << path;
  }
  EXPECT_EQ(paths.size(), store.streams.size());
}

TEST_F(SerializerTest, WritesUnreachableObjects) {
  Draw("A", "");
  repository.SyncWithStorage(SharedBlob("alone"));
  ASSERT_TRUE(Save());
  EXPECT_EQ(store.streams.size(), 6u);
}

TEST_F(SerializerTest, BranchWithoutHeadHasNoStream) {
  Draw("A", "topic=A empty=");
  EXPECT_TRUE(Save());
  EXPECT_EQ(store.streams.count(MemoryBlobIo::BranchPath("topic")), 1u);
  EXPECT_EQ(store.streams.count(MemoryBlobIo::BranchPath("empty")), 0u);
  EXPECT_EQ(store.streams.count(MemoryBlobIo::BranchPath("master")), 0u);
}

TEST_F(SerializerTest, WritesTheIdOfAHeadThatIsNotStored) {
  const auto unstored = Make<Commit>();
  repository.CreateBranch(TAL_WIDE("topic"), unstored);
  EXPECT_TRUE(Save());
  EXPECT_EQ(store.streams.size(), 1u);
  EXPECT_EQ(store.streams.at(MemoryBlobIo::BranchPath("topic")), IdOf(unstored));
}

TEST_F(SerializerTest, EmptyStorageErasesTheStore) {
  store.PutObject(FakeId(1), "old");
  EXPECT_TRUE(Save());
  EXPECT_THAT(store.streams, IsEmpty());
  EXPECT_THAT(store.calls, ElementsAre("remove doc/.vcs"));
}

TEST_F(SerializerTest, NullStorageErasesTheStore) {
  store.PutObject(FakeId(1), "old");
  EXPECT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(nullptr));
  EXPECT_THAT(store.streams, IsEmpty());
}

TEST_F(SerializerTest, CleanUpStorageErasesTheStore) {
  store.PutObject(FakeId(1), "old");
  Serializer(&store, TAL_WIDE("doc")).CleanUpStorage();
  EXPECT_THAT(store.streams, IsEmpty());
  EXPECT_THAT(store.calls, ElementsAre("remove doc/.vcs"));
}

TEST_F(SerializerTest, NullWriterFailsOnlyForANonEmptyStorage) {
  Serializer serializer(nullptr, TAL_WIDE("doc"));
  EXPECT_TRUE(serializer.Serialize(nullptr));
  EXPECT_TRUE(serializer.Serialize(repository.GetStorage()));
  Draw("A", "master=A");
  EXPECT_FALSE(serializer.Serialize(repository.GetStorage()));
  serializer.CleanUpStorage();
}

TEST_F(SerializerTest, SecondSaveGivesTheSameStore) {
  Draw("A-B; A-C", "master=B topic=C");
  ASSERT_TRUE(Save());
  const auto first = store.streams;
  ASSERT_TRUE(Save());
  EXPECT_EQ(store.streams, first);
}

TEST_F(SerializerTest, CopyWritesToTheSamePlace) {
  Draw("A", "master=A");
  const Serializer original(&store, TAL_WIDE("doc"));
  Serializer copy = original;
  EXPECT_TRUE(copy.Serialize(repository.GetStorage()));
  EXPECT_EQ(store.streams.count(MemoryBlobIo::BranchPath("master")), 1u);
}

TEST_F(SerializerTest, ReturnsFalseIfAnyStreamFailsAndWritesTheOthers) {
  Draw("A-B", "master=B topic=A");
  ASSERT_TRUE(Save());
  const auto whole = store.streams;
  std::size_t refused = 0;
  for (;; ++refused) {
    MemoryBlobIo failing;
    failing.SpoilCommit(refused, MemoryBlobIo::Fault::Missing);
    const bool saved = Serializer(&failing, TAL_WIDE("doc")).Serialize(repository.GetStorage());
    ASSERT_EQ(saved, !failing.HasFired());
    if (!failing.HasFired()) break;
    EXPECT_EQ(failing.streams.size(), whole.size() - 1);
    EXPECT_TRUE(
        std::includes(whole.begin(), whole.end(), failing.streams.begin(), failing.streams.end()));
  }
  EXPECT_EQ(refused, whole.size());
}

TEST_F(SerializerTest, DoesNotChangeTheStorage) {
  Draw("A-B", "master=B");
  const long uses = repository.GetHead().use_count();
  ASSERT_TRUE(Save());
  EXPECT_EQ(repository.GetHead().use_count(), uses);
  EXPECT_EQ(repository.GetCommitCount(), 2u);
}

}  // namespace
}  // namespace TalVcs::Testing
