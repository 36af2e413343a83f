// Each allocation of an operation on a whole store fails in turn. What was interrupted leaves
// nothing allocated, and the next try has the result that the first would have had.

#include <gtest/gtest.h>
#include <kit/batch_edit.h>
#include <kit/memory_store.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/repair.h>
#include <kit/open/statistics.h>
#include <kit/open/verify.h>
#include <kit/save_repository.h>
#include <tests/faults/fail_each.h>
#include <tests/kit/open/histories.h>

namespace TalVcs::Testing {
namespace {

using namespace Kit;

/// A store that has lost a file of which another one has a copy, and has an unused branch.
struct TwoStores {
  std::shared_ptr<MemoryObjectStore> store = SmallStore();
  std::shared_ptr<MemoryObjectStore> other = std::make_shared<MemoryObjectStore>(*store);
};

TwoStores MakeStores() { return {}; }

TwoStores MakeDamagedStores() {
  TwoStores stores;
  std::vector<Id> kept = ObjectsOf(*stores.store);
  const Id lost = BlobOf("changed").GetId();
  std::erase(kept, lost);
  stores.store->RemoveUnmarked([&](std::span<const Head>) { return Result(kept); }).value();
  Buffer wrong;
  wrong.Append("blob 1\0x", 8);
  const StoredObject damaged{BlobOf("deep").GetId(), wrong};
  stores.store->Replace({&damaged, 1}).value();
  return stores;
}

TwoStores MakeStoresWithUnused() {
  TwoStores stores;
  const Id head = stores.store->Heads().value().back().id;
  const HeadMove move{"topic", head, Id()};
  stores.store->MoveHeads({&move, 1}).value();
  return stores;
}

std::string Describe(const HistoryReport& report) {
  std::string text;
  for (const BranchReport& branch : report.branches) {
    text += branch.name + " " + std::to_string(branch.wholeCommits) + "\n";
  }
  for (const Damage& damage : report.damages) text += Kit::Describe(damage) + "\n";
  return text;
}

TEST(FailingAllocationsOfStores, ChecksCanBeRepeated) {
  const auto verify = [](TwoStores& stores) {
    const VerifyReport report = Verify(*stores.store).value();
    return Describe(report) + std::to_string(report.objects);
  };
  EXPECT_GT(FailEach(MakeStores, verify), 100U);
  EXPECT_GT(FailEach(MakeDamagedStores, verify), 100U);
  EXPECT_GT(FailEach(MakeDamagedStores,
                     [](TwoStores& stores) {
                       const StoreStatistics counts = Statistics(*stores.store).value();
                       return std::to_string(counts.commits.count + counts.trees.sizeBytes) + " " +
                              std::to_string(counts.unreadable + counts.unreferenced.count);
                     }),
            100U);
}

TEST(FailingAllocationsOfStores, CleanUpCanBeRepeated) {
  EXPECT_GT(FailEach(MakeStoresWithUnused,
                     [](TwoStores& stores) {
                       CleanUp(*stores.store).value();
                       const bool is_whole = Verify(*stores.store)->IsWhole();
                       return std::to_string(is_whole) +
                              std::to_string(ObjectsOf(*stores.store).size());
                     }),
            100U);
}

TEST(FailingAllocationsOfStores, CopyCanBeRepeated) {
  EXPECT_GT(FailEach(
                [] {
                  TwoStores stores;
                  stores.other = std::make_shared<MemoryObjectStore>();
                  return stores;
                },
                [](TwoStores& stores) {
                  Copy(*stores.store, *stores.other, {.readBack = true}).value();
                  return HeadsOf(*stores.other) + std::to_string(Verify(*stores.other)->objects);
                }),
            200U);
}

TEST(FailingAllocationsOfStores, RepairCanBeRepeated) {
  EXPECT_GT(FailEach(MakeDamagedStores,
                     [](TwoStores& stores) {
                       const RepairReport report = Repair(*stores.store, *stores.other).value();
                       return std::to_string(report.IsWhole()) +
                              std::to_string(Verify(*stores.store)->IsWhole());
                     }),
            200U);
}

TEST(FailingAllocationsOfStores, LoadCanBeRepeated) {
  EXPECT_GT(FailEach(MakeStores,
                     [](TwoStores& stores) {
                       return HistoryOf(Load(stores.store).value().GetRepository());
                     }),
            200U);
  EXPECT_GT(FailEach(MakeDamagedStores,
                     [](TwoStores& stores) {
                       const OpenedRepository opened =
                           Load(stores.store, {.policy = DamagePolicy::Salvage}).value();
                       return Describe(opened.GetReport()) +
                              HistoryOf(opened.GetRepository(), "other");
                     }),
            200U);
}

TEST(FailingAllocationsOfStores, OpeningAndSavingCanBeRepeated) {
  EXPECT_GT(FailEach(MakeStores,
                     [](TwoStores& stores) {
                       OpenedRepository opened =
                           Open(stores.store, {.check = OpenCheck::Everything}).value();
                       opened->RemoveBranch(Wide("fresh"));
                       AddCommit(opened.GetRepository(), "fresh", {{"new/file", "new"}});
                       Save(opened).value();
                       return HeadsOf(*stores.store) +
                              std::to_string(Verify(*stores.store)->objects);
                     }),
            200U);
}

/// An opened repository that is kept over the failure.
struct OpenedStore {
  std::shared_ptr<MemoryObjectStore> store = SmallStore();
  OpenedRepository opened = Open(store).value();
};

TEST(FailingAllocationsOfStores, SaveCanBeRepeatedOnTheSameRepository) {
  const auto prepare = [] {
    auto things = std::make_unique<OpenedStore>();
    AddCommit(things->opened.GetRepository(), "fresh", {{"new/file", "new"}});
    AddCommit(things->opened.GetRepository(), "topic", {{"a/b/c", "again"}});
    things->opened->RemoveBranch(Wide("other"));
    return things;
  };
  EXPECT_GT(FailEach(prepare,
                     [](std::unique_ptr<OpenedStore>& things) {
                       Save(things->opened).value();
                       things->opened.Trim();
                       return HeadsOf(*things->store) + HistoryOf(things->opened.GetRepository()) +
                              std::to_string(Verify(*things->store)->objects);
                     }),
            200U);
}

TEST(FailingAllocationsOfStores, SaveOfAnyRepositoryCanBeRepeated) {
  EXPECT_GT(FailEach([] { return std::make_pair(SmallHistory(), MemoryObjectStore()); },
                     [](auto& things) {
                       Save(things.first, things.second).value();
                       return HeadsOf(things.second) +
                              std::to_string(Verify(things.second)->objects);
                     }),
            200U);
  EXPECT_GT(FailEach([] { return std::make_pair(SmallHistory(), MemoryStore()); },
                     [](auto& things) {
                       const bool saved =
                           SaveRepository(things.first, things.second, TAL_WIDE("doc"));
                       return std::to_string(saved) + std::to_string(things.second.GetCount());
                     }),
            50U);
}

/// A commit that a batch changes, with its id known.
struct Edited {
  Edited() {
    for (int i = 0; i < 20; ++i) {
      const std::string number = std::to_string(i);
      batch.AddBlob(Wide("a/folder " + number + "/file"), BlobOf(number));
    }
    batch.RemoveObject(Wide("shared/one"));
    commit.GetId();
  }

  Repository repository = SmallHistory();
  Commit commit{&repository, false};
  BatchEdit batch;
};

TEST(FailingAllocationsOfBatches, BatchAppliesAsAWholeOrNotAtAll) {
  Edited edited;
  const std::string before = IdOf(edited.commit);
  edited.batch.ApplyTo(&edited.repository, edited.commit);
  const std::string after = IdOf(edited.commit);
  const auto apply = [](std::unique_ptr<Edited>& things) {
    things->batch.ApplyTo(&things->repository, things->commit);
    return IdOf(things->commit);
  };
  const auto check = [&](const std::unique_ptr<Edited>& things) {
    Commit again = things->commit;
    again.SetDescription({});
    EXPECT_EQ(IdOf(things->commit), IdOf(again)) << "it shows the id of another state";
    EXPECT_TRUE(IdOf(again) == before || IdOf(again) == after);
  };
  EXPECT_GT(FailEach([] { return std::make_unique<Edited>(); }, apply, check), 50U);
}

}  // namespace
}  // namespace TalVcs::Testing
