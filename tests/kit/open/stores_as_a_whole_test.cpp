// Verifying, copying, cleaning up and counting stores that are in order.

#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/load.h>
#include <kit/open/statistics.h>
#include <kit/open/verify.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/passing_store.h>
#include <tests/kit/open/histories.h>

#include <set>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

// Objects of the small history: 5 commits; trees: 3 + 1 + 1 roots, a with a/b in two states,
// shared; blobs: 1, 2, deep, master's, changed, new, other's.
constexpr std::uint64_t kCommits = 5;
constexpr std::uint64_t kTrees = 10;
constexpr std::uint64_t kBlobs = 7;

TEST(Verify, WholeStoreHasWholeBranchesAndNothingUnreferenced) {
  const auto store = SmallStore();
  const VerifyReport report = Verify(*store).value();
  EXPECT_TRUE(report.IsWhole());
  EXPECT_EQ(report.objects, kCommits + kTrees + kBlobs);
  EXPECT_EQ(report.unreferencedObjects, 0u);
  ASSERT_EQ(report.branches.size(), 3u);
  const std::vector<Head> heads = store->Heads().value();
  EXPECT_EQ(report.branches[0], (BranchReport{"master", heads[0].id, BranchState::Whole, 3, 3}));
  EXPECT_EQ(report.branches[1], (BranchReport{"other", heads[1].id, BranchState::Whole, 1, 1}));
  EXPECT_EQ(report.branches[2], (BranchReport{"topic", heads[2].id, BranchState::Whole, 3, 3}));
}

TEST(Verify, ReadsEachObjectOnce) {
  const auto memory = SmallStore();
  FaultInjectionStore store(*memory);
  Verify(store).value();
  // Commits are read as histories.
  EXPECT_EQ(store.CountReadIds(), kTrees + kBlobs);
}

TEST(Verify, CountsWhatNoBranchReaches) {
  const auto store = SmallStore();
  store->MoveHeads(std::vector<HeadMove>{{"other", store->Heads().value()[1].id, Id()}}).value();
  // The commit, its root and its own file.
  EXPECT_EQ(Verify(*store).value().unreferencedObjects, 3u);
}

TEST(Verify, DamageOfAFileThatManyCommitsHaveCountsThem) {
  Repository repository = NewRepository();
  for (int number = 0; number < 300; ++number) {
    AddCommit(repository, "master", {{"kept/file", "k"}, {"a", std::to_string(number)}});
  }
  AddCommit(repository, "master", {{"kept/file", ""}});
  const auto memory = StoreOf(repository);
  FaultInjectionStore store(*memory);
  store.FailObject(SharedBlob("k")->GetId(), ErrorCode::NotFound);
  const VerifyReport report = Verify(store).value();
  ASSERT_EQ(report.damageCount, 1u);
  EXPECT_EQ(report.damages[0].commits, 300u);
  EXPECT_EQ(report.branches[0].commits, 301u);
  EXPECT_EQ(report.branches[0].wholeCommits, 1u);
}

TEST(Verify, ManyDamagesAreCountedAndTheFirstThousandListed) {
  Repository repository = NewRepository();
  Files files;
  for (int number = 0; number < 1200; ++number) {
    files.emplace_back("f" + std::to_string(number), "text" + std::to_string(number));
  }
  AddCommit(repository, "master", files);
  AddCommit(repository, "master", {{"more", "x"}});
  const auto memory = StoreOf(repository);
  FaultInjectionStore store(*memory);
  for (const auto& [path, bytes] : files) {
    store.FailObject(SharedBlob(bytes)->GetId(), ErrorCode::NotFound);
  }
  const VerifyReport report = Verify(store).value();
  EXPECT_EQ(report.damageCount, 1200u);
  ASSERT_EQ(report.damages.size(), HistoryReport::kMostDamages);
  EXPECT_EQ(report.damages[999].commits, 2u);
  EXPECT_EQ(report.branches[0].wholeCommits, 0u);

  const VerifyReport all = Verify(store, {.mostDamages = 5000}).value();
  ASSERT_EQ(all.damages.size(), 1200u);
  EXPECT_EQ(all.damages[1199].commits, 2u);
  const VerifyReport least = Verify(store, {.mostDamages = 0}).value();
  EXPECT_EQ(least.damageCount, 1200u);
  EXPECT_EQ(least.damages.size(), 1u);
}

/// A store with a branch whose head is no id.
class NonsenseStore final : public PassingStore {
 public:
  NonsenseStore() : PassingStore(std::make_shared<MemoryObjectStore>()) {}

  Result<std::vector<Head>> Heads() override {
    return std::vector<Head>{{"master", Id(Wide("nonsense"))}};
  }
};

TEST(Verify, HeadThatIsNoIdIsALostBranch) {
  NonsenseStore store;
  const VerifyReport report = Verify(store).value();
  EXPECT_EQ(report.branches[0].state, BranchState::Lost);
  EXPECT_EQ(report.damages[0].code, ErrorCode::Damaged);
  EXPECT_EQ(CodeOf(Open(std::make_shared<NonsenseStore>(), {.check = OpenCheck::Heads})),
            "Damaged");
  EXPECT_EQ(Statistics(store).value().unreadable, 1u);
}

TEST(Verify, HeadThatIsAFileIsALostBranch) {
  MemoryObjectStore store;
  const cow_ptr<Blob> blob = SharedBlob("x");
  store.Write(std::vector<StoredObject>{{blob->GetId(), blob->BuildPackedData()}}).value();
  store.MoveHeads(std::vector<HeadMove>{{"master", Id(), blob->GetId()}}).value();
  EXPECT_EQ(Verify(store).value().branches[0].state, BranchState::Lost);
}

TEST(Load, NeedsTheStoreNoMore) {
  Repository repository = SmallHistory();
  const auto memory = StoreOf(repository);
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  OpenedRepository loaded = Load(store).value();
  store->Restart();
  EXPECT_EQ(HistoryOf(loaded.GetRepository()), HistoryOf(repository));
  loaded.Trim();
  EXPECT_EQ(HistoryOf(loaded.GetRepository()), HistoryOf(repository));
  EXPECT_EQ(store->CountCalls(), 0u);
  EXPECT_TRUE(loaded.GetReport().IsWhole());
}

TEST(Load, WhatIsNewIsSaved) {
  const auto store = SmallStore();
  OpenedRepository loaded = Load(store, {.branch = "topic"}).value();
  AddCommit(loaded.GetRepository(), "topic", {{"a/b/c", "next"}});
  EXPECT_EQ(Save(loaded).value().writtenObjects, 5u);
  loaded.Trim();
  AddCommit(loaded.GetRepository(), "topic", {{"a/b/c", "again"}});
  EXPECT_EQ(Save(loaded).value().writtenObjects, 5u);
  EXPECT_EQ(HistoryOf(Open(store).value().GetRepository()), HistoryOf(loaded.GetRepository()));
}

TEST(Copy, CopiesAllBranchesAndSkipsWhatIsThere) {
  const auto from = SmallStore();
  MemoryObjectStore to;
  const CopyReport first = Copy(*from, to).value();
  EXPECT_EQ(first.writtenObjects, from->GetCount());
  EXPECT_EQ(first.writtenBytes, from->GetSizeInBytes());
  EXPECT_EQ(HeadsOf(to), HeadsOf(*from));
  FaultInjectionStore source(*from);
  const CopyReport second = Copy(source, to).value();
  EXPECT_EQ(second.writtenObjects, 0u);
  EXPECT_EQ(second.heads, first.heads);
  EXPECT_EQ(source.CountReadIds(), 0u);
}

TEST(Copy, CopiesWhatIsNewAlone) {
  const auto from = SmallStore();
  MemoryObjectStore to = *from;
  OpenedRepository opened = Open(from).value();
  AddCommit(opened.GetRepository(), "master", {{"a/b/c", "next"}});
  Save(opened).value();
  EXPECT_EQ(Copy(*from, to).value().writtenObjects, 5u);
  EXPECT_EQ(HeadsOf(to), HeadsOf(*from));
}

TEST(Copy, CopiesTheBranchesThatAreNamed) {
  const auto from = SmallStore();
  MemoryObjectStore to;
  Copy(*from, to, {.branches = {"other"}}).value();
  // A commit, two folders, three files.
  EXPECT_EQ(to.GetCount(), 6u);
  EXPECT_EQ(to.Heads().value().size(), 1u);
  const auto unknown = Copy(*from, to, {.branches = {"none"}});
  ASSERT_EQ(CodeOf(unknown), "NotFound");
  EXPECT_EQ(unknown.error().subject, "none");
}

TEST(Copy, BranchOfTheTargetWithCommitsOfItsOwnIsAConflict) {
  const auto from = SmallStore();
  const auto to = std::make_shared<MemoryObjectStore>(*from);
  OpenedRepository opened = Open(to).value();
  const cow_ptr<Commit> own = AddCommit(opened.GetRepository(), "master", {{"own", "x"}});
  Save(opened).value();
  const auto conflict = Copy(*from, *to);
  ASSERT_EQ(CodeOf(conflict), "Conflict");
  EXPECT_EQ(conflict.error().heads[0], (Head{"master", own->GetId()}));
  Copy(*from, *to, {.replaceHeads = true}).value();
  EXPECT_EQ(HeadsOf(*to), HeadsOf(*from));
}

/// Requires that a copy reads from the source what the target lacks, and nothing else.
void ExpectReadsWhatIsMissing(IObjectStore& from, IObjectStore& to) {
  const std::size_t missing = to.Missing(ObjectsOf(from)).value().size();
  FaultInjectionStore source(from);
  EXPECT_EQ(Copy(source, to).value().writtenObjects, missing);
  EXPECT_EQ(source.CountReadIds(), missing);
  EXPECT_EQ(ObjectsOf(to), ObjectsOf(from));
  EXPECT_EQ(HeadsOf(to), HeadsOf(from));
}

TEST(Copy, GoesOnAfterACancelledOneWhereThatStopped) {
  const auto from = SmallStore();
  std::set<std::size_t> counts;
  for (int last = 1;; ++last) {
    MemoryObjectStore to;
    int steps = 0;
    const auto cancelled =
        Copy(*from, to, {.progress = [&](const ProgressStep&) { return ++steps < last; }});
    if (cancelled) break;
    ASSERT_EQ(CodeOf(cancelled), "Cancelled");
    EXPECT_TRUE(to.Heads().value().empty());
    counts.insert(to.GetCount());
    ExpectReadsWhatIsMissing(*from, to);
  }
  EXPECT_GT(counts.size(), 3u);
}

TEST(Copy, GoesOnAfterTheTargetFailed) {
  const auto from = SmallStore();
  for (int call = 1;; ++call) {
    MemoryObjectStore memory;
    FaultInjectionStore target(memory);
    target.FailFrom(call, 1000);
    const auto failed = Copy(*from, target);
    if (failed) break;
    EXPECT_TRUE(memory.Heads().value().empty());
    ExpectReadsWhatIsMissing(*from, memory);
  }
}

TEST(Copy, ReadsBackWhatItHasWritten) {
  const auto from = SmallStore();
  MemoryObjectStore memory;
  FaultInjectionStore target(memory);
  std::vector<std::string> phases;
  Copy(*from, target,
       {.readBack = true,
        .progress =
            [&](const ProgressStep& step) {
              if (step.done == 0) phases.emplace_back(step.phase);
              return true;
            }})
      .value();
  EXPECT_EQ(target.CountReadIds(), from->GetCount());
  EXPECT_EQ(phases.back(), "read back");
  EXPECT_EQ(HeadsOf(memory), HeadsOf(*from));
}

TEST(Copy, ObjectThatDoesNotComeBackIsAnErrorBeforeAnyHeadMoves) {
  const auto from = SmallStore();
  for (const Id& id : ObjectsOf(*from)) {
    MemoryObjectStore memory;
    FaultInjectionStore target(memory);
    target.ReplaceObject(id, Buffer());
    const auto copied = Copy(*from, target, {.readBack = true});
    ASSERT_EQ(CodeOf(copied), "Damaged");
    EXPECT_EQ(copied.error().subject, Ascii(id));
    EXPECT_TRUE(memory.Heads().value().empty());
  }
}

TEST(Copy, CleanUpBesideAReadBackMakesItLookAgain) {
  const auto from = SmallStore();
  for (int call = 1;; ++call) {
    MemoryObjectStore memory;
    FaultInjectionStore target(memory);
    bool has_run = false;
    target.InterruptAt(call, [&] {
      has_run = true;
      CleanUp(memory).value();
    });
    Copy(*from, target, {.readBack = true}).value();
    EXPECT_TRUE(Verify(memory).value().IsWhole());
    EXPECT_EQ(HeadsOf(memory), HeadsOf(*from));
    if (!has_run) break;
  }
}

TEST(Copy, CleanUpOfTheTargetInBetweenMakesItLookAgain) {
  const auto from = SmallStore();
  for (int call = 1;; ++call) {
    MemoryObjectStore memory;
    FaultInjectionStore target(memory);
    bool has_run = false;
    target.InterruptAt(call, [&] {
      has_run = true;
      CleanUp(memory).value();
    });
    Copy(*from, target).value();
    EXPECT_TRUE(Verify(memory).value().IsWhole());
    EXPECT_EQ(HeadsOf(memory), HeadsOf(*from));
    if (!has_run) break;
  }
}

TEST(CleanUp, RemovesWhatNoBranchReachesAndReadsNoFile) {
  const auto memory = SmallStore();
  memory->MoveHeads(std::vector<HeadMove>{{"other", memory->Heads().value()[1].id, Id()}}).value();
  FaultInjectionStore store(*memory);
  EXPECT_EQ(CleanUp(store).value().count, 3u);
  EXPECT_EQ(store.CountReadIds(), kTrees - 1);
  const VerifyReport report = Verify(*memory).value();
  EXPECT_TRUE(report.IsWhole());
  EXPECT_EQ(report.unreferencedObjects, 0u);
}

TEST(CleanUp, WithoutBranchesRemovesEverything) {
  const auto memory = SmallStore();
  std::vector<HeadMove> moves;
  const std::vector<Head> heads = memory->Heads().value();
  for (const Head& head : heads) moves.push_back({head.name, head.id, Id()});
  memory->MoveHeads(moves).value();
  CleanUp(*memory).value();
  EXPECT_EQ(memory->GetCount(), 0u);
}

TEST(Statistics, CountObjectsByTypeAndBranch) {
  const auto store = SmallStore();
  const StoreStatistics statistics = Statistics(*store).value();
  EXPECT_EQ(statistics.commits.count, kCommits);
  EXPECT_EQ(statistics.trees.count, kTrees);
  EXPECT_EQ(statistics.blobs.count, kBlobs);
  EXPECT_EQ(statistics.commits.sizeBytes + statistics.trees.sizeBytes + statistics.blobs.sizeBytes,
            store->GetSizeInBytes());
  EXPECT_EQ(statistics.unreferenced, ObjectTotals());
  EXPECT_EQ(statistics.unreadable, 0u);
  ASSERT_EQ(statistics.branches.size(), 3u);
  const BranchStatistics& master = statistics.branches[0];
  EXPECT_EQ(master.name, "master");
  EXPECT_EQ(master.commits, 3u);
  // The newest commit, its root and its file.
  EXPECT_EQ(master.own.count, 3u);
  // Two commits and their roots, a, a/b, shared, and three files.
  EXPECT_EQ(master.shared.count, 10u);
  const BranchStatistics& other = statistics.branches[1];
  EXPECT_EQ(other.own.count, 3u);
  EXPECT_EQ(other.shared.count, 3u);
  const BranchStatistics& topic = statistics.branches[2];
  // A commit, its root, a, a/b, two files.
  EXPECT_EQ(topic.own.count, 6u);
  EXPECT_EQ(topic.shared.count, 10u);
}

TEST(Statistics, OwnBytesAreWhatACleanUpFreesAfterTheBranch) {
  const auto store = SmallStore();
  const std::vector<Head> heads = store->Heads().value();
  const StoreStatistics statistics = Statistics(*store).value();
  for (std::size_t index = 0; index < heads.size(); ++index) {
    MemoryObjectStore copy = *store;
    copy.MoveHeads(std::vector<HeadMove>{{heads[index].name, heads[index].id, Id()}}).value();
    const ObjectTotals& own = statistics.branches[index].own;
    EXPECT_EQ(Statistics(copy).value().unreferenced, own);
    const RemovedObjects removed = CleanUp(copy).value();
    EXPECT_EQ(removed.count, own.count);
    EXPECT_EQ(removed.sizeBytes, own.sizeBytes);
  }
}

// Two branches that came to have the same folder apart from each other share what is in it.
TEST(Statistics, FolderThatTwoBranchesMadeIsShared) {
  Repository repository = NewRepository();
  AddCommit(repository, "one", {{"folder/below/file", "same"}, {"one", "1"}});
  AddCommit(repository, "two", {{"folder/below/file", "same"}, {"two", "2"}});
  const StoreStatistics statistics = Statistics(*StoreOf(repository)).value();
  EXPECT_EQ(statistics.branches[0].own.count, 3u);
  EXPECT_EQ(statistics.branches[0].shared.count, 3u);
  EXPECT_EQ(statistics.branches[1].shared, statistics.branches[0].shared);
}

TEST(Statistics, UnreadableObjectsAreCountedApart) {
  const auto memory = SmallStore();
  FaultInjectionStore store(*memory);
  const OpenedRepository opened = Open(memory).value();
  store.FailObject(opened->GetHead(Wide("other"))->GetTree()->GetRootId(), ErrorCode::Damaged);
  const StoreStatistics statistics = Statistics(store).value();
  EXPECT_EQ(statistics.unreadable, 1u);
  EXPECT_EQ(statistics.trees.count, kTrees - 1);
  EXPECT_EQ(statistics.unreferenced.count, 1u);
}

}  // namespace
}  // namespace TalVcs::Kit
