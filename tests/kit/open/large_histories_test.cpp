// Long histories and deep folders: nothing runs in recursion, and costs follow what changed.

#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/statistics.h>
#include <kit/open/verify.h>
#include <kit/store/fault_injection_store.h>
#include <tests/kit/open/histories.h>
#include <tests/support/scale.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// Requires that every operation gets through a repository, and that it comes back.
void ExpectPasses(Repository& repository) {
  const Id head = repository.GetHead()->GetId();
  const auto store = StoreOf(repository);
  EXPECT_TRUE(Verify(*store).value().IsWhole());
  MemoryObjectStore copy;
  EXPECT_EQ(Copy(*store, copy).value().writtenObjects, store->GetCount());
  EXPECT_EQ(CleanUp(copy).value().count, 0u);
  EXPECT_EQ(Statistics(copy).value().branches[0].own.count, store->GetCount());
  OpenedRepository opened = Load(store).value();
  EXPECT_EQ(opened->GetHead()->GetId(), head);
  AddCommit(opened.GetRepository(), "master", {{"next", "x"}});
  EXPECT_EQ(Save(opened).value().writtenObjects, 3u);
}

TEST(LargeHistories, LongHistory) {
  Repository repository = NewRepository();
  cow_ptr<Commit> head;
  for (std::size_t number = 0; number < Scaled(100'000); ++number) {
    Commit next;
    next.SetParent(head);
    next.SetCommitTime(Time::FromTimeT(static_cast<std::int64_t>(number)));
    head = repository.SyncWithStorage(Make<Commit>(next));
  }
  repository.MoveBranchTo(Wide("master"), head);
  ExpectPasses(repository);
}

// The branches of all versions after each one were written down: half the square of their number.
TEST(LargeHistories, BranchOnEachVersion) {
  const std::size_t count = Scaled(30'000);
  Repository repository = NewRepository();
  std::vector<HeadMove> moves;
  cow_ptr<Commit> head;
  for (std::size_t number = 0; number < count; ++number) {
    Commit next;
    next.SetParent(head);
    next.SetCommitTime(Time::FromTimeT(static_cast<std::int64_t>(number)));
    head = repository.SyncWithStorage(Make<Commit>(next));
    // Names in the order of the versions.
    moves.push_back({std::to_string(100'000 + number), Id(), head->GetId()});
  }
  repository.MoveBranchTo(Wide("master"), head);
  moves.push_back({"master", head->GetId(), Id()});
  const auto store = StoreOf(repository);
  store->MoveHeads(moves).value();
  const std::vector<BranchStatistics> branches = Statistics(*store).value().branches;
  ASSERT_EQ(branches.size(), count);
  for (const std::size_t number : {std::size_t{0}, count / 2, count - 1}) {
    const std::uint64_t own = number == count - 1 ? 1 : 0;
    EXPECT_EQ(branches[number].commits, number + 1);
    EXPECT_EQ(branches[number].own.count, own) << number;
    EXPECT_EQ(branches[number].shared.count, number + 1 - own) << number;
  }
}

TEST(LargeHistories, DeepFolders) {
  Repository repository = NewRepository();
  std::string path = "file";
  for (std::size_t level = 0; level < Scaled(5'000); ++level) path.insert(0, "d/");
  AddCommit(repository, "master", {{path, "deep"}});
  ExpectPasses(repository);
}

TEST(LargeHistories, OneFileOfManyIsReadAndSavedByItsPathAlone) {
  Repository repository = NewRepository();
  Files files;
  for (int folder = 0; folder < 100; ++folder) {
    for (int file = 0; file < 50; ++file) {
      const std::string path = "d" + std::to_string(folder) + "/f" + std::to_string(file);
      files.emplace_back(path, path);
    }
  }
  AddCommit(repository, "master", files);
  const auto memory = StoreOf(repository);
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  OpenedRepository opened = Open(store).value();
  store->Restart();
  AddCommit(opened.GetRepository(), "master", {{"d7/f7", "changed"}});
  EXPECT_EQ(Save(opened).value().writtenObjects, 4u);
  // Commit, root and folder, without those beside it; then what a save asks and writes.
  EXPECT_LE(store->CountCalls(), 12u);
  EXPECT_LE(store->CountReadIds(), 5u);
}

}  // namespace
}  // namespace TalVcs::Kit
