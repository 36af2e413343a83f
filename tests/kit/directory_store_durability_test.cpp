#include <gtest/gtest.h>
#include <kit/directory_store.h>
#include <kit/internal/store_access.h>
#include <tests/kit/faulty_file_system.h>
#include <tests/kit/saved_states.h>
#include <tests/kit/temporary_folder.h>

#include <algorithm>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;
using Testing::Describe;

class DirectoryStoreDurability : public testing::Test {
 protected:
  bool SaveState(bool durable = true) {
    DirectoryStoreOptions options;
    options.durable = durable;
    DirectoryStore store = StoreAccess::Make(m_folder.Path(), options, m_files);
    const bool done = Save(m_state, store) && store.Commit();
    m_error = store.LastError();
    m_isInPlace = store.IsNewStateInPlace();
    return done;
  }

  /// Index of the first call of that name, or of the number of calls.
  std::ptrdiff_t First(const std::string& call) const {
    return std::find(m_files->Log().begin(), m_files->Log().end(), call) - m_files->Log().begin();
  }
  std::ptrdiff_t Last(const std::string& name) const {
    std::ptrdiff_t last = -1;
    for (std::size_t index = 0; index < m_files->Log().size(); ++index) {
      if (m_files->Log()[index].starts_with(name)) last = static_cast<std::ptrdiff_t>(index);
    }
    return last;
  }

  /// The file of the newest commit, which is written like those of the other objects.
  std::string NameOfHead() const { return IdOf(*m_state.GetHead(Wide("new"))).substr(2); }

  TemporaryFolder m_folder;
  std::shared_ptr<FaultyFileSystem> m_files = std::make_shared<FaultyFileSystem>();
  Repository m_state = NewState();
  std::string m_error;
  bool m_isInPlace = false;
};

TEST_F(DirectoryStoreDurability, ObjectsAreSyncedBeforeTheStateIsReplaced) {
  ASSERT_TRUE(SaveState());
  EXPECT_LT(First("Rename state"), First("CreateFile " + NameOfHead()));
  const std::ptrdiff_t commit = Last("Rename state");
  EXPECT_EQ(commit, Last("Rename"));
  const std::ptrdiff_t objects = static_cast<std::ptrdiff_t>(
      m_state.GetCommitCount() + m_state.GetTreeCount() + m_state.GetBlobCount());
  EXPECT_EQ(m_files->CallsOf("SyncFile"), objects + 2);
  EXPECT_LT(Last("SyncFile"), commit);
  EXPECT_LT(Last("CreateFile"), commit);
  EXPECT_LT(Last("CreateFile state.new"), Last("SyncFile state.new"));
  EXPECT_LT(First("SyncFolder .vcs"), First("CreateFile " + NameOfHead()));
  EXPECT_LT(First("SyncFolder objects"), commit);
  EXPECT_EQ(Last("SyncFolder .vcs"), commit + 1);
}

TEST_F(DirectoryStoreDurability, FoldersWithNewNamesAreSynced) {
  ASSERT_TRUE(SaveState());
  for (const auto& entry :
       std::filesystem::directory_iterator(m_folder.Path() / ".vcs" / "objects")) {
    EXPECT_EQ(m_files->CallsOf("SyncFolder " + entry.path().filename().string()), 1);
  }
  EXPECT_EQ(m_files->CallsOf("SyncFolder " + m_folder.Path().filename().string()), 1);
}

TEST_F(DirectoryStoreDurability, ManyObjectsAreSyncedByOneCall) {
  m_files->OfferSyncMedium();
  ASSERT_TRUE(SaveState());
  EXPECT_EQ(m_files->CallsOf("SyncMedium"), 1);
  EXPECT_EQ(m_files->CallsOf("SyncFile"), 2);
  EXPECT_LT(First("SyncMedium .vcs"), Last("CreateFile state.new"));
}

TEST_F(DirectoryStoreDurability, FewObjectsAreSyncedOneByOne) {
  m_files->OfferSyncMedium();
  ASSERT_TRUE(SaveState());
  CommitFile(m_state, Wide("master"), "top", "text");
  m_files->Restart();
  ASSERT_TRUE(SaveState());
  EXPECT_EQ(m_files->CallsOf("SyncMedium"), 0);
  EXPECT_EQ(m_files->CallsOf("SyncFile"), 4);
}

TEST_F(DirectoryStoreDurability, WithoutTheOptionNothingIsSynced) {
  m_files->OfferSyncMedium();
  ASSERT_TRUE(SaveState(false));
  EXPECT_EQ(m_files->CallsOf("Sync"), 0);
}

TEST_F(DirectoryStoreDurability, NewStateThatMayNotOutliveALossOfPowerIsReported) {
  ASSERT_TRUE(SaveState());
  m_files->FailFrom(static_cast<int>(Last("SyncFolder .vcs")) + 1);
  m_files->Restart();
  std::filesystem::remove_all(m_folder.Path() / ".vcs");
  EXPECT_FALSE(SaveState());
  EXPECT_NE(m_error.find("in place"), std::string::npos) << m_error;
  EXPECT_TRUE(m_isInPlace);
  DirectoryStore reader(m_folder.Path());
  EXPECT_EQ(Load(reader), Describe(m_state));
}

TEST_F(DirectoryStoreDurability, FailedReplacementOfTheStateIsReported) {
  ASSERT_TRUE(SaveState());
  EXPECT_TRUE(m_isInPlace);
  const int rename = static_cast<int>(Last("Rename state"));
  std::filesystem::remove_all(m_folder.Path() / ".vcs");
  m_files->FailFrom(rename + 1);
  m_files->Restart();
  EXPECT_FALSE(SaveState());
  EXPECT_NE(m_error.find("cannot replace"), std::string::npos) << m_error;
  EXPECT_FALSE(m_isInPlace);
}

TEST_F(DirectoryStoreDurability, NothingIsInPlaceBeforeTheFirstCommitAndDuringTheNext) {
  DirectoryStore store = StoreAccess::Make(m_folder.Path(), {}, m_files);
  EXPECT_FALSE(store.IsNewStateInPlace());
  ASSERT_TRUE(Save(m_state, store));
  EXPECT_FALSE(store.IsNewStateInPlace());
  ASSERT_TRUE(store.Commit());
  EXPECT_TRUE(store.IsNewStateInPlace());
  ASSERT_TRUE(Save(m_state, store));
  EXPECT_FALSE(store.IsNewStateInPlace());
  store.Abandon();
  EXPECT_FALSE(store.IsNewStateInPlace());
}

}  // namespace
}  // namespace TalVcs::Kit
