#include <talvcs/foundation/internal/ref_count.h>

#include <gtest/gtest.h>

#include <thread>

namespace TalVcs::Testing {
namespace {

using TalUtils::RefCount;

TEST(RefCount, StartsWithOneHolder) {
  RefCount count;
  EXPECT_TRUE(count.IsSole());
  EXPECT_TRUE(count.Release());
}

TEST(RefCount, OnlyTheLastReleaseReturnsTrue) {
  RefCount count;
  count.Acquire();
  count.Acquire();
  EXPECT_FALSE(count.IsSole());
  EXPECT_FALSE(count.Release());
  EXPECT_FALSE(count.Release());
  EXPECT_TRUE(count.IsSole());
  EXPECT_TRUE(count.Release());
}

TEST(RefCount, HoldersOnTwoThreadsAreCounted) {
  RefCount count;
  const auto come_and_go = [&count] {
    for (int turn = 0; turn < 50'000; ++turn) {
      count.Acquire();
      EXPECT_FALSE(count.Release());
    }
  };
  std::thread other(come_and_go);
  come_and_go();
  other.join();
  EXPECT_TRUE(count.IsSole());
}

}  // namespace
}  // namespace TalVcs::Testing
