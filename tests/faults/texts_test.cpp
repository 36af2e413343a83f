// Each allocation of a comparison or a merge of contents fails in turn. The call throws, gives back
// all of its memory, and leaves what it was given as it was.

#include <gtest/gtest.h>
#include <kit/diff/blame.h>
#include <kit/diff/tree_changes.h>
#include <kit/diff/unified_diff.h>
#include <kit/diff/word_diff.h>
#include <kit/merge/content_merger.h>
#include <tests/support/failing_allocations.h>
#include <tests/support/new_storage.h>
#include <tests/support/objects.h>

#include <talvcs/repository/repository.h>

namespace TalVcs::Testing {
namespace {

using namespace Kit;

const std::string kRoot = "title\nfirst line\nsecond line\n\nlast line of the text\n";
const std::string kLeft =
    "title\nfirst line, changed\nsecond line\n\nlast line of the text\nmore\n";
const std::string kRight = "new\ntitle\nfirst line, other\nsecond line\n\nlast line of the text\n";

/// Runs `act` while each of its allocations fails. Returns how many there are.
template <class Act>
int FailEach(Act act) {
  act();  // what caches have is there
  return ForEachFailingAllocation(
      [] { return LiveBlocks(); }, [&](std::ptrdiff_t&) { act(); },
      [](std::ptrdiff_t before, bool) { EXPECT_EQ(LiveBlocks(), before); });
}

TEST(FailingAllocationsOfTexts, ComparisonsGiveBackTheirMemory) {
  EXPECT_GT(FailEach([] { EXPECT_FALSE(UnifiedDiff(kLeft, kRight).empty()); }), 20);
  EXPECT_GT(FailEach([] { EXPECT_EQ(MarkChangedWords(DiffLines(kLeft, kRight)).size(), 8U); }), 20);
  EXPECT_GT(FailEach([] { EXPECT_FALSE(DiffLines(kLeft, kRight, {.mostSteps = 0}).empty()); }), 20);
  EXPECT_GT(FailEach([] {
              std::size_t next = 0;
              const Result<Blame> blame = BlameText([&]() -> Result<std::optional<TextVersion>> {
                if (next == 2) return std::optional<TextVersion>();
                return std::optional(TextVersion{"id", next++ == 0 ? kLeft : kRoot});
              });
              EXPECT_EQ(blame.value().lines.size(), 6U);
            }),
            20);
}

TEST(FailingAllocationsOfTexts, MergesGiveBackTheirMemory) {
  EXPECT_GT(FailEach([] {
              EXPECT_FALSE(
                  MergeText(kRoot, kLeft, kRight, {.conflictText = ConflictText::MarkersWithRoot})
                      .value()
                      .IsClean());
            }),
            20);
  EXPECT_GT(FailEach([] {
              const JsonMerge merge =
                  MergeJson(R"({"list":[{"id":1,"x":0}],"name":"a longer name than a short one"})",
                            R"({"list":[{"id":1,"x":1}],"name":"another long name of a thing"})",
                            R"({"list":[{"id":2},{"id":1,"x":2}],"name":"\u00e9\ud83d\ude00"})")
                      .value();
              EXPECT_EQ(merge.conflicts.size(), 2U);
            }),
            50);
  EXPECT_GT(FailEach([] { EXPECT_FALSE(DiffJson("{\"a\":[1,2", "{}").ok()); }), 3);
}

TEST(FailingAllocationsOfTexts, FailedAddLeavesTheMergers) {
  const int failures = ForEachFailingAllocation(
      [] { return ContentMergers(); },
      [](ContentMergers& mergers) {
        mergers.Add("a pattern that is longer than a short string/*", MakeTextMerger());
      },
      [](const ContentMergers& mergers, bool threw) {
        const bool has = mergers.Find("a pattern that is longer than a short string/x") != nullptr;
        EXPECT_EQ(has, !threw);
      });
  EXPECT_GE(failures, 3);
}

TEST(FailingAllocationsOfTexts, ChangesOfTreesGiveBackTheirMemory) {
  Repository repository(NewStorage());
  const cow_ptr<Tree> before =
      Make<Tree>(TreeOf(&repository, {{"a/x", kRoot}, {"b", "1\n2\n3\n"}, {"c", "old"}}));
  const cow_ptr<Tree> after =
      Make<Tree>(TreeOf(&repository, {{"d/x", kRoot}, {"e", "1\n2\n4\n"}, {"c", "new"}}));
  EXPECT_GT(FailEach([&] { EXPECT_EQ(FindTreeChanges(before, after).value().size(), 3U); }), 20);
}

}  // namespace
}  // namespace TalVcs::Testing
