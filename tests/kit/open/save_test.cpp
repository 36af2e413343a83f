#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/save.h>
#include <kit/open/verify.h>
#include <kit/store/fault_injection_store.h>
#include <kit/store/passing_store.h>
#include <tests/kit/open/histories.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

TEST(Save, OrdinaryRepositorySavedTwiceWritesNothingTheSecondTime) {
  Repository repository = SmallHistory();
  MemoryObjectStore memory;
  const SaveReport first = Save(repository, memory).value();
  EXPECT_EQ(first.writtenObjects, memory.GetCount());
  EXPECT_EQ(first.writtenBytes, memory.GetSizeInBytes());
  FaultInjectionStore store(memory);
  const SaveReport second = Save(repository, store).value();
  EXPECT_EQ(second.writtenObjects, 0u);
  EXPECT_EQ(store.GetLog(), std::vector<std::string>{"Heads"});
  EXPECT_EQ(second.heads, first.heads);
}

TEST(Save, WritesWhatTheBranchesReachAndNothingElse) {
  Repository repository = SmallHistory();
  AddCommit(repository, "gone", {{"gone", "x"}});
  repository.RemoveBranch(Wide("gone"));
  const auto store = StoreOf(repository);
  const VerifyReport report = Verify(*store).value();
  EXPECT_TRUE(report.IsWhole());
  EXPECT_EQ(report.unreferencedObjects, 0u);
}

/// A store that requires that what an object names is there before it.
class StrictStore final : public PassingStore {
 public:
  StrictStore() : PassingStore(std::make_shared<MemoryObjectStore>()) {}

  Status Write(std::span<const StoredObject> objects) override {
    for (const StoredObject& object : objects) {
      auto visit = [this](const PackedReference& reference) { ExpectThere(reference.id); };
      using Visit = decltype(visit);
      VisitReferences(object.packed, {&visit, [](void* called, const PackedReference& reference) {
                                        (*static_cast<Visit*>(called))(reference);
                                      }});
      PassingStore::Write({&object, 1}).value();
    }
    return {};
  }
  Status MoveHeads(std::span<const HeadMove> moves) override {
    for (const HeadMove& move : moves) ExpectThere(move.desired);
    return PassingStore::MoveHeads(moves);
  }

 private:
  void ExpectThere(const Id& id) { EXPECT_TRUE(Missing({&id, 1}).value().empty()); }
};

TEST(Save, WritesEachObjectAfterWhatItNamesAndTheHeadsLast) {
  Repository repository = SmallHistory();
  StrictStore store;
  Save(repository, store).value();
  EXPECT_TRUE(Verify(store).value().IsWhole());
}

TEST(Copy, WritesEachObjectAfterWhatItNamesAndTheHeadsLast) {
  StrictStore store;
  Copy(*SmallStore(), store).value();
  EXPECT_TRUE(Verify(store).value().IsWhole());
}

TEST(Save, OpenedRepositoryWritesWhatIsNew) {
  const auto store = SmallStore();
  const std::size_t before = store->GetCount();
  OpenedRepository opened = Open(store).value();
  AddCommit(opened.GetRepository(), "master", {{"a/b/c", "next"}});
  const SaveReport report = Save(opened).value();
  // A commit, the root, two folders and a file.
  EXPECT_EQ(report.writtenObjects, 5u);
  EXPECT_EQ(store->GetCount(), before + 5);
  EXPECT_EQ(HistoryOf(Open(store).value().GetRepository()), HistoryOf(opened.GetRepository()));
}

TEST(Save, OpenedRepositoryHasNothingNewAfterwards) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  OpenedRepository opened = Open(store).value();
  AddCommit(opened.GetRepository(), "master", {{"a/b/c", "next"}});
  Save(opened).value();
  EXPECT_EQ(opened->GetTreeCount(), 0u);
  EXPECT_EQ(opened->GetBlobCount(), 0u);
  store->Restart();
  EXPECT_EQ(Save(opened).value().writtenObjects, 0u);
  EXPECT_EQ(store->GetLog(), std::vector<std::string>{"Heads"});
}

// What a save costs must not depend on the length of the history.
TEST(Save, CallsAndReadsOfAnAutosaveAreTheSameAfterTenAndAThousandCommits) {
  std::vector<std::vector<std::string>> logs;
  std::vector<std::uint64_t> reads;
  for (const int commits : {10, 1000}) {
    Repository repository = NewRepository();
    for (int number = 0; number < commits; ++number) {
      AddCommit(repository, "master", {{"folder/file", std::to_string(number)}});
    }
    const auto memory = StoreOf(repository);
    const auto store = std::make_shared<FaultInjectionStore>(*memory);
    OpenedRepository opened = Open(store).value();
    AddCommit(opened.GetRepository(), "master", {{"folder/file", "autosaved"}});
    store->Restart();
    const std::uint64_t before = store->CountReadIds();
    EXPECT_EQ(Save(opened).value().writtenObjects, 4u);
    logs.push_back(store->GetLog());
    reads.push_back(store->CountReadIds() - before);
  }
  EXPECT_EQ(logs[0], logs[1]);
  EXPECT_EQ(reads[0], reads[1]);
}

TEST(Save, BranchesThatWereRemovedAreRemovedFromTheStore) {
  const auto store = SmallStore();
  OpenedRepository opened = Open(store).value();
  opened->RemoveBranch(Wide("topic"));
  opened->CreateBranch(Wide("new"), opened->GetHead(Wide("other")));
  Save(opened).value();
  const std::vector<Head> heads = store->Heads().value();
  std::vector<std::string> names;
  for (const Head& head : heads) names.push_back(head.name);
  EXPECT_EQ(names, (std::vector<std::string>{"master", "new", "other"}));
}

TEST(Save, SecondWriterGetsAConflictWithTheActualHeadAndLosesNothing) {
  const auto store = SmallStore();
  OpenedRepository first = Open(store).value();
  OpenedRepository second = Open(store).value();
  AddCommit(first.GetRepository(), "master", {{"first", "1"}});
  AddCommit(second.GetRepository(), "master", {{"second", "2"}});
  Save(first).value();
  const std::string heads = HeadsOf(*store);
  const Result<SaveReport> conflict = Save(second);
  ASSERT_EQ(CodeOf(conflict), "Conflict");
  ASSERT_EQ(conflict.error().heads.size(), 1u);
  EXPECT_EQ(conflict.error().heads[0].id, first->GetHead()->GetId());
  EXPECT_EQ(HeadsOf(*store), heads);
  EXPECT_EQ(TextOf(second->GetHead()->GetBlob(Wide("second"))), "2");
}

TEST(Save, WritersOfDifferentBranchesDoNotDisturbEachOther) {
  const auto store = SmallStore();
  OpenedRepository first = Open(store).value();
  OpenedRepository second = Open(store).value();
  AddCommit(first.GetRepository(), "master", {{"first", "1"}});
  AddCommit(second.GetRepository(), "topic", {{"second", "2"}});
  Save(first).value();
  Save(second).value();
  AddCommit(first.GetRepository(), "master", {{"first", "1b"}});
  Save(first).value();
  const OpenedRepository opened = Open(store).value();
  EXPECT_EQ(TextOf(opened->GetHead(Wide("master"))->GetBlob(Wide("first"))), "1b");
  EXPECT_EQ(TextOf(opened->GetHead(Wide("topic"))->GetBlob(Wide("second"))), "2");
}

// A host that overlooked a failed load had an empty repository, and its next save replaced the
// history.
TEST(Save, RepositoryThatKnowsNothingOfTheStoreCannotReplaceIt) {
  const auto store = SmallStore();
  const std::string heads = HeadsOf(*store);
  Repository empty = NewRepository();
  AddCommit(empty, "master", {{"first", "commit"}});
  const Result<SaveReport> conflict = Save(empty, *store);
  ASSERT_EQ(CodeOf(conflict), "Conflict");
  EXPECT_EQ(conflict.error().subject, "master");
  EXPECT_EQ(HeadsOf(*store), heads);
}

TEST(Save, RepositoryThatKnowsNothingOfTheStoreReplacesItByName) {
  const auto store = SmallStore();
  Repository other = NewRepository();
  const cow_ptr<Commit> commit = AddCommit(other, "master", {{"first", "commit"}});
  Save(other, *store, {.replaceHeads = true}).value();
  EXPECT_EQ(HeadsOf(*store), "master=" + IdOf(commit) + "\n");
}

TEST(Save, ExpectedHeadsLetBranchesMoveBack) {
  Repository repository = SmallHistory();
  const auto store = StoreOf(repository);
  const SaveReport saved = Save(repository, *store).value();
  const cow_ptr<Commit> parent = repository.GetHead()->GetParent();
  repository.MoveBranchTo(Wide("master"), parent);
  repository.RemoveBranch(Wide("other"));
  EXPECT_EQ(CodeOf(Save(repository, *store)), "Conflict");
  Save(repository, *store, {.expected = saved.heads}).value();
  const OpenedRepository opened = Open(store).value();
  EXPECT_EQ(opened->GetHead()->GetId(), parent->GetId());
  EXPECT_EQ(opened.GetSavedHeads().size(), 2u);
}

TEST(Save, OpenedRepositoryIsSavedToAnotherStoreWhole) {
  OpenedRepository opened = Open(SmallStore()).value();
  AddCommit(opened.GetRepository(), "master", {{"next", "x"}});
  const auto other = std::make_shared<MemoryObjectStore>();
  Save(opened.GetRepository(), *other).value();
  EXPECT_EQ(HistoryOf(Load(other).value().GetRepository()), HistoryOf(opened.GetRepository()));
}

// A clean-up between the look at the store and the move of the heads removes what the save relies
// on.
TEST(Save, CleanUpInBetweenMakesItLookAgain) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  OpenedRepository opened = Open(store).value();
  for (int call = 1;; ++call) {
    AddCommit(opened.GetRepository(), "master", {{"a/b/c", std::to_string(call)}});
    store->Restart();
    bool has_run = false;
    store->InterruptAt(call, [&] {
      has_run = true;
      CleanUp(*memory).value();
    });
    Save(opened).value();
    EXPECT_TRUE(Verify(*memory).value().IsWhole()) << call;
    EXPECT_EQ(HistoryOf(Open(memory).value().GetRepository()), HistoryOf(opened.GetRepository()));
    if (!has_run) break;
  }
  EXPECT_GT(store->CountCalls(StoreOperation::MoveHeads), 0u);
}

// The commits that a branch has let go of are removed, and then a branch comes back to them.
TEST(Save, CommitsThatACleanUpRemovedAreWrittenAgain) {
  const auto store = SmallStore();
  OpenedRepository opened = Open(store).value();
  const cow_ptr<Commit> head = opened->GetHead(Wide("topic"));
  EXPECT_EQ(ListingOf(head), "a/b/c=changed a/b/d=new shared/one=1 shared/two=2");
  opened->MoveBranchTo(Wide("topic"), opened->GetHead(Wide("other")));
  Save(opened).value();
  EXPECT_GT(CleanUp(*store).value().count, 0u);
  opened->MoveBranchTo(Wide("topic"), head);
  Save(opened).value();
  EXPECT_TRUE(Verify(*store).value().IsWhole());
  EXPECT_EQ(HistoryOf(Open(store).value().GetRepository(), "topic"),
            HistoryOf(opened.GetRepository(), "topic"));
}

/// A store that doesn't know whether its move of heads took place.
class UnknowingStore final : public PassingStore {
 public:
  explicit UnknowingStore(bool moves)
      : PassingStore(std::make_shared<MemoryObjectStore>()), m_moves(moves) {}

  Status MoveHeads(std::span<const HeadMove> moves) override {
    if (m_moves) PassingStore::MoveHeads(moves).value();
    return Error{ErrorCode::Unknown, "the connection was lost", {}, {}, {}, {}};
  }

 private:
  bool m_moves;
};

TEST(Save, MoveWhoseAnswerWasLostCountsAsDone) {
  Repository repository = SmallHistory();
  UnknowingStore store(true);
  EXPECT_TRUE(Save(repository, store).ok());
}

TEST(Save, MoveThatWasLostWithItsAnswerLeavesTheBranches) {
  Repository repository = SmallHistory();
  UnknowingStore store(false);
  const Result<SaveReport> lost = Save(repository, store);
  ASSERT_EQ(CodeOf(lost), "Unavailable");
  EXPECT_EQ(lost.error().unchanged, "the branches are where they were");
}

// A save is repeated whose first attempt moved the heads without the host's knowledge.
TEST(Save, BranchThatIsThereAlreadyIsNoConflict) {
  const auto memory = SmallStore();
  OpenedRepository opened = Open(memory).value();
  OpenedRepository twin = Open(memory).value();
  AddCommit(opened.GetRepository(), "master", {{"next", "x"}});
  AddCommit(twin.GetRepository(), "master", {{"next", "x"}});
  Save(twin).value();
  EXPECT_EQ(Save(opened).value().writtenObjects, 0u);
}

TEST(Save, AnotherRepositoryInPlaceOfTheOpenedOneIsRefused) {
  const auto store = SmallStore();
  const std::string heads = HeadsOf(*store);
  OpenedRepository opened = Open(store).value();
  opened.GetRepository() = SmallHistory();
  EXPECT_EQ(CodeOf(Save(opened)), "NotFound");
  const Repository moved = std::move(opened.GetRepository());
  opened.Trim();
  EXPECT_EQ(CodeOf(Save(opened)), "NotFound");
  EXPECT_EQ(HeadsOf(*store), heads);
}

TEST(Save, RepositoryWithoutAStorageIsRefused) {
  Repository repository(nullptr);
  MemoryObjectStore store;
  EXPECT_EQ(CodeOf(Save(repository, store)), "NotFound");
}

}  // namespace
}  // namespace TalVcs::Kit
