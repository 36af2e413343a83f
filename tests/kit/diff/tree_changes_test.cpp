#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/diff/tree_changes.h>
#include <tests/support/new_storage.h>
#include <tests/support/objects.h>
#include <tests/support/on_demand_store.h>
#include <tests/support/text.h>

#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Files = std::vector<std::pair<std::string, std::string>>;

/// Shows changes as "+a", "-a", "~a", "a -> b", "a -> b 80%".
std::vector<std::string> Show(const std::vector<TreeChange>& changes) {
  std::vector<std::string> shown;
  for (const TreeChange& change : changes) {
    switch (change.kind) {
      case TreeChangeKind::Added:
        shown.push_back("+" + change.path);
        break;
      case TreeChangeKind::Removed:
        shown.push_back("-" + change.path);
        break;
      case TreeChangeKind::Changed:
        shown.push_back("~" + change.path);
        break;
      case TreeChangeKind::Moved:
        shown.push_back(change.oldPath + " -> " + change.path);
        break;
      case TreeChangeKind::MovedAndChanged:
        shown.push_back(change.oldPath + " -> " + change.path + " " +
                        std::to_string(change.likeness) + "%");
        break;
    }
  }
  return shown;
}

class FindTreeChangesTest : public ::testing::Test {
 protected:
  cow_ptr<Tree> NewTree(const Files& files) { return Make<Tree>(TreeOf(&m_repository, files)); }

  std::vector<std::string> Changes(const Files& before, const Files& after,
                                   const TreeChangesOptions& options = {}) {
    return Show(FindTreeChanges(NewTree(before), NewTree(after), options).value());
  }

 private:
  Repository m_repository = Repository(NewStorage());
};

TEST_F(FindTreeChangesTest, ListsAddedRemovedAndChangedFilesByPath) {
  EXPECT_THAT(Changes({{"a", "1"}, {"b/c", "2"}, {"b/d", "3"}, {"same/x", "4"}},
                      {{"a", "5"}, {"b/c", "2"}, {"b/e", "6"}, {"same/x", "4"}}),
              ElementsAre("~a", "-b/d", "+b/e"));
}

TEST_F(FindTreeChangesTest, HasTheIdsOfBothVersions) {
  const auto changes =
      FindTreeChanges(NewTree({{"a", "1"}, {"b", "2"}}), NewTree({{"a", "3"}, {"c", "4"}})).value();
  ASSERT_THAT(Show(changes), ElementsAre("~a", "-b", "+c"));
  EXPECT_EQ(changes[0].before, BlobOf("1").GetId());
  EXPECT_EQ(changes[0].after, BlobOf("3").GetId());
  EXPECT_EQ(changes[1].before, BlobOf("2").GetId());
  EXPECT_EQ(changes[1].after, Id());
  EXPECT_EQ(changes[2].before, Id());
  EXPECT_EQ(changes[2].after, BlobOf("4").GetId());
}

TEST_F(FindTreeChangesTest, NullTreeHasNoFiles) {
  EXPECT_THAT(Show(FindTreeChanges(nullptr, NewTree({{"a/b", "1"}})).value()), ElementsAre("+a/b"));
  EXPECT_THAT(Show(FindTreeChanges(NewTree({{"a/b", "1"}}), nullptr).value()), ElementsAre("-a/b"));
  EXPECT_THAT(FindTreeChanges(nullptr, nullptr).value(), IsEmpty());
}

TEST_F(FindTreeChangesTest, FileThatBecameAFolderIsRemoved) {
  EXPECT_THAT(Changes({{"x", "1"}}, {{"x/in", "2"}}), ElementsAre("-x", "+x/in"));
  EXPECT_THAT(Changes({{"x/in", "2"}}, {{"x", "1"}}), ElementsAre("+x", "-x/in"));
}

TEST_F(FindTreeChangesTest, EqualContentAtAnotherPathIsAMove) {
  const auto changes = FindTreeChanges(NewTree({{"old/name", "content"}, {"k", "1"}}),
                                       NewTree({{"new/name", "content"}, {"k", "1"}}))
                           .value();
  ASSERT_THAT(Show(changes), ElementsAre("old/name -> new/name"));
  EXPECT_EQ(changes[0].likeness, 100U);
  EXPECT_EQ(changes[0].before, BlobOf("content").GetId());
  EXPECT_EQ(changes[0].after, changes[0].before);
}

TEST_F(FindTreeChangesTest, PrefersTheSameNameAndThenTheOrderOfPaths) {
  EXPECT_THAT(Changes({{"a/x", "c"}, {"a/y", "c"}, {"a/z", "c"}},
                      {{"b/w", "c"}, {"b/z", "c"}, {"b/v", "c"}, {"b/u", "c"}}),
              ElementsAre("a/x -> b/u", "a/y -> b/v", "+b/w", "a/z -> b/z"));
}

TEST_F(FindTreeChangesTest, FileThatStaysIsNoSourceOfAMove) {
  EXPECT_THAT(Changes({{"a", "c"}}, {{"a", "c"}, {"b", "c"}}), ElementsAre("+b"));
  EXPECT_THAT(Changes({{"a", "c"}}, {{"a", "d"}, {"b", "c"}}), ElementsAre("~a", "+b"));
}

TEST_F(FindTreeChangesTest, EmptyFilesAreNeverPaired) {
  EXPECT_THAT(Changes({{"a", ""}}, {{"b", ""}}), ElementsAre("-a", "+b"));
}

TEST_F(FindTreeChangesTest, LikeContentAtAnotherPathIsAMoveWithAChange) {
  // Four lines of two bytes each; three of them stay, in another order.
  EXPECT_THAT(Changes({{"a", "1\n2\n3\n4\n"}}, {{"b", "3\n1\n2\n5\n"}}), ElementsAre("a -> b 75%"));
  // Of the larger content.
  EXPECT_THAT(Changes({{"a", "1\n2\n"}}, {{"b", "1\n2\n3\n4\n"}}), ElementsAre("a -> b 50%"));
  EXPECT_THAT(Changes({{"a", "1\n2\n3\n4\n"}}, {{"b", "1\n2\n"}}, {.leastLikeness = 51}),
              ElementsAre("-a", "+b"));
  // A line counts as often as both have it.
  EXPECT_THAT(Changes({{"a", "1\n1\n1\n2\n"}}, {{"b", "1\n1\n3\n4\n"}}), ElementsAre("a -> b 50%"));
}

TEST_F(FindTreeChangesTest, ContentWithoutLinesIsComparedInPieces) {
  const std::string first(256, 'a');
  const std::string second(256, 'b');
  EXPECT_THAT(Changes({{"a", first + second}}, {{"b", first + "end"}}), ElementsAre("a -> b 50%"));
}

TEST_F(FindTreeChangesTest, MakesTheLikestPairsFirst) {
  EXPECT_THAT(Changes({{"old1", "1\n2\n3\n4\n"}, {"old2", "1\n2\n3\n5\n"}},
                      {{"new1", "1\n2\n3\n5\n6\n"}, {"new2", "1\n2\n7\n4\n"}}),
              ElementsAre("old2 -> new1 80%", "old1 -> new2 75%"));
  // The same likeness: the same name wins.
  EXPECT_THAT(Changes({{"a/x", "1\n2\n"}, {"a/y", "1\n3\n"}}, {{"b/y", "1\n4\n"}}),
              ElementsAre("-a/x", "a/y -> b/y 50%"));
}

TEST_F(FindTreeChangesTest, OptionsTurnTheSearchForMovesOff) {
  const Files before{{"a", "1\n2\n3\n"}, {"b", "x\ny\nz\n"}};
  const Files after{{"c", "1\n2\n3\n"}, {"d", "x\ny\nw\n"}};
  EXPECT_THAT(Changes(before, after), ElementsAre("a -> c", "b -> d 66%"));
  EXPECT_THAT(Changes(before, after, {.findLikeMoves = false}), ElementsAre("-b", "a -> c", "+d"));
  EXPECT_THAT(Changes(before, after, {.findMoves = false, .findLikeMoves = false}),
              ElementsAre("-a", "-b", "+c", "+d"));
}

TEST_F(FindTreeChangesTest, ComparesNoMoreCandidatesThanAllowed) {
  const Files before{{"a", "1\n"}, {"b", "x\ny\nz\n"}};
  const Files after{{"c", "2\n"}, {"d", "x\ny\nw\n"}};
  EXPECT_THAT(Changes(before, after, {.mostCandidates = 1}), ElementsAre("-a", "-b", "+c", "+d"));
  EXPECT_THAT(Changes(before, after, {.mostCandidates = 0}), ElementsAre("-a", "-b", "+c", "+d"));
  EXPECT_THAT(Changes(before, after, {.mostFileBytes = 5}), ElementsAre("-a", "-b", "+c", "+d"));
  EXPECT_THAT(Changes(before, after, {.mostFileBytes = 6}), ElementsAre("-a", "+c", "b -> d 66%"));
}

TEST_F(FindTreeChangesTest, KeepsNamesBeyondAscii) {
  Repository repository(NewStorage());
  Tree tree;
  const TalStringT<WideChar> name = TAL_WIDE("\u00E4\U0001F600");
  tree.AddBlob(&repository, name, BlobOf("1"));
  EXPECT_THAT(Show(FindTreeChanges(nullptr, Make<Tree>(tree)).value()),
              ElementsAre("+\xC3\xA4\xF0\x9F\x98\x80"));
}

/// Two commits of a store: two large folders, one of which has a change.
class StoredTreesTest : public ::testing::Test {
 protected:
  StoredTreesTest() {
    Repository repository = m_store.Open();
    Files files;
    for (const std::string folder : {"x/", "y/"}) {
      for (int i = 0; i < 50; ++i)
        files.emplace_back(folder + std::to_string(i), folder + std::to_string(i));
    }
    CommitFiles(repository, files);
    Commit commit(&repository, false);
    commit.RemoveObject(&repository, Wide("x/7"));
    commit.AddBlob(&repository, Wide("x/new"), BlobOf("x/7"));
    commit.AddBlob(&repository, Wide("x/8"), BlobOf("changed"));
    repository.DoCommit(commit);
    m_store.Save(repository);
  }

  /// Opens the store and reads the root folders of the two commits.
  void Open() {
    m_repository = m_store.Open();
    const cow_ptr<Commit> head = m_repository.GetHead();
    m_after = head.get()->GetTree()->GetRoot();
    m_before = head.get()->GetParent().get()->GetTree()->GetRoot();
  }

  OnDemandStore m_store;
  Repository m_repository = m_store.Open();
  cow_ptr<Tree> m_before;
  cow_ptr<Tree> m_after;
};

TEST_F(StoredTreesTest, ReadsNeitherEqualFoldersNorContents) {
  Open();
  m_store.reader->asked.clear();
  EXPECT_THAT(Show(FindTreeChanges(m_before, m_after).value()),
              ElementsAre("~x/8", "x/7 -> x/new"));
  EXPECT_THAT(m_store.reader->asked, UnorderedElementsAre(*m_before.get()->GetIdByPath(Wide("x")),
                                                          *m_after.get()->GetIdByPath(Wide("x"))));
}

TEST_F(StoredTreesTest, UnreadableFolderIsAnError) {
  Open();
  m_store.reader->objects.clear();
  const auto changes = FindTreeChanges(m_before, m_after);
  ASSERT_FALSE(changes);
  EXPECT_EQ(changes.error().code, ErrorCode::Damaged);
}

}  // namespace
}  // namespace TalVcs::Kit
