#include <gtest/gtest.h>
#include <kit/batch_edit.h>
#include <tests/kit/saved_states.h>
#include <tests/support/contents.h>

#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

struct Outcome {
  std::size_t done;
  Id root;
};

// Blobs of 1 byte to 64 KiB, some of which share their bytes, beside edits without a blob.
Kit::BatchEdit ManyEdits(Repository& repository, std::size_t blobs) {
  const Blob shared = BlobOf(std::string(40000, 's'));
  Kit::BatchEdit edits;
  for (std::size_t number = 0; number < blobs; ++number) {
    const std::string path = std::to_string(number % 7) + "/" + std::to_string(number);
    const std::size_t size = std::size_t{1} << (number % 17);
    edits.AddBlob(Wide(path), number % 5 == 0
                                  ? shared
                                  : BlobOf(std::to_string(number) + std::string(size, 'x')));
    if (number % 11 == 0) edits.RemoveObject(Wide(path));
    if (number % 13 == 0) edits.AddTree(Wide(path + "t"), TreeOf(&repository, {{"in", path}}));
  }
  return edits;
}

Outcome Apply(std::size_t blobs, unsigned threads) {
  Repository repository = NewRepository();
  Kit::BatchEdit edits = ManyEdits(repository, blobs);
  edits.SetThreadCount(threads);
  Tree tree;
  const std::size_t done = edits.ApplyTo(&repository, tree);
  return {done, tree.GetId()};
}

TEST(ThreadsOfBatchEdit, AnyNumberHasTheSameResult) {
  for (const std::size_t blobs : {0, 1, 2, 40, 700}) {
    const Outcome alone = Apply(blobs, 1);
    for (const unsigned threads : {0u, 2u, 3u, 8u, 1000u}) {
      const Outcome together = Apply(blobs, threads);
      EXPECT_EQ(together.done, alone.done) << blobs << " blobs, " << threads << " threads";
      EXPECT_EQ(together.root, alone.root) << blobs << " blobs, " << threads << " threads";
    }
  }
}

TEST(ThreadsOfBatchEdit, ListIsAppliedAgain) {
  Repository repository = NewRepository();
  Kit::BatchEdit edits = ManyEdits(repository, 300);
  edits.SetThreadCount(4);
  Tree first;
  Tree second;
  EXPECT_EQ(edits.ApplyTo(&repository, first), edits.ApplyTo(&repository, second));
  EXPECT_EQ(first.GetId(), second.GetId());
}

}  // namespace
}  // namespace TalVcs::Testing
