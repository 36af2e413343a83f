// Repositories in folders, opened and saved through several store objects.

#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/statistics.h>
#include <kit/open/verify.h>
#include <kit/save_repository.h>
#include <kit/store/directory_object_store.h>
#include <tests/kit/open/clean_up_beside.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/temporary_folder.h>
#include <tests/support/digits.h>

#include <fstream>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

class InAFolder : public testing::Test {
 protected:
  static constexpr bool kIsDurable = false;

  std::shared_ptr<DirectoryObjectStore> Create() {
    return std::make_shared<DirectoryObjectStore>(
        DirectoryObjectStore::Create(m_folder.Path(), {.durable = kIsDurable}).value());
  }
  std::shared_ptr<DirectoryObjectStore> OpenStore() {
    return std::make_shared<DirectoryObjectStore>(
        DirectoryObjectStore::Open(m_folder.Path(), {.durable = kIsDurable}).value());
  }

  TemporaryFolder m_folder;
};

TEST_F(InAFolder, RepositoryComesBackAndIsSavedOn) {
  Repository repository = SmallHistory();
  Save(repository, *Create()).value();
  OpenedRepository opened = Open(OpenStore()).value();
  EXPECT_EQ(HistoryOf(opened.GetRepository()), HistoryOf(repository));
  opened->Checkout(Wide("topic"));
  AddCommit(opened.GetRepository(), "topic", {{"a/b/c", "next"}});
  EXPECT_EQ(Save(opened).value().writtenObjects, 5u);
  const OpenedRepository again = Load(OpenStore()).value();
  EXPECT_EQ(HistoryOf(again.GetRepository()), HistoryOf(opened.GetRepository()));
  EXPECT_EQ(Ascii(again->GetCurentBranch()), "topic");
}

TEST_F(InAFolder, WritersOfOneFolderGetAConflict) {
  Repository repository = SmallHistory();
  Save(repository, *Create()).value();
  OpenedRepository first = Open(OpenStore()).value();
  OpenedRepository second = Open(OpenStore()).value();
  AddCommit(first.GetRepository(), "master", {{"first", "1"}});
  AddCommit(second.GetRepository(), "master", {{"second", "2"}});
  Save(first).value();
  const Result<SaveReport> conflict = Save(second);
  ASSERT_EQ(CodeOf(conflict), "Conflict");
  EXPECT_EQ(conflict.error().heads[0].id, first->GetHead()->GetId());
}

TEST_F(InAFolder, CopyGoesToMemoryAndBack) {
  const auto memory = SmallStore();
  const auto directory = Create();
  Copy(*memory, *directory).value();
  EXPECT_EQ(HeadsOf(*directory), HeadsOf(*memory));
  EXPECT_EQ(ObjectsOf(*directory), ObjectsOf(*memory));
  EXPECT_TRUE(Verify(*directory).value().IsWhole());
  MemoryObjectStore back;
  EXPECT_EQ(Copy(*OpenStore(), back).value().writtenBytes, memory->GetSizeInBytes());
  EXPECT_EQ(ObjectsOf(back), ObjectsOf(*memory));
}

TEST_F(InAFolder, StatisticsAndCleanUpAreThoseOfTheSameStoreInMemory) {
  const auto memory = SmallStore();
  const auto directory = Create();
  Copy(*memory, *directory).value();
  for (IObjectStore* store : std::vector<IObjectStore*>{memory.get(), directory.get()}) {
    store->MoveHeads(std::vector<HeadMove>{{"other", store->Heads().value()[1].id, Id()}}).value();
  }
  const StoreStatistics expected = Statistics(*memory).value();
  const StoreStatistics actual = Statistics(*directory).value();
  EXPECT_EQ(actual.trees, expected.trees);
  EXPECT_EQ(actual.branches[1].own, expected.branches[1].own);
  EXPECT_EQ(actual.unreferenced, expected.unreferenced);
  EXPECT_EQ(CleanUp(*directory).value().count, CleanUp(*memory).value().count);
  EXPECT_EQ(ObjectsOf(*directory), ObjectsOf(*memory));
}

TEST_F(InAFolder, CleanUpDisturbsNeitherReadersNorAWriter) {
  Create();
  CleanUpBeside([this] { return OpenStore(); }).Run(20);
}

TEST_F(InAFolder, OneDamagedRecordIsFoundWithItsPath) {
  Repository repository = SmallHistory();
  Save(repository, *Create()).value();
  const std::string id = Testing::IdOf(repository.GetHead()->GetBlob(Wide("top")));
  const auto path = m_folder.Path() / ".vcs/packs/00000001.pack";
  std::string pack = Testing::ReadWhole(path);
  const std::size_t place = pack.find(Testing::BytesFromDigits(id));
  ASSERT_NE(place, std::string::npos);
  pack[place + 34] = '?';
  ASSERT_TRUE(std::ofstream(path, std::ios::binary) << pack);
  const VerifyReport report = Verify(*OpenStore()).value();
  ASSERT_EQ(report.damageCount, 1u);
  EXPECT_EQ(report.damages[0].path, "top");
  EXPECT_EQ(report.damages[0].branch, "master");
  EXPECT_EQ(CodeOf(Load(OpenStore())), "Damaged");
}

// The check failed as a whole, because the store could not list its objects.
TEST_F(InAFolder, MissingPackIsReportedBranchByBranch) {
  Repository repository = SmallHistory();
  Save(repository, *Create()).value();
  ASSERT_TRUE(std::filesystem::remove(m_folder.Path() / ".vcs/packs/00000001.pack"));
  const VerifyReport report = Verify(*OpenStore()).value();
  ASSERT_EQ(report.branches.size(), 3u);
  for (const BranchReport& branch : report.branches) {
    EXPECT_EQ(branch.state, BranchState::Lost) << branch.name;
  }
  ASSERT_EQ(report.damages.size(), 3u);
  EXPECT_EQ(report.damages[0].branch, "master");
  EXPECT_EQ(report.damages[0].id, repository.GetHead(Wide("master"))->GetId());
  EXPECT_EQ(CodeOf(Load(OpenStore())), ToString(report.damages[0].code));
}

TEST_F(InAFolder, FolderOfTheFormerFormatIsOpened) {
  Repository repository = SmallHistory();
  DirectoryStoreOptions options;
  DirectoryStore former(m_folder.Path(), options);
  ASSERT_TRUE(SaveRepository(repository, former, WideString()));
  ASSERT_TRUE(former.Commit());
  OpenedRepository opened = Open(OpenStore()).value();
  EXPECT_EQ(HistoryOf(opened.GetRepository()), HistoryOf(repository));
  AddCommit(opened.GetRepository(), "master", {{"next", "x"}});
  Save(opened).value();
  EXPECT_EQ(HistoryOf(Open(OpenStore()).value().GetRepository()),
            HistoryOf(opened.GetRepository()));
}

// A folder that wasn't there was an empty document that the next save made final.
TEST_F(InAFolder, FolderThatIsNotThereIsAnError) {
  EXPECT_EQ(CodeOf(DirectoryObjectStore::Open(m_folder.Path() / "none")), "NotFound");
}

}  // namespace
}  // namespace TalVcs::Kit
