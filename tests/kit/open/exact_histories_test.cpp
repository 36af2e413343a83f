// Histories that an older way to save could not bring back: they return with the same ids.

#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/load.h>
#include <kit/open/save.h>
#include <kit/open/verify.h>
#include <tests/kit/open/histories.h>
#include <tests/support/merging.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// Requires that a repository comes back as it is by `Open` and by `Load`.
void ExpectComesBack(Repository& repository) {
  const auto store = StoreOf(repository);
  EXPECT_TRUE(Verify(*store).value().IsWhole());
  EXPECT_EQ(HistoryOf(Open(store).value().GetRepository()), HistoryOf(repository));
  EXPECT_EQ(HistoryOf(Load(store).value().GetRepository()), HistoryOf(repository));
}

TEST(ExactHistories, DescriptionsOfSeveralLines) {
  for (const char* description : {"two\nlines", "x\n", "\nx", "a\r\nb", "", "\n\n\n", " "}) {
    Repository repository = NewRepository();
    AddCommit(repository, "master", {{"a", "1"}}, description);
    AddCommit(repository, "master", {{"a", "2"}}, "later");
    ExpectComesBack(repository);
  }
}

TEST(ExactHistories, DocumentWhoseLastFileWasRemoved) {
  Repository repository = NewRepository();
  AddCommit(repository, "master", {{"a", "1"}});
  AddCommit(repository, "master", {{"a", ""}});
  EXPECT_TRUE(repository.GetHead()->GetTree()->IsEmpty());
  AddCommit(repository, "master", {{"b", "2"}});
  ExpectComesBack(repository);
}

TEST(ExactHistories, MergeThatLeavesAFolderEmpty) {
  Repository repository = NewRepository();
  const auto base = AddCommit(repository, "master",
                              {{"folder/one", "1"}, {"folder/two", "2"}, {"other/three", "3"}});
  repository.CreateBranch(Wide("topic"), base);
  AddCommit(repository, "master", {{"folder/one", ""}});
  const auto topic = AddCommit(repository, "topic", {{"folder/two", ""}});
  ASSERT_TRUE(repository.Merge(topic, Descending(ConflictChoice::Undecided)));
  EXPECT_EQ(ListingOf(repository.GetHead()), "other/three=3");
  ExpectComesBack(repository);
}

TEST(ExactHistories, AuthorsWithBracketsAndLineBreaks) {
  for (const auto& [name, email] : std::vector<std::pair<std::string, std::string>>{
           {"A <b>", "a@b"}, {"A\nB", "a@b"}, {"A", "a>b"}, {"", ""}}) {
    Repository repository = NewRepository();
    Commit commit(&repository, false);
    commit.AddBlob(&repository, Wide("a"), BlobOf("1"));
    commit.SetAuthorName(ToWide(name));
    commit.SetAuthorEmail(ToWide(email));
    commit.SetDescription(Wide("our parent company"));
    repository.DoCommit(commit);
    ExpectComesBack(repository);
  }
}

TEST(ExactHistories, CommitWithoutATree) {
  Repository repository = NewRepository();
  Commit commit;
  commit.SetDescription(Wide("nothing"));
  repository.DoCommit(commit);
  ExpectComesBack(repository);
}

// A commit keeps its parent's id, so ancestors that a branch still reaches are saved with it.
TEST(ExactHistories, CommitsAboveDeletedOnes) {
  Repository repository = NewRepository();
  for (const char* name : {"1", "2", "3", "4", "5"}) AddCommit(repository, "master", {{"a", name}});
  repository.DeleteCommits(repository.GetHead()->GetParent()->GetParent());
  EXPECT_EQ(repository.GetCommitCount(), 2u);
  ExpectComesBack(repository);
}

TEST(ExactHistories, OpenedRepositoryAfterDeletedCommits) {
  const auto store = SmallStore();
  OpenedRepository opened = Open(store).value();
  opened->DeleteCommits(opened->GetHead(Wide("master"))->GetParent());
  AddCommit(opened.GetRepository(), "master", {{"after", "x"}});
  Save(opened).value();
  EXPECT_TRUE(Verify(*store).value().IsWhole());
  EXPECT_EQ(HistoryOf(Open(store).value().GetRepository()), HistoryOf(opened.GetRepository()));
}

// A graph that was simplified on demand is saved, and the clean-up removes what that made unused.
TEST(ExactHistories, ForgottenCommitsAreGoneAfterACleanUp) {
  Repository repository = NewRepository();
  for (int number = 0; number < 20; ++number) {
    AddCommit(repository, "master", {{"a", std::to_string(number)}});
  }
  const auto store = StoreOf(repository);
  OpenedRepository opened = Open(store).value();
  ASSERT_TRUE(opened->SimplifyCommitGraph(true));
  Save(opened).value();
  // All but the root and the file of the newest commit.
  EXPECT_EQ(CleanUp(*store).value().count, 58u);
  EXPECT_EQ(store->GetCount(), 3u);
  EXPECT_EQ(HistoryOf(Load(store).value().GetRepository()), HistoryOf(opened.GetRepository()));
}

TEST(ExactHistories, NamesBeyondAscii) {
  Repository repository = NewRepository();
  Commit commit(&repository, false);
  for (const char* name : {"\xC3\xA4", "\xF0\x9F\x98\x80", "\xEF\xBF\xBF", "a b"}) {
    commit.AddBlob(&repository, ToWide(name), BlobOf("1"));
  }
  repository.DoCommit(commit);
  repository.CreateBranch(ToWide("\xC3\xA4/\xF0\x9F\x98\x80"), nullptr);
  ExpectComesBack(repository);
}

}  // namespace
}  // namespace TalVcs::Kit
