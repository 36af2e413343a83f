// Golden figures of a repository of 10,000 files: how many objects an operation reads, and in how
// many calls of the store, which are round trips of a store that is far away. More is a regression;
// fewer is a figure to write down here and in docs/performance.md.

#include <gtest/gtest.h>
#include <kit/store/fault_injection_store.h>
#include <talvcs/storage/on_demand_storage.h>
#include <tests/kit/open/histories.h>
#include <tests/support/merging.h>

#include <algorithm>
#include <iterator>
#include <span>
#include <string>

namespace TalVcs::Testing {
namespace {

/// A file of 10,000: 10 folders of 10 folders of 100 files.
std::string PathOf(int file) {
  return "a" + std::to_string(file / 1000) + "/b" + std::to_string(file / 100 % 10) + "/f" +
         std::to_string(file % 100);
}

Files EachFolder(int first, int last, int file, const std::string& bytes) {
  Files files;
  for (int folder = first; folder < last; ++folder) {
    files.emplace_back(PathOf(folder * 100 + file), bytes + std::to_string(folder));
  }
  return files;
}

/// "master" with 1,001 commits, the latest of which changes a file in five folders; "left" and
/// "right" on top of it, which change 100 files each, ten of them the same.
std::shared_ptr<Kit::MemoryObjectStore> MakeStore() {
  Repository repository = NewRepository();
  Files all;
  for (int file = 0; file < 10000; ++file) all.emplace_back(PathOf(file), std::to_string(file));
  AddCommit(repository, "master", all);
  for (int number = 0; number < 999; ++number) {
    AddCommit(repository, "master", {{PathOf(77), "state " + std::to_string(number)}});
  }
  const cow_ptr<Commit> head = AddCommit(repository, "master", EachFolder(0, 5, 50, "five "));
  repository.CreateBranch(Wide("left"), head);
  repository.CreateBranch(Wide("right"), head);
  AddCommit(repository, "left", EachFolder(0, 100, 0, "left "));
  Files right = EachFolder(0, 10, 0, "right ");
  const Files others = EachFolder(10, 100, 1, "right ");
  right.insert(right.end(), others.begin(), others.end());
  AddCommit(repository, "right", right);
  return StoreOf(repository);
}

/// What was read: objects, and calls of the store that read.
struct Reads {
  std::uint64_t objects = 0;
  std::uint64_t calls = 0;
  bool operator==(const Reads&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Reads& reads) {
  return out << reads.objects << " objects in " << reads.calls << " calls";
}

class ReadsOfTenThousandFiles : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { s_store = MakeStore(); }
  static void TearDownTestSuite() { s_store = nullptr; }

  Reads Took() const {
    const auto log = m_store->GetLog();
    return {m_store->CountReadIds(),
            static_cast<std::uint64_t>(std::count_if(log.begin(), log.end(), [](const auto& call) {
              return call.starts_with("Read");
            }))};
  }
  Repository& Opened() { return m_opened.GetRepository(); }
  cow_ptr<Commit> HeadOf(const std::string& branch) { return Opened().GetHead(Wide(branch)); }
  /// Returns the heads of "left" and "right", which are read together.
  std::vector<cow_ptr<Commit>> BothHeads() {
    OnDemandStorage& storage = *OnDemandStorage::From(Opened().GetStorage());
    std::vector<Id> ids;
    for (const auto& [name, id] : storage.GetHeadIds()) {
      if (name != Wide("master")) ids.push_back(id);
    }
    storage.ExpectCommits(ids);
    return {HeadOf("left"), HeadOf("right")};
  }

  static std::shared_ptr<Kit::MemoryObjectStore> s_store;
  std::shared_ptr<Kit::FaultInjectionStore> m_store =
      std::make_shared<Kit::FaultInjectionStore>(s_store);
  Kit::OpenedRepository m_opened = Kit::Open(m_store, {.branch = "master"}).value();
};
std::shared_ptr<Kit::MemoryObjectStore> ReadsOfTenThousandFiles::s_store;

TEST_F(ReadsOfTenThousandFiles, OpeningListingTheRootAndReadingAFile) {
  const cow_ptr<Commit> head = HeadOf("master");
  EXPECT_EQ(head->GetTree()->GetRoot()->GetLocalObjectPaths().size(), 10u);
  EXPECT_EQ(TextOf(head->GetBlob(Wide(PathOf(9999)))), "9999");
  EXPECT_EQ(Took(), (Reads{5, 5}));
}

TEST_F(ReadsOfTenThousandFiles, ListingAllFiles) {
  EXPECT_EQ(HeadOf("master")->GetTree()->GetAllBlobPaths().size(), 10000u);
  EXPECT_EQ(Took(), (Reads{112, 4}));
}

TEST_F(ReadsOfTenThousandFiles, ReadingAllFilesOfAFolderThatAreExpected) {
  const cow_ptr<Tree> root = HeadOf("master")->GetTree()->GetRoot();
  const cow_ptr<Tree> folder = root->GetLocalTree(Wide("a9"))->GetLocalTree(Wide("b9"));
  const std::vector<TalStringT<WideChar>> names = folder->GetLocalBlobPaths();
  ASSERT_EQ(names.size(), 100u);
  std::vector<Id> ids;
  for (const auto& name : names) ids.push_back(*folder->GetIdByPath(name));
  const Reads before = Took();
  OnDemandStorage::From(Opened().GetStorage())->ExpectBlobs(ids);
  for (int file = 0; file < 100; ++file) {
    EXPECT_EQ(TextOf(folder->GetLocalBlob(Wide("f" + std::to_string(file)))),
              std::to_string(9900 + file));
  }
  EXPECT_EQ(Took(), (Reads{before.objects + 100, before.calls + 1}));
}

TEST_F(ReadsOfTenThousandFiles, DiffOfTheHeadAndItsParent) {
  const cow_ptr<Commit> head = HeadOf("master");
  OnDemandStorage::ExpectRoots(std::vector{head, head->GetParent()});
  EXPECT_EQ(head->GetTree()->GetBlobDiffs(head->GetParent()->GetTree()).size(), 5u);
  EXPECT_EQ(Took(), (Reads{16, 5}));
}

TEST_F(ReadsOfTenThousandFiles, History) {
  std::uint64_t length = 0;
  for (cow_ptr<Commit> at = HeadOf("master"); at; at = at->GetParent()) ++length;
  EXPECT_EQ(length, 1001u);
  // The head and its folder, then windows of 1, 2, 4 ... 512 commits.
  EXPECT_EQ(Took().calls, 11u);
}

TEST_F(ReadsOfTenThousandFiles, DiffOfTwoBranches) {
  EXPECT_EQ(HeadOf("left")->GetTree()->GetBlobDiffs(HeadOf("right")->GetTree()).size(), 190u);
  // Two heads, two roots, and the folders of two levels.
  EXPECT_EQ(Took(), (Reads{224, 6}));
}

TEST_F(ReadsOfTenThousandFiles, DiffOfTwoBranchesThatAreExpected) {
  const std::vector<cow_ptr<Commit>> heads = BothHeads();
  OnDemandStorage::ExpectRoots(heads);
  EXPECT_EQ(heads[0]->GetTree()->GetBlobDiffs(heads[1]->GetTree()).size(), 190u);
  EXPECT_EQ(Took(), (Reads{224, 4}));
}

TEST_F(ReadsOfTenThousandFiles, MergeReadsNoFile) {
  Opened().Checkout(Wide("left"));
  ASSERT_TRUE(Opened().Merge(HeadOf("right"), Descending(ConflictChoice::Right)));
  // Two heads, their parent, three roots, and the folders of two levels.
  EXPECT_EQ(Took(), (Reads{336, 6}));
}

TEST_F(ReadsOfTenThousandFiles, MergeOfTwoBranchesThatAreExpected) {
  const std::vector<cow_ptr<Commit>> heads = BothHeads();
  Opened().Checkout(Wide("left"));
  ASSERT_TRUE(Opened().Merge(heads[1], Descending(ConflictChoice::Right)));
  EXPECT_EQ(Took(), (Reads{336, 5}));
}

TEST_F(ReadsOfTenThousandFiles, MergeWhoseResolverSettlesTheTopReadsNoFolder) {
  Opened().Checkout(Wide("left"));
  ASSERT_TRUE(Opened().Merge(HeadOf("right"),
                             {Always(ConflictChoice::Left), Always(TreeConflictChoice::Right)}));
  EXPECT_EQ(Took(), (Reads{6, 4}));
}

/// Resolvers that take the left side of one folder and go on below all others.
Resolvers LeftOf(const std::string& folder) {
  return {Always(ConflictChoice::Left), [folder](Path path, MergeTrees) {
            return Join(path) == folder ? TreeConflictChoice::Left : TreeConflictChoice::Descend;
          }};
}

TEST(ReadsOfAMerge, MissingFolderBelowASettledOneIsNoFailure) {
  Repository repository = NewRepository();
  const cow_ptr<Commit> base = AddCommit(repository, "left", {{"a/b/f", "base"}, {"c/g", "base"}});
  repository.CreateBranch(Wide("right"), base);
  AddCommit(repository, "left", {{"a/b/f", "left"}, {"c/g", "left"}});
  const cow_ptr<Commit> right =
      AddCommit(repository, "right", {{"a/b/f", "right"}, {"c/g", "right"}});
  const Id lost = right->GetTree()->GetRoot()->GetDeepTree(Wide("a/b"))->GetId();
  const auto store = StoreOf(repository);
  std::vector<Id> kept;
  const auto keep = [&](std::span<const Id> ids) {
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(kept),
                 [&](const Id& id) { return !(id == lost); });
    return true;
  };
  ASSERT_TRUE(store->List(keep).ok());
  ASSERT_EQ(store->RemoveUnmarked([&](auto) { return Kit::Result(kept); }).value().count, 1u);

  Kit::OpenedRepository opened = Kit::Open(store, {.branch = "left"}).value();
  const cow_ptr<Commit> other = opened->GetHead(Wide("right"));
  EXPECT_THROW(opened->Merge(other, LeftOf("none")), ObjectUnavailable);
  ASSERT_TRUE(opened->Merge(other, LeftOf("a")));
  EXPECT_EQ(TextOf(opened->GetHead()->GetBlob(Wide("a/b/f"))), "left");
}

TEST_F(ReadsOfTenThousandFiles, EditOfFiveFilesAndItsSave) {
  AddCommit(Opened(), "master", EachFolder(40, 45, 7, "edited "));
  Kit::Save(m_opened).value();
  EXPECT_EQ(Took(), (Reads{8, 8}));
}

}  // namespace
}  // namespace TalVcs::Testing
