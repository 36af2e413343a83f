// Memory of a storage on demand: what fails without it, and how much there is.

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/failing_allocations.h>
#include <tests/support/on_demand_store.h>

#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

/// A store of two commits and a repository that is opened on it.
struct Opened {
  OnDemandStore store;
  Repository repository;

  Opened() : repository(nullptr) {
    Repository made = store.Open();
    CommitFiles(made, {{"a/b/c", "1"}, {"a/d", "d"}, {"e", "e"}});
    CommitFiles(made, {{"a/b/c", "2"}});
    store.Save(made);
    repository = store.Open();
  }
};

std::string Contents(const Repository& repository) {
  return ListingOf(repository.GetHead()) + '|' + ListingOf(repository.GetHead()->GetParent());
}

const char* const kContents = "a/b/c=2 a/d=d e=e|a/b/c=1 a/d=d e=e";

TEST(OnDemandAllocations, FailingOnesWhileReadingLeaveTheLinksToBeFollowed) {
  const int failures = ForEachFailingAllocation(
      [] { return std::make_unique<Opened>(); },
      [](const auto& opened) { Contents(opened->repository); },
      [](const auto& opened, bool) { EXPECT_EQ(Contents(opened->repository), kContents); });
  EXPECT_GT(failures, 100);
}

TEST(OnDemandAllocations, FailingOnesWhileTrimmingLoseNothing) {
  const auto prepare = [] {
    auto opened = std::make_unique<Opened>();
    CommitFiles(opened->repository, {{"a/b/c", "3"}});
    Contents(opened->repository);
    return opened;
  };
  const auto check = [](const auto& opened, bool) {
    EXPECT_EQ(ListingOf(opened->repository.GetHead()), "a/b/c=3 a/d=d e=e");
    EXPECT_EQ(ListingOf(opened->repository.GetHead()->GetParent()->GetParent()),
              "a/b/c=1 a/d=d e=e");
    OnDemandStore::StorageOf(opened->repository).Trim();
    EXPECT_EQ(ListingOf(opened->repository.GetHead()->GetParent()), "a/b/c=2 a/d=d e=e");
  };
  const int failures = ForEachFailingAllocation(
      prepare, [](const auto& opened) { OnDemandStore::StorageOf(opened->repository).Trim(); },
      check);
  EXPECT_GT(failures, 5);
}

TEST(OnDemandAllocations, FailingOnesWhileSavingLeaveItToBeRepeated) {
  const auto prepare = [] {
    auto opened = std::make_unique<Opened>();
    CommitFiles(opened->repository, {{"a/b/c", "3"}});
    return opened;
  };
  const auto check = [](const auto& opened, bool) {
    opened->store.Save(opened->repository);
    Repository reopened = opened->store.Open();
    EXPECT_EQ(ListingOf(reopened.GetHead()), "a/b/c=3 a/d=d e=e");
    EXPECT_EQ(ListingOf(opened->repository.GetHead()), "a/b/c=3 a/d=d e=e");
  };
  const int failures = ForEachFailingAllocation(
      prepare, [](const auto& opened) { opened->store.Save(opened->repository); }, check);
  EXPECT_GT(failures, 10);
}

TEST(OnDemandAllocations, FailingOnesWhileEditingAndMergingMoveNoBranch) {
  const auto act = [](const auto& opened) {
    Repository& repository = opened->repository;
    Commit draft(repository.GetHead()->GetParent(), false);
    draft.AddBlob(&repository, TAL_WIDE("a/new"), BlobOf("new"));
    const cow_ptr<Commit> side = repository.SyncWithStorage(Make<Commit>(draft));
    repository.EnsureCommonRootFor(TAL_WIDE("master"), TAL_WIDE("x"), TAL_WIDE("x"));
  };
  const int failures = ForEachFailingAllocation(
      [] { return std::make_unique<Opened>(); }, act,
      [](const auto& opened, bool) { EXPECT_EQ(Contents(opened->repository), kContents); });
  EXPECT_GT(failures, 20);
}

// The circle of source, tables, directories and source is undone with the last storage.
TEST(OnDemandMemory, EndsWithTheLastHandle) {
  const std::ptrdiff_t before = LiveBlocks();
  {
    Opened opened;
    Contents(opened.repository);
    Repository clone(opened.repository);
    const cow_ptr<Commit> head = clone.GetHead();
    CommitFiles(clone, {{"a/b/c", "4"}});
    opened.repository = Repository(nullptr);
    OnDemandStore::StorageOf(clone).Trim();
    clone = Repository(nullptr);
    ListingOf(head->GetParent());
  }
  EXPECT_EQ(LiveBlocks(), before);
}

#if defined(__GLIBC__)
constexpr int kFiles = 2000;

std::string PathOf(int file) {
  return "top" + std::to_string(file % 20) + "/below" + std::to_string(file / 20 % 20) + "/file" +
         std::to_string(file);
}

/// A store of 2,000 files and 100 commits.
OnDemandStore LargeStore() {
  OnDemandStore store;
  Repository repository = store.Open();
  std::vector<std::pair<std::string, std::string>> files;
  for (int file = 0; file < kFiles; ++file) files.emplace_back(PathOf(file), "first");
  CommitFiles(repository, files);
  for (int index = 0; index < 100; ++index) {
    CommitFiles(repository, {{PathOf(index * 17), "content " + std::to_string(index)}});
  }
  store.Save(repository);
  store.reader->asked.reserve(1'000'000);
  return store;
}

TEST(OnDemandMemory, OfAnOpenedRepositoryIsSmall) {
  OnDemandStore store = LargeStore();
  const std::ptrdiff_t before = LiveBytes();
  Repository repository = store.Open();
  EXPECT_LT(LiveBytes() - before, 5000);
}

TEST(OnDemandMemory, IsGivenBackByTrim) {
  OnDemandStore store = LargeStore();
  store.reader->passesAhead = true;
  const std::ptrdiff_t before = LiveBytes();
  const auto reached = store.reader->asked.size();
  Repository repository = store.Open();
  for (cow_ptr<Commit> at = repository.GetHead(); at; at = at->GetParent()) ListingOf(at);
  store.reader->asked.resize(reached);
  EXPECT_GT(LiveBytes() - before, 500'000);
  OnDemandStore::StorageOf(repository).Trim();
  EXPECT_LT(LiveBytes() - before, 5000);
}
#endif

}  // namespace
}  // namespace TalVcs::Testing
