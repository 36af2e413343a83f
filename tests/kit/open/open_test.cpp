#include <gtest/gtest.h>
#include <kit/open/load.h>
#include <kit/open/open.h>
#include <kit/open/try.h>
#include <kit/store/fault_injection_store.h>
#include <tests/kit/open/histories.h>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

TEST(Open, RepositoryHasTheBranchesCommitsAndFilesThatWereSaved) {
  Repository repository = SmallHistory();
  const OpenedRepository opened = Open(StoreOf(repository)).value();
  EXPECT_EQ(HistoryOf(opened.GetRepository()), HistoryOf(repository));
}

TEST(Open, ReadsTheListOfBranchesAndNoObject) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  const OpenedRepository opened = Open(store).value();
  EXPECT_EQ(store->GetLog(), (std::vector<std::string>{"Heads", "Value branch"}));
  ASSERT_EQ(opened.GetSavedHeads().size(), 3u);
  EXPECT_EQ(opened.GetSavedHeads()[1].name, "other");
  EXPECT_EQ(opened.GetReport().branches[2].name, "topic");
  EXPECT_EQ(opened.GetReport().branches[2].state, BranchState::Unchecked);
}

TEST(Open, StoreWithoutBranchesGivesMasterWithoutAHead) {
  OpenedRepository opened = Open(std::make_shared<MemoryObjectStore>()).value();
  EXPECT_EQ(Ascii(opened->GetCurentBranch()), "master");
  EXPECT_TRUE(opened->BranchExist(Wide("master")));
  EXPECT_EQ(opened->GetHead(), nullptr);
}

TEST(Open, StoreWithoutBranchesGivesTheBranchThatWasAskedFor) {
  OpenedRepository opened = Open(std::make_shared<MemoryObjectStore>(), {.branch = "main"}).value();
  Commit commit(&opened.GetRepository(), false);
  commit.AddBlob(&opened.GetRepository(), Wide("a"), BlobOf("text"));
  opened->DoCommit(commit);
  EXPECT_EQ(ListingOf(opened->GetHead(Wide("main"))), "a=text");
}

TEST(Open, CurrentBranchIsTheOneOfTheOptions) {
  OpenedRepository opened = Open(SmallStore(), {.branch = "topic"}).value();
  EXPECT_EQ(Ascii(opened->GetCurentBranch()), "topic");
}

TEST(Open, UnknownBranchOfTheOptionsIsNotFound) {
  const auto opened = Open(SmallStore(), {.branch = "none"});
  ASSERT_EQ(CodeOf(opened), "NotFound");
  EXPECT_EQ(opened.error().subject, "none");
}

TEST(Open, CurrentBranchIsTheOneOfTheLastSave) {
  const auto store = SmallStore();
  OpenedRepository opened = Open(store).value();
  EXPECT_EQ(Ascii(opened->GetCurentBranch()), "master");
  opened->Checkout(Wide("other"));
  Save(opened).value();
  EXPECT_EQ(Ascii(Open(store).value()->GetCurentBranch()), "other");
}

TEST(Open, CurrentBranchWithoutAHeadIsKept) {
  const auto store = SmallStore();
  store->SetValue("branch", "new").value();
  OpenedRepository opened = Open(store).value();
  EXPECT_EQ(Ascii(opened->GetCurentBranch()), "new");
  EXPECT_TRUE(opened->BranchExist(Wide("new")));
}

TEST(Open, OneFileCostsTheReadsOfItsPath) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  const OpenedRepository opened = Open(store).value();
  store->Restart();
  EXPECT_EQ(TextOf(opened->GetHead()->GetBlob(Wide("a/b/c"))), "deep");
  // The commit, the root, and on the way down a folder or file each, with what is read ahead.
  EXPECT_LE(store->CountCalls(), 8u);
}

TEST(Open, HistoryIsReadInWindowsThatDouble) {
  Repository repository = NewRepository();
  for (int number = 0; number < 1000; ++number) {
    AddCommit(repository, "master", {{"file", std::to_string(number)}});
  }
  const auto memory = StoreOf(repository);
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  const OpenedRepository opened = Open(store).value();
  store->Restart();
  int count = 0;
  for (cow_ptr<Commit> at = opened->GetHead(); at; at = at->GetParent()) ++count;
  EXPECT_EQ(count, 1000);
  EXPECT_LE(store->CountCalls(), 16u);
}

TEST(Open, ListingReadsTheSubfoldersOfAFolderTogether) {
  Repository repository = NewRepository();
  Files files;
  for (int number = 0; number < 100; ++number) {
    files.emplace_back("folder" + std::to_string(number) + "/below/file", "x");
  }
  AddCommit(repository, "master", files);
  const auto memory = StoreOf(repository);
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  const OpenedRepository opened = Open(store).value();
  store->Restart();
  EXPECT_EQ(opened->GetHead()->GetTree()->GetAllBlobPaths().size(), 100u);
  EXPECT_LE(store->CountCalls(), 10u);
}

TEST(Open, HandlesOutliveTheRepositoryAndReadOn) {
  cow_ptr<Commit> head;
  {
    const OpenedRepository opened = Open(SmallStore()).value();
    head = opened->GetHead();
  }
  EXPECT_EQ(ListingOf(head), "a/b/c=deep shared/one=1 shared/two=2 top=master's");
}

TEST(Open, TrimmedRepositoryReadsAgain) {
  OpenedRepository opened = Open(SmallStore()).value();
  const std::string before = HistoryOf(opened.GetRepository());
  opened.Trim();
  EXPECT_EQ(HistoryOf(opened.GetRepository()), before);
}

TEST(Open, MovedRepositoryStaysWhereItIs) {
  OpenedRepository first = Open(SmallStore()).value();
  const Repository* const address = &first.GetRepository();
  const OpenedRepository second = std::move(first);
  EXPECT_EQ(&second.GetRepository(), address);
}

TEST(Open, FailsAsTheStoreDoes) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  store->FailFrom(1);
  store->FailWith(ErrorCode::Denied);
  EXPECT_EQ(CodeOf(Open(store)), "Denied");
  store->Restart();
  store->FailFrom(2);
  EXPECT_EQ(CodeOf(Open(store)), "Denied");
}

TEST(Try, MissingObjectIsDamageAndTheLinkCanBeFollowedLater) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  const OpenedRepository opened = Open(store).value();
  const Id id = opened->GetHead()->GetTree()->GetIdByPath(Wide("top")).value();
  store->FailObject(id, ErrorCode::NotFound);
  const auto read = [&] { return TextOf(opened->GetHead()->GetBlob(Wide("top"))); };
  const Result<std::string> failed = Try(read);
  ASSERT_EQ(CodeOf(failed), "Damaged");
  EXPECT_EQ(failed.error().subject, Ascii(id));
  store->Heal();
  EXPECT_EQ(Try(read).value(), "master's");
}

TEST(Try, ObjectThatTheStoreCannotReadIsUnavailable) {
  const auto memory = SmallStore();
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  const OpenedRepository opened = Open(store).value();
  store->Restart();
  store->FailFrom(1);
  EXPECT_EQ(CodeOf(Try([&] { return opened->GetHead(); })), "Unavailable");
}

TEST(OpenCheck, OfHeadsFindsALostHeadAndReadsNothingBelow) {
  Repository repository = SmallHistory();
  const auto memory = StoreOf(repository);
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  store->FailObject(repository.GetHead(Wide("topic"))->GetId(), ErrorCode::Damaged);
  EXPECT_EQ(CodeOf(Open(store, {.check = OpenCheck::Heads})), "Damaged");
  const OpenedRepository opened =
      Open(store, {.check = OpenCheck::Heads, .policy = DamagePolicy::OpenWhole}).value();
  EXPECT_EQ(opened.GetSavedHeads().size(), 2u);
  EXPECT_EQ(FindBranch(opened.GetReport(), "topic")->state, BranchState::Lost);
  EXPECT_EQ(store->CountReadIds(), 4u);
}

TEST(OpenCheck, CurrentBranchThatWasLeftOutGivesWayToAWholeOne) {
  Repository repository = SmallHistory();
  const auto memory = StoreOf(repository);
  const auto store = std::make_shared<FaultInjectionStore>(*memory);
  store->FailObject(repository.GetHead(Wide("master"))->GetId(), ErrorCode::Damaged);
  const OpenedRepository opened = Load(store, {.policy = DamagePolicy::OpenWhole}).value();
  EXPECT_EQ(Ascii(opened->GetCurentBranch()), "other");
}

TEST(Try, ResultsStayAsTheyAreAndTheirErrorsAreCaught) {
  EXPECT_EQ(Try([] { return Result<int>(3); }).value(), 3);
  EXPECT_TRUE(Try([] {}).ok());
  const Result<int> error = Error{ErrorCode::Full, "disk full", {}, {}, {}, {}};
  EXPECT_EQ(CodeOf(Try([&] { return error.value(); })), "Full");
}

}  // namespace
}  // namespace TalVcs::Kit
