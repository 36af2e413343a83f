#include <talvcs/objects/commit.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>

#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

constexpr int kCommits = 1'000'000;

/// A history of default-made commits, linked by `SetParent` alone.
cow_ptr<Commit> LongChain(int commits = kCommits) {
  cow_ptr<Commit> tip = Make<Commit>();
  for (int made = 1; made < commits; ++made) {
    cow_ptr<Commit> next = Make<Commit>();
    next.write()->SetParent(std::move(tip));
    tip = std::move(next);
  }
  return tip;
}

TEST(CommitDepth, LongHistoryIsHashedFromItsTipAndDestroyed) {
  const cow_ptr<Commit> tip = LongChain();
  EXPECT_EQ(IdOf(*tip), "49f87faf53c2aad65a93b1dbef5f67897af3dec312366bb5cfcbb834195ec3bb");
}

TEST(CommitDepth, EachFunctionThatNeedsParentIdsIsIterative) {
  constexpr int kFew = 200'000;
  const std::string parent_line =
      "parent 2a73b978994c9300f790aac9999f648b33b2f6d25fd9c9809ed362c1564f7d15\n";
  EXPECT_EQ(Bytes(LongChain(kFew)->GetData()).substr(6, 72), parent_line);
  EXPECT_EQ(Bytes(LongChain(kFew)->GetPackedData()).substr(17, 72), parent_line);
  EXPECT_EQ(Bytes(LongChain(kFew)->BuildPackedData()).substr(17, 72), parent_line);
  EXPECT_TRUE(*LongChain(kFew) == *LongChain(kFew));
}

TEST(CommitDepth, LongHistoryThatWasNeverHashedIsDestroyed) {
  cow_ptr<Commit> tip = LongChain();
  const cow_ptr<Commit> parent = tip->GetParent();
  tip = nullptr;
  EXPECT_EQ(parent.use_count(), 1);
}

TEST(CommitDepth, SetterReleasesALongHistory) {
  cow_ptr<Commit> tip = LongChain();
  tip.write()->SetParent(nullptr);
  EXPECT_EQ(IdOf(*tip), "4c1ce23ea960edb77a50757723d57aab990fa80e70debadf7667a4f4452e9a85");
}

TEST(CommitDepth, AssignmentReleasesALongHistory) {
  Commit commit(*LongChain());
  commit = Commit();
  EXPECT_TRUE(commit.GetParent() == nullptr);
}

TEST(CommitDepth, PartOfAHistoryThatAHandleHoldsSurvives) {
  cow_ptr<Commit> tip = LongChain();
  cow_ptr<Commit> middle = tip;
  for (int step = 0; step < kCommits / 2; ++step) middle = middle->GetParent();
  tip = nullptr;
  EXPECT_EQ(middle.use_count(), 1);
  int left = 0;
  for (cow_ptr<Commit> at = middle; at; at = at->GetParent()) ++left;
  EXPECT_EQ(left, kCommits / 2);
}

}  // namespace
}  // namespace TalVcs::Testing
