#include <talvcs/foundation/helpers.h>
#include <talvcs/merge/resolvers.h>

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/merging.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Components = std::vector<TalStringViewT<WideChar>>;

// Asks about a path of ASCII components.
ConflictChoice Ask(const ConflictResolver& resolver, const std::string& path,
                   const MergeTrees& trees = {}) {
  const TalStringT<WideChar> text = Wide(path);
  return resolver(Components(Helpers::SplitVcsPath(text)), trees);
}

TEST(ConflictChoices, HaveTheValuesThatHostsStore) {
  EXPECT_EQ(static_cast<std::uint32_t>(ConflictChoice::Left), 0u);
  EXPECT_EQ(static_cast<std::uint32_t>(ConflictChoice::Right), 1u);
  EXPECT_EQ(static_cast<std::uint32_t>(ConflictChoice::Root), 2u);
  EXPECT_EQ(static_cast<std::uint32_t>(ConflictChoice::Undecided), 3u);
  EXPECT_EQ(static_cast<std::uint32_t>(TreeConflictChoice::Descend), 0u);
  EXPECT_EQ(static_cast<std::uint32_t>(TreeConflictChoice::Left), 1u);
  EXPECT_EQ(static_cast<std::uint32_t>(TreeConflictChoice::Right), 2u);
  EXPECT_EQ(static_cast<std::uint32_t>(TreeConflictChoice::Root), 3u);
  EXPECT_EQ(static_cast<std::uint32_t>(TreeConflictChoice::Undecided), 4u);
  EXPECT_EQ(sizeof(ConflictChoice), 4u);
  EXPECT_EQ(sizeof(TreeConflictChoice), 4u);
}

TEST(ConstantResolvers, ReturnTheSameChoiceForEveryConflict) {
  EXPECT_EQ(Ask(AlwaysChooseRoot(), "a/b"), ConflictChoice::Root);
  EXPECT_EQ(Ask(AlwaysChooseLeft(), "a/b"), ConflictChoice::Left);
  EXPECT_EQ(Ask(AlwaysChooseRight(), "a/b"), ConflictChoice::Right);
  EXPECT_EQ(Ask(AlwaysChooseRight(), "", {Make<Tree>(), nullptr, Make<Tree>()}),
            ConflictChoice::Right);
}

TEST(EmptyResolvers, ReturnTheValueZero) {
  EXPECT_EQ(Ask(ConflictResolver(), "a"), ConflictChoice::Left);
  EXPECT_EQ(TreeConflictResolver()(Path(), MergeTrees()), TreeConflictChoice::Descend);
  EXPECT_FALSE(BlobTimeGetter()(SharedBlob("1")).has_value());
}

// A resolver that counts its calls and notes what it was given.
struct Counter {
  int calls = 0;
  std::string path;
  MergeTrees trees;

  ConflictResolver Blob(ConflictChoice choice) {
    return [this, choice](Path asked, MergeTrees given) {
      Note(asked, std::move(given));
      return choice;
    };
  }
  TreeConflictResolver Tree(TreeConflictChoice choice) {
    return [this, choice](Path asked, MergeTrees given) {
      Note(asked, std::move(given));
      return choice;
    };
  }
  void Note(Path asked, MergeTrees given) {
    ++calls;
    path = Join(asked);
    trees = std::move(given);
  }
};

TEST(ChainResolvers, DoesNotCallTheSecondIfTheFirstDecides) {
  Counter second;
  for (const auto choice : {ConflictChoice::Left, ConflictChoice::Right, ConflictChoice::Root}) {
    EXPECT_EQ(Ask(ChainResolvers(Always(choice), second.Blob(ConflictChoice::Undecided)), "a"),
              choice);
  }
  EXPECT_EQ(Ask(ChainResolvers(AlwaysChooseRoot(), second.Blob(ConflictChoice::Left)), "a"),
            ConflictChoice::Root);
  EXPECT_EQ(second.calls, 0);
}

TEST(ChainResolvers, CallsTheSecondWithTheSameArgumentsIfTheFirstIsUndecided) {
  Counter second;
  const MergeTrees trees{Make<Tree>(), Make<Tree>(), Make<Tree>()};
  const auto chain =
      ChainResolvers(Always(ConflictChoice::Undecided), second.Blob(ConflictChoice::Root));
  EXPECT_EQ(Ask(chain, "a/b", trees), ConflictChoice::Root);
  EXPECT_EQ(second.calls, 1);
  EXPECT_EQ(second.path, "a/b");
  EXPECT_EQ(second.trees.left, trees.left);
  EXPECT_EQ(second.trees.root, trees.root);
  EXPECT_EQ(second.trees.right, trees.right);
}

TEST(ChainResolvers, BothUndecidedStayUndecided) {
  EXPECT_EQ(
      Ask(ChainResolvers(Always(ConflictChoice::Undecided), Always(ConflictChoice::Undecided)),
          "a"),
      ConflictChoice::Undecided);
}

TEST(ChainResolvers, EmptyFirstReturnsLeftWithoutCallingTheSecond) {
  Counter second;
  EXPECT_EQ(Ask(ChainResolvers(ConflictResolver(), second.Blob(ConflictChoice::Right)), "a"),
            ConflictChoice::Left);
  EXPECT_EQ(second.calls, 0);
}

TEST(ChainResolvers, EmptySecondTurnsUndecidedIntoLeft) {
  EXPECT_EQ(Ask(ChainResolvers(Always(ConflictChoice::Undecided), ConflictResolver()), "a"),
            ConflictChoice::Left);
}

TEST(ChainResolvers, WorksForTreeResolvers) {
  Counter second;
  const auto ask = [](const TreeConflictResolver& resolver) {
    return resolver(Path(), MergeTrees());
  };
  EXPECT_EQ(
      ask(ChainResolvers(Always(TreeConflictChoice::Root), second.Tree(TreeConflictChoice::Left))),
      TreeConflictChoice::Root);
  EXPECT_EQ(ask(ChainResolvers(Always(TreeConflictChoice::Descend),
                               second.Tree(TreeConflictChoice::Left))),
            TreeConflictChoice::Descend);
  EXPECT_EQ(second.calls, 0);
  EXPECT_EQ(ask(ChainResolvers(Always(TreeConflictChoice::Undecided),
                               second.Tree(TreeConflictChoice::Left))),
            TreeConflictChoice::Left);
  EXPECT_EQ(second.calls, 1);
}

TEST(ChainResolvers, TreeResolverThatReturnsTheValueOfAnUndecidedBlobDecides) {
  // 3 is Root for trees, and Undecided for blobs only.
  Counter second;
  const auto chain =
      ChainResolvers(Always(TreeConflictChoice::Root), second.Tree(TreeConflictChoice::Undecided));
  EXPECT_EQ(chain(Path(), MergeTrees()), TreeConflictChoice::Root);
  EXPECT_EQ(second.calls, 0);
}

TEST(ChainResolvers, EmptyTreeResolverInAChainDescends) {
  Counter second;
  const auto emptyFirst =
      ChainResolvers(TreeConflictResolver(), second.Tree(TreeConflictChoice::Right));
  EXPECT_EQ(emptyFirst(Path(), MergeTrees()), TreeConflictChoice::Descend);
  EXPECT_EQ(second.calls, 0);
  const auto emptySecond =
      ChainResolvers(Always(TreeConflictChoice::Undecided), TreeConflictResolver());
  EXPECT_EQ(emptySecond(Path(), MergeTrees()), TreeConflictChoice::Descend);
}

// Reads the ticks from a blob of decimal digits; anything else holds no time.
std::optional<Time> TicksOf(const cow_ptr<Blob>& blob) {
  const std::string text = TextOf(blob);
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return {};
  return Time{std::strtoull(text.c_str(), nullptr, 10)};
}

class TimeBased : public ::testing::Test {
 protected:
  using Files = std::vector<std::pair<std::string, std::string>>;

  MergeTrees Sides(const Files& left, const Files& right) {
    return {Make<Tree>(TreeOf(&repository, left)), nullptr, Make<Tree>(TreeOf(&repository, right))};
  }
  ConflictChoice Decide(const std::string& path, const MergeTrees& trees) const {
    return Ask(TimeBasedConflictResolver({Wide("time")}, TicksOf), path, trees);
  }

  Repository repository = NewRepository();
};

TEST_F(TimeBased, SideWithTheLaterTimeWins) {
  EXPECT_EQ(Decide("d/f", Sides({{"d/time", "5"}}, {{"d/time", "7"}})), ConflictChoice::Right);
  EXPECT_EQ(Decide("d/f", Sides({{"d/time", "7"}}, {{"d/time", "5"}})), ConflictChoice::Left);
}

TEST_F(TimeBased, TimeOnOneSideOnlyWins) {
  EXPECT_EQ(Decide("d/f", Sides({{"d/time", "5"}}, {{"d/x", ""}})), ConflictChoice::Left);
  EXPECT_EQ(Decide("d/f", Sides({{"d/x", ""}}, {{"d/time", "5"}})), ConflictChoice::Right);
}

TEST_F(TimeBased, TimeOnOneSideOnlyWinsOnAHigherLevel) {
  EXPECT_EQ(Decide("a/b/c/f", Sides({{"a/time", "5"}}, {{"x", ""}})), ConflictChoice::Left);
  EXPECT_EQ(Decide("a/b/c/f", Sides({{"x", ""}}, {{"time", "5"}})), ConflictChoice::Right);
}

TEST_F(TimeBased, NearestLevelThatDiffersDecides) {
  EXPECT_EQ(
      Decide("d/f", Sides({{"d/time", "5"}, {"time", "9"}}, {{"d/time", "7"}, {"time", "1"}})),
      ConflictChoice::Right);
}

TEST_F(TimeBased, EqualTimesContinueOneLevelUp) {
  EXPECT_EQ(
      Decide("d/f", Sides({{"d/time", "5"}, {"time", "9"}}, {{"d/time", "5"}, {"time", "1"}})),
      ConflictChoice::Left);
}

TEST_F(TimeBased, NothingFoundOrAllEqualIsUndecided) {
  EXPECT_EQ(Decide("d/f", Sides({{"d/x", ""}}, {{"d/x", ""}})), ConflictChoice::Undecided);
  EXPECT_EQ(
      Decide("d/f", Sides({{"d/time", "5"}, {"time", "5"}}, {{"d/time", "5"}, {"time", "5"}})),
      ConflictChoice::Undecided);
}

TEST_F(TimeBased, PathOfOneComponentReadsThatDirectoryAndThenTheTop) {
  EXPECT_EQ(Decide("f", Sides({{"f/time", "1"}, {"time", "9"}}, {{"f/time", "2"}, {"time", "5"}})),
            ConflictChoice::Right);
  EXPECT_EQ(Decide("f", Sides({{"time", "9"}}, {{"time", "5"}})), ConflictChoice::Left);
}

TEST_F(TimeBased, EmptyPathReadsOnlyTheTop) {
  EXPECT_EQ(Decide("", Sides({{"time", "1"}}, {{"time", "2"}})), ConflictChoice::Right);
  EXPECT_EQ(Decide("", Sides({{"d/time", "1"}}, {{"d/time", "2"}})), ConflictChoice::Undecided);
}

TEST_F(TimeBased, TimesAreComparedAsUnsigned) {
  EXPECT_EQ(Decide("f", Sides({{"time", "18446744073709551615"}}, {{"time", "1"}})),
            ConflictChoice::Left);
}

// The two reads were arguments of one call once, and some compilers began with the right side.
TEST_F(TimeBased, ReadsTheLeftTimeBeforeTheRightOneAtEachLevel) {
  std::vector<std::string> read;
  const auto getter = [&read](const cow_ptr<Blob>& blob) {
    read.push_back(TextOf(blob));
    return TicksOf(blob);
  };
  const MergeTrees trees =
      Sides({{"d/time", "left"}, {"time", "5"}}, {{"d/time", "right"}, {"time", "7"}});
  EXPECT_EQ(Ask(TimeBasedConflictResolver({Wide("time")}, getter), "d/f", trees),
            ConflictChoice::Right);
  EXPECT_EQ(read, (std::vector<std::string>{"left", "right", "5", "7"}));
}

TEST_F(TimeBased, NullTreeHasNoTime) {
  MergeTrees trees = Sides({{"time", "5"}}, {});
  trees.right = nullptr;
  EXPECT_EQ(Decide("d/f", trees), ConflictChoice::Left);
  EXPECT_EQ(Decide("d/f", MergeTrees()), ConflictChoice::Undecided);
}

TEST_F(TimeBased, DoesNotReadTheRoot) {
  MergeTrees trees = Sides({{"x", ""}}, {{"x", ""}});
  trees.root = Make<Tree>(TreeOf(&repository, {{"time", "5"}}));
  EXPECT_EQ(Decide("f", trees), ConflictChoice::Undecided);
}

TEST_F(TimeBased, NoPathsOrNoGetterIsAlwaysUndecided) {
  const MergeTrees trees = Sides({{"time", "5"}}, {{"time", "7"}});
  EXPECT_EQ(Ask(TimeBasedConflictResolver({}, TicksOf), "f", trees), ConflictChoice::Undecided);
  EXPECT_EQ(Ask(TimeBasedConflictResolver({Wide("time")}, BlobTimeGetter()), "f", trees),
            ConflictChoice::Undecided);
}

TEST_F(TimeBased, FirstPathWithATimeDecides) {
  const auto resolver = TimeBasedConflictResolver(
      {Wide("missing"), Wide("broken"), Wide("/meta//time"), Wide("late")}, TicksOf);
  EXPECT_EQ(Ask(resolver, "f",
                Sides({{"broken", "?"}, {"meta/time", "7"}, {"late", "1"}},
                      {{"meta/time", "5"}, {"late", "9"}})),
            ConflictChoice::Left);
}

TEST_F(TimeBased, SidesMayHaveTheirTimesUnderDifferentPaths) {
  const auto resolver = TimeBasedConflictResolver({Wide("one"), Wide("two")}, TicksOf);
  EXPECT_EQ(Ask(resolver, "f", Sides({{"two", "5"}}, {{"one", "7"}})), ConflictChoice::Right);
}

TEST_F(TimeBased, DirectoryAtATimePathHasNoTime) {
  EXPECT_EQ(Decide("f", Sides({{"time/x", "9"}}, {{"time", "5"}})), ConflictChoice::Right);
}

TEST_F(TimeBased, EmptyTimePathFindsNothing) {
  const auto resolver = TimeBasedConflictResolver({Wide("/")}, TicksOf);
  EXPECT_EQ(Ask(resolver, "f", Sides({{"f/x", "1"}}, {{"f/x", "2"}})), ConflictChoice::Undecided);
}

TEST_F(TimeBased, ResolverKeepsItsOwnCopies) {
  ConflictResolver resolver;
  {
    std::vector<TalStringT<WideChar>> paths{Wide("time")};
    resolver = TimeBasedConflictResolver(paths, TicksOf);
    paths[0] = Wide("other");
  }
  const ConflictResolver copy = resolver;
  EXPECT_EQ(Ask(copy, "f", Sides({{"time", "1"}}, {{"time", "2"}})), ConflictChoice::Right);
}

TEST_F(TimeBased, NextResolverInAChainDecidesIfNoTimeDoes) {
  const auto chain =
      ChainResolvers(TimeBasedConflictResolver({Wide("time")}, TicksOf), AlwaysChooseRight());
  EXPECT_EQ(Ask(chain, "d/f", Sides({{"d/x", "1"}}, {{"d/x", "2"}})), ConflictChoice::Right);
  EXPECT_EQ(Ask(chain, "d/f", Sides({{"time", "2"}}, {{"time", "1"}})), ConflictChoice::Left);
}

}  // namespace
}  // namespace TalVcs::Testing
