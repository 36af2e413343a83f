#include <talvcs/merge/three_way_merge.h>

#include <gmock/gmock.h>
#include <tests/support/contents.h>
#include <tests/support/merging.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Files = std::vector<std::pair<std::string, std::string>>;

class ThreeWayMergeTest : public ::testing::Test {
 protected:
  cow_ptr<Tree> Of(const Files& files) { return Make<Tree>(TreeOf(&repository, files)); }

  cow_ptr<Tree> Merge(const MergeTrees& trees, ConflictChoice choice) {
    return ThreeWayMerge(&repository, trees, questions.Noting(choice));
  }

  Repository repository = NewRepository();
  Questions questions;
};

TEST_F(ThreeWayMergeTest, ReturnsNullAndCallsNoResolverForNullRepository) {
  const MergeTrees trees{Of({{"a", "1"}}), nullptr, Of({{"a", "2"}})};
  EXPECT_FALSE(ThreeWayMerge(nullptr, trees, questions.Noting(ConflictChoice::Left)));
  EXPECT_THAT(questions.asked, IsEmpty());
}

TEST_F(ThreeWayMergeTest, ReturnsNullAndCallsNoResolverIfBothSidesAreNull) {
  EXPECT_FALSE(Merge({nullptr, Of({{"a", "1"}}), nullptr}, ConflictChoice::Left));
  EXPECT_FALSE(Merge({nullptr, nullptr, nullptr}, ConflictChoice::Left));
  EXPECT_THAT(questions.asked, IsEmpty());
}

TEST_F(ThreeWayMergeTest, ReturnsTheLeftTreeIfTheSidesAreEqual) {
  const MergeTrees trees{Of({{"a", "1"}}), Of({{"a", "0"}}), Of({{"a", "1"}})};
  EXPECT_EQ(ThreeWayMerge(&repository, trees, Resolvers()), trees.left);
}

TEST_F(ThreeWayMergeTest, FailsWithEmptyResolversEvenIfOnlyOneSideChanged) {
  const auto root = Of({{"a", "1"}});
  EXPECT_FALSE(ThreeWayMerge(&repository, {Of({{"a", "2"}}), root, root}, Resolvers()));
  EXPECT_FALSE(ThreeWayMerge(&repository, {root, root, Of({{"a", "2"}})}, Resolvers()));
}

TEST_F(ThreeWayMergeTest, BlobResolverAloneFails) {
  const MergeTrees trees{Of({{"a", "2"}}), Of({{"a", "1"}}), Of({{"a", "3"}})};
  EXPECT_FALSE(ThreeWayMerge(&repository, trees, {AlwaysChooseLeft(), {}}));
}

TEST_F(ThreeWayMergeTest, TreeResolverAloneSufficesWithoutBlobConflicts) {
  const MergeTrees trees{Of({{"a", "2"}, {"b", "1"}, {"d/l", "1"}}), Of({{"a", "1"}, {"b", "1"}}),
                         Of({{"a", "1"}, {"b", "3"}, {"d/r", "1"}})};
  const auto merged = ThreeWayMerge(&repository, trees, {{}, Always(TreeConflictChoice::Descend)});
  EXPECT_EQ(ListingOf(merged), "a=2 b=3 d/l=1 d/r=1");
}

TEST_F(ThreeWayMergeTest, TreeResolverAloneFailsAtABlobConflict) {
  const MergeTrees trees{Of({{"a", "2"}}), Of({{"a", "1"}}), Of({{"a", "3"}})};
  EXPECT_FALSE(ThreeWayMerge(&repository, trees, {{}, Always(TreeConflictChoice::Descend)}));
}

TEST_F(ThreeWayMergeTest, NullRootCountsAsAnEmptyTree) {
  const auto merged = Merge({Of({{"a", "1"}, {"c", "l"}}), nullptr, Of({{"b", "2"}, {"c", "r"}})},
                            ConflictChoice::Right);
  EXPECT_EQ(ListingOf(merged), "a=1 b=2 c=r");
}

TEST_F(ThreeWayMergeTest, ReturnsANewEmptyTreeIfNothingIsKeptAndTheRootIsNull) {
  const auto merged = Merge({Of({{"a", "1"}}), nullptr, Of({{"a", "2"}})}, ConflictChoice::Root);
  ASSERT_TRUE(merged);
  EXPECT_TRUE(merged->IsEmpty());
}

TEST_F(ThreeWayMergeTest, NullSideCountsAsAnEmptyTree) {
  const auto root = Of({{"a", "1"}, {"b", "1"}});
  const auto merged =
      Merge({Of({{"a", "1"}, {"b", "2"}, {"c", "1"}}), root, nullptr}, ConflictChoice::Left);
  EXPECT_EQ(ListingOf(merged), "b=2 c=1");
}

TEST_F(ThreeWayMergeTest, CallsTheTreeResolverEvenIfOneSideIsUnchanged) {
  const auto root = Of({{"a", "1"}});
  const auto changed = Of({{"a", "2"}});
  EXPECT_EQ(ListingOf(Merge({root, root, changed}, ConflictChoice::Left)), "a=2");
  EXPECT_EQ(ListingOf(Merge({changed, root, root}, ConflictChoice::Left)), "a=2");
  EXPECT_THAT(questions.asked, ElementsAre("/", "/"));
}

TEST_F(ThreeWayMergeTest, TreeResolverChoosesAWholeTree) {
  const MergeTrees trees{Of({{"a", "1"}}), Of({{"a", "0"}}), Of({{"a", "2"}})};
  const auto mergeBy = [&](TreeConflictChoice choice) {
    return ThreeWayMerge(&repository, trees, {{}, Always(choice)});
  };
  EXPECT_EQ(mergeBy(TreeConflictChoice::Left), trees.left);
  EXPECT_EQ(mergeBy(TreeConflictChoice::Right), trees.right);
  EXPECT_EQ(mergeBy(TreeConflictChoice::Root), trees.root);
  EXPECT_FALSE(mergeBy(TreeConflictChoice::Undecided));
}

TEST_F(ThreeWayMergeTest, ChoosingANullSideReturnsNull) {
  const auto left = Of({{"a", "1"}});
  EXPECT_FALSE(ThreeWayMerge(&repository, {left, nullptr, nullptr},
                             {{}, Always(TreeConflictChoice::Right)}));
  EXPECT_FALSE(
      ThreeWayMerge(&repository, {left, nullptr, nullptr}, {{}, Always(TreeConflictChoice::Root)}));
}

TEST_F(ThreeWayMergeTest, UnknownTreeChoiceDescends) {
  const MergeTrees trees{Of({{"a", "1"}}), nullptr, Of({{"b", "2"}})};
  const auto merged =
      ThreeWayMerge(&repository, trees, {{}, Always(static_cast<TreeConflictChoice>(77))});
  EXPECT_EQ(ListingOf(merged), "a=1 b=2");
}

TEST_F(ThreeWayMergeTest, UnknownBlobChoiceKeepsTheEntryOfTheRoot) {
  const MergeTrees trees{Of({{"a", "1"}}), Of({{"a", "0"}}), Of({{"a", "2"}})};
  EXPECT_EQ(ListingOf(Merge(trees, static_cast<ConflictChoice>(77))), "a=0");
}

TEST_F(ThreeWayMergeTest, TreeResolverChoosesAWholeSubdirectory) {
  const MergeTrees trees{Of({{"d/a", "l"}, {"d/l", "1"}, {"f", "l"}}),
                         Of({{"d/a", "0"}, {"f", "0"}}),
                         Of({{"d/a", "r"}, {"d/r", "1"}, {"f", "0"}})};
  const auto mergeBy = [&](TreeConflictChoice choice) {
    const TreeConflictResolver below = [choice](Path path, MergeTrees) {
      return path.empty() ? TreeConflictChoice::Descend : choice;
    };
    return ListingOf(ThreeWayMerge(&repository, trees, {{}, below}));
  };
  EXPECT_EQ(mergeBy(TreeConflictChoice::Left), "d/a=l d/l=1 f=l");
  EXPECT_EQ(mergeBy(TreeConflictChoice::Right), "d/a=r d/r=1 f=l");
  EXPECT_EQ(mergeBy(TreeConflictChoice::Root), "d/a=0 f=l");
  EXPECT_EQ(mergeBy(TreeConflictChoice::Undecided), "(none)");
}

TEST_F(ThreeWayMergeTest, ChoosingANullTreeRemovesASubdirectory) {
  const MergeTrees trees{Of({{"d/a", "1"}, {"k", "1"}}), Of({{"k", "1"}}),
                         Of({{"d/a", "2"}, {"k", "1"}})};
  const TreeConflictResolver rootBelow = [](Path path, MergeTrees) {
    return path.empty() ? TreeConflictChoice::Descend : TreeConflictChoice::Root;
  };
  const auto merged = ThreeWayMerge(&repository, trees, {{}, rootBelow});
  EXPECT_EQ(ListingOf(merged), "k=1");
  EXPECT_FALSE(merged->GetLocalTree(TAL_WIDE("d")));
}

TEST_F(ThreeWayMergeTest, SubdirectoryWithoutEntriesLeftStaysAsAnEmptyTree) {
  const MergeTrees trees{Of({{"d/a", "1"}, {"d/x", "1"}, {"k", "1"}}),
                         Of({{"d/a", "1"}, {"d/b", "1"}, {"d/x", "1"}, {"k", "1"}}),
                         Of({{"d/b", "1"}, {"k", "1"}})};
  const auto merged = Merge(trees, ConflictChoice::Left);
  ASSERT_TRUE(merged->GetLocalTree(TAL_WIDE("d")));
  EXPECT_TRUE(merged->GetLocalTree(TAL_WIDE("d"))->IsEmpty());
  EXPECT_EQ(ListingOf(merged), "k=1");
}

TEST_F(ThreeWayMergeTest, RemovesASubtreeThatBecameTwoBlobs) {
  const MergeTrees trees{Of({{"n", "l"}, {"k", "1"}}), Of({{"n/in", "0"}, {"k", "1"}}),
                         Of({{"n", "r"}, {"k", "1"}})};
  for (const auto choice : {ConflictChoice::Left, ConflictChoice::Right, ConflictChoice::Root}) {
    const auto merged = Merge(trees, choice);
    EXPECT_EQ(ListingOf(merged), "k=1");
    EXPECT_FALSE(merged->GetLocalObject(TAL_WIDE("n")));
  }
  EXPECT_THAT(questions.asked, ElementsAre("/", "n", "/", "n", "/", "n"));
}

TEST_F(ThreeWayMergeTest, BlobHidesTheSubtreeOfTheOtherSide) {
  const MergeTrees trees{Of({{"n/in", "l"}}), Of({{"n/in", "0"}}), Of({{"n", "r"}})};
  const auto merged = Merge(trees, ConflictChoice::Left);
  EXPECT_EQ(TextOf(merged->GetLocalBlob(TAL_WIDE("n"))), "r");
  ASSERT_TRUE(merged->GetLocalTree(TAL_WIDE("n")));
  EXPECT_EQ(ListingOf(merged->GetLocalTree(TAL_WIDE("n"))), "in=l");
  EXPECT_EQ(IdOf(merged), IdOf(Of({{"n", "r"}})));
  EXPECT_THAT(questions.asked, ElementsAre("/", "n/", "n/in"));
}

TEST_F(ThreeWayMergeTest, PassesTheWholeTreesToTheResolversAtAnyDepth) {
  const MergeTrees trees{Of({{"x/y/f", "l"}}), Of({{"x/y/f", "0"}}), Of({{"x/y/f", "r"}})};
  int calls = 0;
  const auto check = [&](const MergeTrees& given) {
    ++calls;
    EXPECT_EQ(given.left, trees.left);
    EXPECT_EQ(given.root, trees.root);
    EXPECT_EQ(given.right, trees.right);
  };
  const Resolvers resolvers{[&](Path, MergeTrees given) {
                              check(given);
                              return ConflictChoice::Right;
                            },
                            [&](Path, MergeTrees given) {
                              check(given);
                              return TreeConflictChoice::Descend;
                            }};
  EXPECT_EQ(ListingOf(ThreeWayMerge(&repository, trees, resolvers)), "x/y/f=r");
  EXPECT_EQ(calls, 4);
}

TEST_F(ThreeWayMergeTest, PassesANullRootToTheResolvers) {
  const MergeTrees trees{Of({{"a", "1"}}), nullptr, Of({{"a", "2"}})};
  bool sawNull = false;
  const ConflictResolver resolver = [&](Path, MergeTrees given) {
    sawNull = !given.root;
    return ConflictChoice::Left;
  };
  ThreeWayMerge(&repository, trees, {resolver, Always(TreeConflictChoice::Descend)});
  EXPECT_TRUE(sawNull);
}

TEST_F(ThreeWayMergeTest, CallsResolversForBlobsBeforeSubdirectories) {
  const auto side = [&](const char* bytes) {
    return Of({{"b/x", bytes},
               {"b/w", bytes},
               {"z", bytes},
               {"a", bytes},
               {"c/m/n", bytes},
               {"B", bytes},
               {"same", "1"}});
  };
  Merge({side("l"), side("0"), side("r")}, ConflictChoice::Left);
  EXPECT_THAT(questions.asked,
              ElementsAre("/", "B", "a", "z", "b/", "b/w", "b/x", "c/", "c/m/", "c/m/n"));
}

TEST_F(ThreeWayMergeTest, CallsNoResolverForDirectoriesOfOneSide) {
  const MergeTrees trees{Of({{"l/a", "1"}, {"k/a", "1"}}), Of({{"k/a", "1"}}),
                         Of({{"r/a", "1"}, {"k/a", "1"}})};
  EXPECT_EQ(ListingOf(Merge(trees, ConflictChoice::Undecided)), "k/a=1 l/a=1 r/a=1");
  EXPECT_THAT(questions.asked, ElementsAre("/"));
}

TEST_F(ThreeWayMergeTest, UndecidedEndsTheMergeAtOnce) {
  const auto side = [&](const char* bytes) {
    return Of({{"a", bytes}, {"b", bytes}, {"d/c", bytes}});
  };
  EXPECT_FALSE(Merge({side("l"), side("0"), side("r")}, ConflictChoice::Undecided));
  EXPECT_THAT(questions.asked, ElementsAre("/", "a"));
}

TEST_F(ThreeWayMergeTest, UndecidedDeepDownEndsTheWholeMerge) {
  const MergeTrees trees{Of({{"x/y/f", "l"}, {"z", "l"}}), Of({{"x/y/f", "0"}, {"z", "0"}}),
                         Of({{"x/y/f", "r"}, {"z", "0"}})};
  EXPECT_FALSE(Merge(trees, ConflictChoice::Undecided));
}

TEST_F(ThreeWayMergeTest, DoesNotChangeItsArguments) {
  const MergeTrees trees{Of({{"a", "l"}, {"d/b", "l"}}), Of({{"a", "0"}, {"d/b", "0"}}),
                         Of({{"a", "r"}, {"d/b", "r"}})};
  Merge(trees, ConflictChoice::Right);
  EXPECT_EQ(ListingOf(trees.left), "a=l d/b=l");
  EXPECT_EQ(ListingOf(trees.root), "a=0 d/b=0");
  EXPECT_EQ(ListingOf(trees.right), "a=r d/b=r");
}

TEST_F(ThreeWayMergeTest, ReturnsTheRootItselfIfNothingChanged) {
  const auto root = Of({{"a", "0"}});
  const auto merged = Merge({Of({{"a", "1"}}), root, Of({{"a", "2"}})}, ConflictChoice::Root);
  EXPECT_EQ(merged, root);
}

TEST_F(ThreeWayMergeTest, EntriesOfTheResultAreCanonicalInstances) {
  const MergeTrees trees{Of({{"d/a", "l"}}), Of({{"d/a", "0"}, {"d/b", "0"}}),
                         Of({{"d/a", "0"}, {"d/b", "r"}})};
  const auto merged = Merge(trees, ConflictChoice::Left);
  const cow_ptr<Tree> subtree = merged->GetLocalTree(TAL_WIDE("d"));
  EXPECT_EQ(repository.GetTreeFromStorage(subtree->GetId()), subtree);
  const cow_ptr<Blob> blob = merged->GetDeepBlob(TAL_WIDE("d/a"));
  EXPECT_EQ(repository.GetBlobFromStorage(blob->GetId()), blob);
}

TEST_F(ThreeWayMergeTest, ResultItselfIsNotStored) {
  const MergeTrees trees{Of({{"a", "1"}}), nullptr, Of({{"b", "1"}})};
  const auto merged = Merge(trees, ConflictChoice::Left);
  EXPECT_FALSE(repository.GetTreeFromStorage(merged->GetId()));
}

TEST_F(ThreeWayMergeTest, ExceptionOfAResolverPassesThrough) {
  const MergeTrees trees{Of({{"a", "1"}}), nullptr, Of({{"a", "2"}})};
  const ConflictResolver throwing = [](Path, MergeTrees) -> ConflictChoice {
    throw std::runtime_error("asked");
  };
  EXPECT_THROW(ThreeWayMerge(&repository, trees, {throwing, Always(TreeConflictChoice::Descend)}),
               std::runtime_error);
  EXPECT_EQ(ListingOf(trees.left), "a=1");
}

TEST_F(ThreeWayMergeTest, TreeMergedIntoItselfChangesNothing) {
  const auto tree = Of({{"a", "1"}, {"d/b", "2"}});
  EXPECT_EQ(Merge({tree, nullptr, tree}, ConflictChoice::Undecided), tree);
  EXPECT_EQ(Merge({tree, tree, tree}, ConflictChoice::Undecided), tree);
  EXPECT_THAT(questions.asked, IsEmpty());
}

TEST_F(ThreeWayMergeTest, DeepDirectoriesAreMergedWithoutALimit) {
  std::string path;
  for (int i = 0; i < 2000; ++i) path += "d/";
  const MergeTrees trees{Of({{path + "f", "l"}, {path + "l", "1"}}), Of({{path + "f", "0"}}),
                         Of({{path + "f", "r"}, {path + "r", "1"}})};
  const auto merged = Merge(trees, ConflictChoice::Left);
  EXPECT_EQ(TextOf(merged->GetDeepBlob(Wide(path + "f"))), "l");
  EXPECT_EQ(TextOf(merged->GetDeepBlob(Wide(path + "r"))), "1");
  EXPECT_EQ(questions.asked.size(), 2002u);
}

}  // namespace
}  // namespace TalVcs::Testing
