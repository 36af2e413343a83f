// A save in which any one call to the system fails, or after which nothing works any more.

#include <gtest/gtest.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/store/failing_memory.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/stores/sqlite/raw_file.h>
#include <tests/stores/sqlite/simulated_disk.h>

#include <functional>
#include <set>
#include <string>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

constexpr char kFile[] = "/document.tal";

/// A disk on which the old state was saved and is on the medium, and how changes are saved.
class SqliteFaults : public testing::TestWithParam<SqliteJournalMode> {
 protected:
  static Result<SqliteStore> Open() {
    return SqliteStore::Open(
        kFile, {.busyTimeout = std::chrono::milliseconds(0), .journalMode = GetParam()});
  }

  void StartFromOldState() {
    m_disk.emplace();
    SqliteStore store = Open().value();
    ASSERT_TRUE(SaveOldState(store).ok());
    ASSERT_TRUE(store.Close().ok());
    m_disk->Restart(SimulatedDisk::Unsynced::Dropped);
    ASSERT_EQ(DescribeFile(kFile), kOldState);
    m_disk->CountFromHere();
  }

  /// Opens the file and saves the new state.
  static Status SaveOnce() {
    Result<SqliteStore> store = Open();
    return store ? SaveNewState(*store) : Status(std::move(store).error());
  }

  std::uint64_t CallsOfSave() {
    StartFromOldState();
    EXPECT_TRUE(SaveOnce().ok());
    const std::uint64_t calls = m_disk->Calls();
    EXPECT_GT(calls, 40U);
    return calls;
  }

  /// Loses power at each call of a save in turn, and after the last.
  void LosePowerEverywhere(SimulatedDisk::Unsynced unsynced, unsigned seed) {
    const std::uint64_t calls = CallsOfSave();
    std::set<std::string> found;
    for (std::uint64_t call = 0; call <= calls; ++call) {
      StartFromOldState();
      m_disk->LosePower(call);
      const bool ended = SaveOnce().ok();
      m_disk->Restart(unsynced, seed);
      const std::string state = DescribeFile(kFile);
      ASSERT_TRUE(state == kNewState || (!ended && state == kOldState))
          << "call " << call << " of " << calls << ", saved " << ended << ": " << state;
      found.insert(state);
    }
    EXPECT_EQ(found, (std::set<std::string>{kNewState, kOldState}));
  }

  std::optional<SimulatedDisk> m_disk;
};

TEST_P(SqliteFaults, SaveIsDoneOrNotWhenAnyOneCallFails) {
  const std::uint64_t calls = CallsOfSave();
  std::set<ErrorCode> codes;
  for (std::uint64_t call = 0; call < calls; ++call) {
    SCOPED_TRACE("call " + std::to_string(call) + " of " + std::to_string(calls));
    StartFromOldState();
    m_disk->FailOnce(call);
    const Status status = SaveOnce();
    ASSERT_TRUE(m_disk->HasFailed());
    const std::string state = DescribeFile(kFile);
    if (status) {
      ASSERT_EQ(state, kNewState);
      continue;
    }
    codes.insert(status.error().code);
    ASSERT_TRUE(state == kOldState ||
                (state == kNewState && status.error().code == ErrorCode::Unknown))
        << Describe(status.error()) << "\n"
        << state;
    if (state == kOldState) {
      ASSERT_TRUE(SaveOnce().ok());
    }
    ASSERT_EQ(DescribeFile(kFile), kNewState);
  }
  EXPECT_EQ(codes, (std::set<ErrorCode>{ErrorCode::Unavailable, ErrorCode::Unknown}));
}

TEST_P(SqliteFaults, SameStoreObjectSavesAfterAnyOneCallFailed) {
  const std::uint64_t calls = CallsOfSave();
  std::uint64_t failed = 0;
  for (std::uint64_t call = 0; call < calls; ++call) {
    SCOPED_TRACE("call " + std::to_string(call) + " of " + std::to_string(calls));
    StartFromOldState();
    SqliteStore store = Open().value();
    m_disk->FailOnce(call);
    if (!SaveNewState(store)) ++failed;
    m_disk->FailOnce(~std::uint64_t{0} / 2);
    if (DescribeStore(store) == kOldState) {
      ASSERT_TRUE(SaveNewState(store).ok());
    }
    ASSERT_EQ(DescribeStore(store), kNewState);
    ASSERT_TRUE(store.Close().ok());
    ASSERT_EQ(DescribeFile(kFile), kNewState);
  }
  EXPECT_GT(failed, 10U);
}

TEST_P(SqliteFaults, ReadSaysThatTheSystemFailed) {
  StartFromOldState();
  m_disk->FailOnce(~std::uint64_t{0} / 2);
  ASSERT_EQ(DescribeFile(kFile), kOldState);
  const std::uint64_t calls = m_disk->Calls();
  ASSERT_GT(calls, 10U);
  std::uint64_t failed = 0;
  for (std::uint64_t call = 0; call < calls; ++call) {
    StartFromOldState();
    m_disk->FailOnce(call);
    const std::string state = DescribeFile(kFile);
    if (state != kOldState) {
      EXPECT_NE(state.find("Unavailable"), std::string::npos) << call << ": " << state;
      ++failed;
    }
    EXPECT_EQ(DescribeFile(kFile), kOldState) << call;
  }
  EXPECT_GT(failed, 10U);
}

TEST_P(SqliteFaults, FullDiskLeavesTheOldStateAndIsReported) {
  StartFromOldState();
  SqliteStore store = Open().value();
  m_disk->SetFull(true);
  const Status status = SaveNewState(store);
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().code, ErrorCode::Full);
  EXPECT_EQ(DescribeStore(store), kOldState);
  m_disk->SetFull(false);
  EXPECT_TRUE(store.MoveHeads({{HeadMove{"master", kOld.id, kNew.id}}}).ok());
  EXPECT_EQ(DescribeStore(store), "master: of the new state\ntopic: shared by both states\n");
}

TEST_P(SqliteFaults, LossOfPowerLeavesOldOrNewStateIfUnsyncedChangesAreDropped) {
  LosePowerEverywhere(SimulatedDisk::Unsynced::Dropped, 0);
}

TEST_P(SqliteFaults, LossOfPowerLeavesOldOrNewStateIfUnsyncedChangesAreKept) {
  LosePowerEverywhere(SimulatedDisk::Unsynced::Kept, 0);
}

TEST_P(SqliteFaults, LossOfPowerLeavesOldOrNewStateIfSomeUnsyncedChangesAreKept) {
  const unsigned seeds = GetParam() == SqliteJournalMode::Rollback ? 20 : 5;
  for (unsigned seed = 1; seed <= seeds; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    LosePowerEverywhere(SimulatedDisk::Unsynced::Random, seed);
  }
}

TEST_P(SqliteFaults, SaveThatSucceededOutlivesALossOfPowerRightAfterIt) {
  StartFromOldState();
  SqliteStore store = Open().value();
  ASSERT_TRUE(SaveNewState(store).ok());
  m_disk->LosePower(0);
  m_disk->Restart(SimulatedDisk::Unsynced::Dropped);
  EXPECT_EQ(DescribeFile(kFile), kNewState);
}

TEST_P(SqliteFaults, LossOfPowerWhileADocumentIsMadeLeavesNoneOrAnEmptyOne) {
  m_disk.emplace();
  ASSERT_TRUE(Open().ok());
  const std::uint64_t calls = m_disk->Calls();
  ASSERT_GT(calls, 20U);
  for (std::uint64_t call = 0; call < calls; ++call) {
    m_disk.emplace();
    m_disk->LosePower(call);
    [[maybe_unused]] const bool made = Open().ok();
    EXPECT_TRUE(m_disk->HasFailed()) << call;
    m_disk->Restart(SimulatedDisk::Unsynced::Random, static_cast<unsigned>(call));
    EXPECT_EQ(DescribeFile(kFile, {}), "") << call;
  }
}

TEST_P(SqliteFaults, LossOfPowerWhileADocumentIsUpdatedLeavesOldOrNewState) {
  std::uint64_t calls = ~std::uint64_t{0};
  for (std::uint64_t call = 0; call <= calls; ++call) {
    m_disk.emplace();
    {
      RawFile file(kFile);
      MakeFirstVersion(file);
    }
    m_disk->CountFromHere();
    m_disk->LosePower(call);
    const bool ended = SaveOnce().ok();
    if (ended && !m_disk->HasFailed()) calls = call;
    m_disk->Restart(SimulatedDisk::Unsynced::Random, static_cast<unsigned>(call));
    const std::string state = DescribeFile(kFile);
    ASSERT_TRUE(state == kNewState || (!ended && state == kOldState)) << call << ": " << state;
  }
  EXPECT_GT(calls, 40U);
}

INSTANTIATE_TEST_SUITE_P(Rollback, SqliteFaults, testing::Values(SqliteJournalMode::Rollback));
INSTANTIATE_TEST_SUITE_P(WriteAheadLog, SqliteFaults,
                         testing::Values(SqliteJournalMode::WriteAheadLog));

// Opening ended the program, and so did destructors that roll back or write what is left.
TEST(SqliteMemory, SaveThatRunsOutOfItLeavesTheDocument) {
  for (const auto mode : {SqliteJournalMode::Rollback, SqliteJournalMode::WriteAheadLog}) {
    SaveWhileMemoryRunsOut(13, [mode](const std::filesystem::path& path) {
      return SqliteStore::Open(path, {.durable = false, .journalMode = mode});
    });
  }
}

}  // namespace
}  // namespace TalVcs::Kit
