// Repairs of stores from a second one.

#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/repair.h>
#include <kit/open/verify.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/memory_object_store.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/store/unrepairable_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/bytes.h>

#include <fstream>
#include <unordered_set>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

void RemoveObject(IObjectStore& store, const Id& id) {
  store
      .RemoveUnmarked([&](std::span<const Head>) -> Result<std::vector<Id>> {
        std::vector<Id> kept = ObjectsOf(store);
        std::erase(kept, id);
        return kept;
      })
      .value();
}

void DamageObject(IRepairableStore& store, const Id& id) {
  store.Replace(std::vector<StoredObject>{{id, BufferOf("blob 5\0wrong")}}).value();
}

/// Requires that the first store has the objects and bytes of the second one.
void ExpectSame(IObjectStore& actual, IObjectStore& expected) {
  const std::vector<Id> ids = ObjectsOf(expected);
  EXPECT_EQ(ObjectsOf(actual), ids);
  EXPECT_TRUE(Verify(actual).value().IsWhole());
  EXPECT_EQ(HeadsOf(actual), HeadsOf(expected));
}

TEST(Repair, EachDamagedObjectComesFromTheSource) {
  const auto good = SmallStore();
  for (const Id& id : ObjectsOf(*good)) {
    MemoryObjectStore store = *good;
    DamageObject(store, id);
    const Damage damage = Verify(store).value().damages.at(0);
    const RepairReport report = Repair(store, *good).value();
    EXPECT_TRUE(report.IsWhole());
    ASSERT_EQ(report.repaired.size(), 1u);
    EXPECT_EQ(Describe(report.repaired[0]), Describe(damage));
    EXPECT_EQ(report.repaired[0].id, id);
    EXPECT_EQ(report.repaired[0].code, ErrorCode::Damaged);
    ExpectSame(store, *good);
  }
}

TEST(Repair, EachMissingObjectComesFromTheSource) {
  const auto good = SmallStore();
  for (const Id& id : ObjectsOf(*good)) {
    MemoryObjectStore store = *good;
    RemoveObject(store, id);
    const Damage damage = Verify(store).value().damages.at(0);
    const RepairReport report = Repair(store, *good).value();
    EXPECT_TRUE(report.IsWhole());
    ASSERT_EQ(report.repaired.size(), 1u);
    EXPECT_EQ(Describe(report.repaired[0]), Describe(damage));
    EXPECT_EQ(report.repaired[0].code, ErrorCode::NotFound);
    EXPECT_EQ(report.repairedObjects, 1u);
    ExpectSame(store, *good);
  }
}

// What a damaged commit or folder names is found by the bytes of the source.
TEST(Repair, StoreWithoutAnyGoodObjectIsRepairedAtOnce) {
  const auto good = SmallStore();
  MemoryObjectStore store = *good;
  for (const Id& id : ObjectsOf(*good)) DamageObject(store, id);
  const RepairReport report = Repair(store, *good).value();
  EXPECT_EQ(report.repairedObjects, good->GetCount());
  EXPECT_EQ(report.repairedBytes, good->GetSizeInBytes());
  EXPECT_EQ(report.repaired.size(), good->GetCount());
  ExpectSame(store, *good);
}

TEST(Repair, WholeStoreIsNotWritten) {
  const auto good = SmallStore();
  MemoryObjectStore memory = *good;
  FaultInjectionStore store(memory);
  FaultInjectionStore source(*good);
  const RepairReport report = Repair(store, source).value();
  EXPECT_TRUE(report.IsWhole());
  EXPECT_EQ(report.repairedObjects, 0u);
  EXPECT_EQ(report.lost.branches.size(), 3u);
  EXPECT_EQ(store.CountCalls(StoreOperation::Write), 0u);
  EXPECT_EQ(store.CountCalls(StoreOperation::MoveHeads), 0u);
  EXPECT_EQ(source.CountCalls(), 0u);
}

TEST(Repair, ObjectThatTheSourceHasDamagedIsReportedAsLost) {
  const auto good = SmallStore();
  MemoryObjectStore store = *good;
  MemoryObjectStore source = *good;
  const Id lost = SharedBlob("deep")->GetId();
  const Id found = SharedBlob("2")->GetId();
  for (const Id& id : {lost, found}) DamageObject(store, id);
  DamageObject(source, lost);
  const RepairReport report = Repair(store, source).value();
  EXPECT_FALSE(report.IsWhole());
  ASSERT_EQ(report.repaired.size(), 1u);
  EXPECT_EQ(report.repaired[0].path, "shared/two");
  ASSERT_EQ(report.lost.damages.size(), 1u);
  EXPECT_EQ(report.lost.damages[0].path, "a/b/c");
  EXPECT_EQ(report.lost.damages[0].branch, "master");
  EXPECT_EQ(FindBranch(report.lost, "other")->state, BranchState::Whole);
  EXPECT_EQ(FindBranch(report.lost, "master")->state, BranchState::Partial);
}

TEST(Repair, SourcesCanBeUsedOneAfterAnother) {
  const auto good = SmallStore();
  MemoryObjectStore store = *good;
  const std::vector<Id> ids = ObjectsOf(*good);
  std::vector<MemoryObjectStore> sources(2, *good);
  for (std::size_t index = 0; index < ids.size(); ++index) {
    DamageObject(store, ids[index]);
    DamageObject(sources[index % 2], ids[index]);
  }
  std::uint64_t repaired = 0;
  for (int round = 0; round < 10 && !Verify(store).value().IsWhole(); ++round) {
    repaired += Repair(store, sources[static_cast<std::size_t>(round % 2)]).value().repairedObjects;
  }
  EXPECT_EQ(repaired, ids.size());
  ExpectSame(store, *good);
}

TEST(Repair, StoreThatCanNotReplaceGetsWhatIsMissing) {
  const auto good = SmallStore();
  UnrepairableStore store;
  Copy(*good, store).value();
  const Id missing = SharedBlob("deep")->GetId();
  RemoveObject(store, missing);
  FaultInjectionStore damaged(store);
  const Id wrong = SharedBlob("2")->GetId();
  damaged.ReplaceObject(wrong, BufferOf("other bytes"));
  const RepairReport report = Repair(damaged, *good).value();
  ASSERT_EQ(report.repaired.size(), 1u);
  EXPECT_EQ(report.repaired[0].id, missing);
  ASSERT_EQ(report.lost.damages.size(), 1u);
  EXPECT_EQ(report.lost.damages[0].id, wrong);
  EXPECT_TRUE(Verify(store).value().IsWhole());
}

TEST(Repair, CancelledOneKeepsWhatItHasRepaired) {
  const auto good = SmallStore();
  MemoryObjectStore store = *good;
  for (const Id& id : ObjectsOf(*good)) DamageObject(store, id);
  int phases = 0;
  const Result<RepairReport> cancelled =
      Repair(store, *good, {.progress = [&](const ProgressStep& step) {
               return step.phase != "contents" || ++phases < 3;
             }});
  EXPECT_EQ(CodeOf(cancelled), "Cancelled");
  const std::uint64_t rest = Repair(store, *good).value().repairedObjects;
  EXPECT_GT(rest, 0u);
  EXPECT_LT(rest, good->GetCount());
  ExpectSame(store, *good);
}

// Each call of either store fails once; a second repair does the rest.
TEST(Repair, FailureOfAnyCallLeavesAStoreThatCanBeRepaired) {
  const auto good = SmallStore();
  for (const bool source_fails : {false, true}) {
    for (int call = 1;; ++call) {
      UnrepairableStore memory;
      Copy(*good, memory).value();
      for (const char* text : {"deep", "2", "1"}) RemoveObject(memory, SharedBlob(text)->GetId());
      FaultInjectionStore store(memory);
      FaultInjectionStore source(*good);
      (source_fails ? source : store).FailFrom(call);
      const Result<RepairReport> report = Repair(store, source);
      const bool has_failed = source_fails ? source.HasFailed() : store.HasFailed();
      if (!report) {
        EXPECT_EQ(CodeOf(report), "Unavailable");
        EXPECT_EQ(HeadsOf(memory), HeadsOf(*good));
      }
      EXPECT_TRUE(Repair(memory, *good).value().IsWhole());
      ExpectSame(memory, *good);
      if (!has_failed) break;
    }
  }
}

// A failure of the question whether a store can replace objects is no answer.
TEST(Repair, NoFailureOfACallIsTakenForAStoreThatCanNotReplace) {
  const auto good = SmallStore();
  int reports = 0;
  for (bool has_failed = true; has_failed; ++reports) {
    MemoryObjectStore memory = *good;
    DamageObject(memory, SharedBlob("2")->GetId());
    FaultInjectionStore store(memory);
    store.FailFrom(reports + 1);
    const Result<RepairReport> report = Repair(store, *good);
    EXPECT_TRUE(!report || report->IsWhole()) << reports + 1;
    has_failed = store.HasFailed();
  }
  EXPECT_GT(reports, 4);
}

TEST(Repair, RemovalMeanwhileMakesItLookAgain) {
  const auto good = SmallStore();
  for (int call = 1;; ++call) {
    MemoryObjectStore memory = *good;
    RemoveObject(memory, SharedBlob("deep")->GetId());
    memory.Write(std::vector<StoredObject>{{SharedBlob("unused")->GetId(), BufferOf("x")}}).value();
    memory.MoveHeads({}).value();
    FaultInjectionStore store(memory);
    bool has_run = false;
    store.InterruptAt(call, [&] {
      has_run = true;
      RemoveObject(memory, SharedBlob("unused")->GetId());
    });
    const RepairReport report = Repair(store, *good).value();
    EXPECT_TRUE(report.IsWhole());
    EXPECT_EQ(report.repairedObjects, 1u);
    EXPECT_TRUE(Verify(memory).value().IsWhole());
    if (!has_run) break;
  }
}

// A wrong byte may damage a record, or how the records after it are found.
TEST(Repair, AnyWrongByteOfAPackIsRepaired) {
  const auto good = SmallStore();
  const TemporaryFolder folder;
  const auto original = folder.Path() / "original";
  const auto damaged = folder.Path() / "damaged";
  {
    std::filesystem::create_directory(original);
    DirectoryObjectStore store = DirectoryObjectStore::Create(original, {.durable = false}).value();
    Copy(*good, store).value();
  }
  const std::filesystem::path pack = ".vcs/packs/00000001.pack";
  const std::string bytes = ReadWhole(original / pack);
  std::uint64_t repaired = 0;
  for (std::size_t position = 0; position < bytes.size(); position += 17) {
    std::filesystem::remove_all(damaged);
    std::filesystem::copy(original, damaged, std::filesystem::copy_options::recursive);
    std::string changed = bytes;
    changed[position] = static_cast<char>(changed[position] ^ 0x15);
    WriteWhole(damaged / pack, changed);
    {
      DirectoryObjectStore store = DirectoryObjectStore::Open(damaged, {.durable = false}).value();
      repaired += Repair(store, *good).value().repairedObjects;
    }
    DirectoryObjectStore again = DirectoryObjectStore::Open(damaged, {.durable = false}).value();
    EXPECT_TRUE(Verify(again).value().IsWhole()) << position;
    EXPECT_EQ(HeadsOf(again), HeadsOf(*good));
  }
  // Without compression, only the changed object is damaged. With compression, so is each object
  // that is stored as a difference from it.
  EXPECT_GE(repaired, bytes.size() / 17);
}

TEST(Repair, LargeFileOfAFolderIsReplaced) {
  const TemporaryFolder folder;
  DirectoryObjectStore store =
      DirectoryObjectStore::Create(folder.Path(), {.durable = false}).value();
  std::string noise;
  for (std::uint32_t state = 1; noise.size() < 3000000; state = state * 1664525 + 1013904223) {
    noise += static_cast<char>(state >> 24);
  }
  Repository repository = NewRepository();
  AddCommit(repository, "master", {{"noise", noise}});
  const auto good = StoreOf(repository);
  Copy(*good, store).value();
  const std::string id = Ascii(SharedBlob(noise)->GetId());
  const auto path = folder.Path() / ".vcs/objects" / id.substr(0, 2) / id.substr(2);
  ASSERT_TRUE(std::filesystem::exists(path));
  std::filesystem::permissions(path, std::filesystem::perms::owner_write,
                               std::filesystem::perm_options::add);
  WriteWhole(path, "blob 1");
  const RepairReport report = Repair(store, *good).value();
  ASSERT_EQ(report.repaired.size(), 1u);
  EXPECT_EQ(report.repaired[0].path, "noise");
  ExpectSame(store, *good);
}

TEST(Replace, RefusesWhatIsNoIdOfAnObject) {
  const auto good = SmallStore();
  const TemporaryFolder folder;
  DirectoryObjectStore directory =
      DirectoryObjectStore::Create(folder.Path(), {.durable = false}).value();
  const Id one = SharedBlob("1")->GetId();
  const std::vector<StoredObject> objects = {{one, BufferOf("x")},
                                             {Id(Wide("../../x")), BufferOf("x")}};
  EXPECT_EQ(CodeOf(good->Replace(objects)), "BadName");
  EXPECT_EQ(CodeOf(directory.Replace(objects)), "BadName");
  EXPECT_TRUE(Verify(*good).value().IsWhole());
  EXPECT_EQ(directory.Missing({{one}}).value().size(), 1u);
}

}  // namespace
}  // namespace TalVcs::Kit
