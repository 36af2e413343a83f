// Directories nested deeper than any recursion would stand.

#include <talvcs/merge/three_way_merge.h>
#include <talvcs/persistence/deserializer.h>
#include <talvcs/persistence/serializer.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/memory_blob_io.h>
#include <tests/support/merging.h>
#include <tests/support/scale.h>

#include <string>

namespace TalVcs::Testing {
namespace {

constexpr std::size_t kDepth = 10000;

// "d/d/.../d/": the directories of the deepest level.
std::string DeepPath() {
  std::string path;
  for (std::size_t i = 0; i < kDepth; ++i) path += "d/";
  return path;
}

TEST(DeepTree, CanBeBuiltSavedLoadedAndDestroyed) {
  MemoryBlobIo store;
  std::string head;
  {
    Repository repository = NewRepository();
    Commit commit;
    ASSERT_TRUE(commit.AddBlob(&repository, Wide(DeepPath() + "file"), BlobOf("deep")));
    const auto stored = repository.SyncWithStorage(Make<Commit>(commit));
    repository.MoveBranchTo(TAL_WIDE("master"), stored);
    head = IdOf(stored);
    ASSERT_TRUE(Serializer(&store, TAL_WIDE("doc")).Serialize(repository.GetStorage()));
  }
  Repository loaded = NewRepository();
  EXPECT_TRUE(Deserializer(&store, TAL_WIDE("doc")).Deserialize(&loaded));
  EXPECT_EQ(IdOf(loaded.GetHead()), head);
  EXPECT_EQ(loaded.GetTreeCount(), kDepth + 1);
  EXPECT_EQ(TextOf(loaded.GetHead()->GetBlob(Wide(DeepPath() + "file"))), "deep");
}

TEST(DeepTree, IsPurged) {
  Repository repository = NewRepository();
  {
    Commit commit;
    commit.AddBlob(&repository, Wide(DeepPath() + "file"), BlobOf("deep"));
  }
  ASSERT_EQ(repository.GetTreeCount(), kDepth + 1);
  repository.UpdateStorage();
  EXPECT_EQ(repository.GetTreeCount() + repository.GetBlobCount(), 0u);
}

TEST(DeepTree, IsMerged) {
  Repository repository = NewRepository();
  const std::string path = DeepPath();
  const auto side = [&](const char* file, const char* bytes) {
    return Make<Tree>(TreeOf(&repository, {{path + "common", "0"}, {path + file, bytes}}));
  };
  const MergeTrees trees{side("l", "1"), side("common", "0"), side("r", "2")};
  const auto merged = ThreeWayMerge(&repository, trees, Descending(ConflictChoice::Undecided));
  ASSERT_TRUE(merged);
  EXPECT_EQ(TextOf(merged->GetDeepBlob(Wide(path + "l"))), "1");
  EXPECT_EQ(TextOf(merged->GetDeepBlob(Wide(path + "r"))), "2");
  EXPECT_EQ(merged->GetDeepBlobCount(), 3u);
}

// The resolver looks for a time on every level above a conflict.
TEST(DeepTree, IsMergedByTheTimesAtItsTop) {
  Repository repository = NewRepository();
  const std::string path = DeepPath();
  const auto side = [&](const char* time) {
    return Make<Tree>(TreeOf(&repository, {{"time", time}, {path + "file", time}}));
  };
  Resolvers resolvers = Descending(ConflictChoice::Undecided);
  resolvers.blobResolver =
      ChainResolvers(TimeBasedConflictResolver({TAL_WIDE("time")},
                                               [](const cow_ptr<Blob>& blob) {
                                                 const auto digit = TextOf(blob).front();
                                                 return std::optional(Time::FromTimeT(digit));
                                               }),
                     AlwaysChooseLeft());
  const auto merged = ThreeWayMerge(&repository, {side("1"), side("0"), side("2")}, resolvers);
  ASSERT_TRUE(merged);
  EXPECT_EQ(TextOf(merged->GetDeepBlob(Wide(path + "file"))), "2");
}

}  // namespace
}  // namespace TalVcs::Testing
