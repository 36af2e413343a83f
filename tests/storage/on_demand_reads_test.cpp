// Golden figures: how many reads an operation costs. More is a regression; fewer is a figure to
// write down here.

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/merging.h>
#include <tests/support/on_demand_store.h>

#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

#if defined(__x86_64__) && defined(__linux__)
static_assert(sizeof(Commit) == 144);
static_assert(sizeof(Tree) == 48);
static_assert(sizeof(Blob) == 40);
#endif

std::string PathOf(int file) {
  return "top" + std::to_string(file % 4) + "/below" + std::to_string(file / 4 % 5) + "/file" +
         std::to_string(file);
}

/// A store of 100 files in 4 directories of 5 directories each, with a commit that changes five of
/// them.
class ReadsOnDemand : public ::testing::Test {
 protected:
  ReadsOnDemand() {
    Repository repository = m_store.Open();
    std::vector<std::pair<std::string, std::string>> files;
    for (int file = 0; file < 100; ++file) files.emplace_back(PathOf(file), "first");
    CommitFiles(repository, files);
    CommitFiveFiles(repository, "second");
    m_store.Save(repository);
  }

  // In two of the four directories, and in five of the twenty below.
  static void CommitFiveFiles(Repository& repository, const std::string& content) {
    CommitFiles(repository, {{PathOf(0), content},
                             {PathOf(4), content},
                             {PathOf(8), content},
                             {PathOf(1), content},
                             {PathOf(5), content}});
  }

  OnDemandStore m_store;
};

TEST_F(ReadsOnDemand, OpeningListingTheRootAndReadingABlobReadsThePath) {
  Repository repository = m_store.Open();
  EXPECT_EQ(m_store.TakeReads(), 0U);
  const cow_ptr<Commit> head = repository.GetHead();
  EXPECT_EQ(head->GetTree()->GetRoot()->GetLocalObjectPaths().size(), 4U);
  EXPECT_EQ(m_store.TakeReads(), 2U);  // commit, root
  EXPECT_EQ(TextOf(head->GetBlob(Wide(PathOf(0)))), "second");
  EXPECT_EQ(m_store.TakeReads(), 3U);  // two directories, the blob
}

TEST_F(ReadsOnDemand, ListingAllReadsOncePerDirectoryOfTheUpperLevels) {
  Repository repository = m_store.Open();
  EXPECT_EQ(repository.GetHead()->GetTree()->GetAllBlobPaths().size(), 100U);
  // commit, root, the 4 directories at once, the 5 below each at once
  EXPECT_EQ(m_store.TakeReads(), 7U);
  EXPECT_EQ(m_store.reader->asked.size(), 26U);
}

TEST_F(ReadsOnDemand, ListingAllFollowsTheDepthIfTheReaderPassesAhead) {
  m_store.reader->passesAhead = true;
  Repository repository = m_store.Open();
  EXPECT_EQ(repository.GetHead()->GetTree()->GetAllBlobPaths().size(), 100U);
  // commit, root, the 4 directories with the 20 below them
  EXPECT_EQ(m_store.TakeReads(), 3U);
}

TEST_F(ReadsOnDemand, CountingAllReadsNoBlob) {
  m_store.reader->passesAhead = true;
  Repository repository = m_store.Open();
  EXPECT_EQ(repository.GetHead()->GetTree()->GetBlobCount(), 100U);
  EXPECT_EQ(m_store.TakeReads(), 3U);
}

TEST_F(ReadsOnDemand, DiffOfTheHeadReadsTheDirectoriesThatChanged) {
  Repository repository = m_store.Open();
  const cow_ptr<Commit> head = repository.GetHead();
  const auto paths = head->GetTree()->GetBlobDiffs(head->GetParent()->GetTree());
  EXPECT_EQ(paths.size(), 5U);
  // two commits, two roots, then the directories of both sides on a level at once
  EXPECT_EQ(m_store.TakeReads(), 6U);
  EXPECT_EQ(m_store.reader->asked.size(), 18U);
}

TEST_F(ReadsOnDemand, DiffOfATreeThatWasReadReadsTheOtherSideByLevels) {
  Repository repository = m_store.Open();
  const cow_ptr<Commit> head = repository.GetHead();
  head->GetTree()->GetAllBlobPaths();
  m_store.TakeReads();
  EXPECT_EQ(head->GetParent()->GetTree()->GetBlobDiffs(head->GetTree()).size(), 5U);
  EXPECT_EQ(m_store.TakeReads(), 4U);  // commit, root, 2 directories at once, 5 below at once
}

TEST_F(ReadsOnDemand, ComparingEqualTreesReadsTheRootsAlone) {
  Repository repository = m_store.Open();
  const cow_ptr<Commit> head = repository.GetHead();
  EXPECT_TRUE(head->GetTree()->GetBlobDiffs(head->GetTree()).empty());
  EXPECT_EQ(m_store.TakeReads(), 2U);
}

TEST_F(ReadsOnDemand, EditingFiveFilesReadsTheirDirectories) {
  Repository repository = m_store.Open();
  CommitFiveFiles(repository, "third");
  EXPECT_EQ(m_store.TakeReads(), 9U);  // commit, root, 2 directories, 5 below
  EXPECT_EQ(m_store.Save(repository), 10U);
  EXPECT_EQ(m_store.TakeReads(), 0U);
}

TEST_F(ReadsOnDemand, MergeReadsNoBlobThatIsNotInConflict) {
  Repository repository = m_store.Open();
  repository.CreateBranch(TAL_WIDE("other"), nullptr);
  CommitFiles(repository, {{PathOf(0), "left"}, {PathOf(4), "left"}, {PathOf(2), "both"}});
  repository.Checkout(TAL_WIDE("other"));
  CommitFiles(repository, {{PathOf(0), "right"}, {PathOf(8), "right"}, {PathOf(2), "both"}});
  m_store.Save(repository);

  repository = m_store.Open();
  repository.Checkout(TAL_WIDE("master"));
  m_store.reader->asked.clear();
  ASSERT_TRUE(
      repository.Merge(repository.GetHead(TAL_WIDE("other")), Descending(ConflictChoice::Right)));
  std::vector<std::string> blobs;
  for (const Id& id : m_store.reader->asked) {
    const std::string packed = Bytes(m_store.reader->objects.at(id));
    if (packed.starts_with("blob")) blobs.push_back(packed.substr(packed.find('\0') + 1));
  }
  EXPECT_EQ(blobs, std::vector<std::string>());
  EXPECT_EQ(TextOf(repository.GetHead()->GetBlob(Wide(PathOf(0)))), "right");
  EXPECT_EQ(TextOf(repository.GetHead()->GetBlob(Wide(PathOf(4)))), "left");
  EXPECT_EQ(TextOf(repository.GetHead()->GetBlob(Wide(PathOf(8)))), "right");
}

TEST_F(ReadsOnDemand, RemovingAFileReadsNoBlob) {
  Repository repository = m_store.Open();
  Commit commit(&repository, false);
  EXPECT_TRUE(commit.RemoveObject(&repository, Wide(PathOf(7))));
  EXPECT_EQ(m_store.TakeReads(), 4U);  // commit, root, two directories
}

TEST(ReadsOfAHistory, DoubleTheirWindows) {
  OnDemandStore store;
  Repository repository = store.Open();
  for (int index = 0; index <= 1000; ++index)
    CommitFiles(repository, {{"f", std::to_string(index)}});
  store.Save(repository);
  store.reader->passesAhead = true;
  repository = store.Open();
  std::uint64_t length = 0;
  for (cow_ptr<Commit> at = repository.GetHead(); at; at = at->GetParent()) ++length;
  EXPECT_EQ(length, 1001U);
  // the head, then windows of 1, 2, 4 ... 512 commits
  EXPECT_EQ(store.TakeReads(), 11U);
}

TEST(ReadsOfAHistory, CommonBaseOfTwoLongBranchesFollowsTheWindows) {
  OnDemandStore store;
  Repository repository = store.Open();
  CommitFiles(repository, {{"f", "base"}});
  repository.CreateBranch(TAL_WIDE("other"), nullptr);
  for (const auto branch : {TAL_WIDE("master"), TAL_WIDE("other")}) {
    repository.Checkout(branch);
    for (int index = 0; index < 255; ++index) {
      CommitFiles(repository, {{"g", Ascii(branch) + std::to_string(index)}});
    }
  }
  store.Save(repository);
  store.reader->passesAhead = true;
  repository = store.Open();
  const cow_ptr<Commit> base = repository.GetCommonBase(repository.GetHead(TAL_WIDE("master")),
                                                        repository.GetHead(TAL_WIDE("other")));
  EXPECT_EQ(ListingOf(base), "f=base");
  EXPECT_LE(store.TakeReads(), 20U);  // two heads, 8 windows each, root and blob of the base
}

TEST(ReadsOfExpectedBlobs, OneReadServesAllAndAMissingOneFailsAtItsLink) {
  OnDemandStore store;
  Repository repository = store.Open();
  CommitFiles(repository, {{"a", "1"}, {"b", "2"}, {"c", "3"}});
  store.Save(repository);
  // sha256sum of "blob 1\0" "1", and so on
  const Id first(Wide("36456d9b87f21fc54ed5babf1222a9ab0fbbd0c4ad239a7933522d5e4447049c"));
  const Id second(Wide("0e804515472ad48c09c4186392e0c61324fa20a5d83496864c16515726493dee"));
  const Id third(Wide("7b4fc2d40a9264c8dbf6f8a295455dcd038f89987f296624193f6c175d19e5f5"));
  auto missing = store.reader->objects.extract(second);
  repository = store.Open();
  const cow_ptr<Tree> root = repository.GetHead()->GetTree()->GetRoot();
  store.TakeReads();
  const Id ids[] = {first, second, third, Id(), Id(Wide("no id"))};
  store.StorageOf(repository).ExpectBlobs(ids);
  EXPECT_EQ(store.TakeReads(), 1U);
  EXPECT_EQ(TextOf(root->GetLocalBlob(Wide("a"))), "1");
  EXPECT_EQ(TextOf(root->GetLocalBlob(Wide("c"))), "3");
  EXPECT_EQ(store.TakeReads(), 0U);
  EXPECT_THROW(root->GetLocalBlob(Wide("b")), ObjectUnavailable);
  store.reader->objects.insert(std::move(missing));
  EXPECT_EQ(TextOf(root->GetLocalBlob(Wide("b"))), "2");
  store.TakeReads();
  store.StorageOf(repository).ExpectBlobs(ids);
  EXPECT_EQ(store.TakeReads(), 0U);
}

TEST(ReadsOfTwoStores, DiffAsksEachStoreForItsOwnDirectories) {
  OnDemandStore first;
  OnDemandStore second;
  for (OnDemandStore* store : {&first, &second}) {
    Repository repository = store->Open();
    const std::string content = store == &first ? "first" : "second";
    CommitFiles(repository, {{"a/f", content}, {"b/g", content}});
    store->Save(repository);
  }
  Repository one = first.Open();
  Repository other = second.Open();
  const auto paths = one.GetHead()->GetTree()->GetBlobDiffs(other.GetHead()->GetTree());
  EXPECT_EQ(paths.size(), 2U);
  for (const OnDemandStore* store : {&first, &second}) {
    EXPECT_EQ(store->reader->asked.size(), 4U);  // commit, root, two directories
    for (const Id& id : store->reader->asked) EXPECT_TRUE(store->reader->objects.contains(id));
  }
}

}  // namespace
}  // namespace TalVcs::Testing
