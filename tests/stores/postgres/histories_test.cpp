// Histories on a server: how they are opened and read, what tables of an older version lack, how
// damage is mended; and connections that are encrypted.

#include <kit/open/copy.h>
#include <kit/open/open.h>
#include <kit/open/repair.h>
#include <kit/open/save.h>
#include <kit/store/cache_store.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/recording_store.h>
#include <kit/text.h>
#include <kit/workspace/workspace.h>
#include <stores/postgres/postgres_store.h>
#include <tests/kit/open/histories.h>
#include <tests/stores/postgres/server.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace TalVcs::Testing {
namespace {

using Kit::PostgresStore;

/// Returns letters that don't get much shorter by compression.
std::string RandomText(std::size_t size) {
  std::mt19937 random(7);
  std::string text;
  while (text.size() < size) text.push_back(static_cast<char>('A' + random() % 58));
  return text;
}

/// A repository of three branches on the server, which the memory has as well.
class PostgresHistories : public testing::Test {
 protected:
  void SetUp() override {
    Kit::Copy(*m_memory, *m_store).value();
    ASSERT_TRUE(m_store->SetValue("branch", "topic").ok());
  }

  Id HeadOf(const std::string& branch) const {
    for (const Kit::Head& head : m_memory->Heads().value()) {
      if (head.name == branch) return head.id;
    }
    return Id();
  }
  /// Returns the ids that `ReadHistory` passes, and the names of errors.
  std::vector<std::string> Read(const Id& id, std::uint64_t most) const {
    std::vector<std::string> found;
    EXPECT_TRUE(m_store
                    ->ReadHistory(id, most,
                                  [&](const Id& commit, Kit::Result<Buffer> packed) {
                                    found.push_back(packed ? Ascii(commit)
                                                           : Kit::ToString(packed.error().code));
                                  })
                    .ok());
    return found;
  }
  /// Returns the ids of a history, newest first, from the store in memory.
  std::vector<std::string> Wanted(const Id& id, std::uint64_t most) const {
    std::vector<std::string> wanted;
    EXPECT_TRUE(m_memory
                    ->ReadHistory(id, most,
                                  [&](const Id& commit, const Kit::Result<Buffer>&) {
                                    wanted.push_back(Ascii(commit));
                                  })
                    .ok());
    return wanted;
  }
  void Change(const std::string& set, const std::string& where) const {
    Sql("UPDATE talvcs.objects SET " + set + " WHERE " + where + " AND repository = (SELECT " +
        "number FROM talvcs.repositories WHERE name = '" + m_name + "')");
  }

  Repository m_source = SmallHistory();
  const std::shared_ptr<Kit::MemoryObjectStore> m_memory = StoreOf(m_source);
  const std::string m_name = NewRepositoryName();
  const std::shared_ptr<PostgresStore> m_store = std::make_shared<PostgresStore>(OpenStore(m_name));
};

TEST_F(PostgresHistories, HistoryIsReadAsLongAsItIsWanted) {
  const Id head = HeadOf("master");
  ASSERT_EQ(Wanted(head, 9).size(), 3U);
  EXPECT_EQ(Read(head, 9), Wanted(head, 9));
  EXPECT_EQ(Read(head, 2), Wanted(head, 2));
  EXPECT_TRUE(Read(head, 0).empty());
}

TEST_F(PostgresHistories, HistoryEndsAtWhatIsNoCommit) {
  EXPECT_EQ(Read(Id(Wide(std::string(64, 'a'))), 9), std::vector<std::string>{"NotFound"});
  EXPECT_EQ(Read(Id(Wide("no id")), 9), std::vector<std::string>{"NotFound"});
  Change("data = '\\x'", "parent IS NOT NULL");
  EXPECT_EQ(Read(HeadOf("master"), 9), std::vector<std::string>{"Damaged"});
}

TEST_F(PostgresHistories, WrongParentInARowLeadsNowhere) {
  Change("parent = id", "parent IS NOT NULL");
  EXPECT_EQ(Read(HeadOf("master"), 9), Wanted(HeadOf("master"), 9));
}

TEST_F(PostgresHistories, LargeCommitIsReadWithItsAncestors) {
  const cow_ptr<Commit> head =
      AddCommit(m_source, "master", {{"top", "next"}}, RandomText(2000000));
  const cow_ptr<Commit> last = AddCommit(m_source, "master", {{"top", "last"}});
  Kit::Copy(*StoreOf(m_source), *m_store).value();
  const std::vector<std::string> found = Read(last->GetId(), 9);
  ASSERT_EQ(found.size(), 5U);
  EXPECT_EQ(found[1], Ascii(head->GetId()));
  EXPECT_EQ(found[4], Wanted(HeadOf("master"), 9).back());
}

TEST_F(PostgresHistories, OpeningReturnsBranchesHeadAndRootAtOnce) {
  const auto ids = [](const Kit::StoreOpening& opening) {
    std::set<std::string> found;
    for (const Kit::StoredObject& object : opening.objects) found.insert(Ascii(object.id));
    return found;
  };
  const auto head_and_root = [this](const std::string& branch) {
    const cow_ptr<Commit> head = m_source.GetHead(Wide(branch));
    return std::set<std::string>{Ascii(head->GetId()), Ascii(head->GetTree()->GetRootId())};
  };
  const Kit::StoreOpening noted = m_store->ReadOpening("", "branch", "master").value();
  EXPECT_EQ(noted.heads, m_memory->Heads().value());
  EXPECT_EQ(noted.value, "topic");
  EXPECT_EQ(ids(noted), head_and_root("topic"));
  const Kit::StoreOpening named = m_store->ReadOpening("other", "branch", "master").value();
  EXPECT_EQ(ids(named), head_and_root("other"));
  const Kit::StoreOpening plain = m_store->ReadOpening("", "none", "master").value();
  EXPECT_EQ(plain.value, std::nullopt);
  EXPECT_EQ(ids(plain), head_and_root("master"));
  EXPECT_TRUE(m_store->ReadOpening("absent", "branch", "master").value().objects.empty());
}

// Branches with the newest version and its root folder; the folder; the file.
TEST_F(PostgresHistories, CacheOverTheServerOpensAndReadsWithTheCallsOfTheServerAlone) {
  const auto log_of = [](const std::shared_ptr<Kit::RecordingStore>& far,
                         const std::shared_ptr<Kit::IObjectStore>& store) {
    Kit::Workspace workspace = Kit::Workspace::Open(store, {.branch = "master"}).value();
    EXPECT_EQ(workspace.Read("dir/deep").value().text(), "far below");
    return far->GetLog();
  };
  AddCommit(m_source, "master", {{"dir/deep", "far below"}});
  Kit::Copy(*StoreOf(m_source), *m_store).value();
  const auto alone = std::make_shared<Kit::RecordingStore>(m_store);
  const std::vector<std::string> wanted{"ReadOpening branch", "Read 1", "Read 1"};
  EXPECT_EQ(log_of(alone, alone), wanted);
  const auto cache = std::make_shared<Kit::MemoryObjectStore>();
  for (const std::vector<std::string>& log :
       {wanted, std::vector<std::string>{"ReadOpening branch"}}) {
    const auto far = std::make_shared<Kit::RecordingStore>(m_store);
    EXPECT_EQ(log_of(far, std::make_shared<Kit::CacheStore>(cache, far)), log);
  }
}

TEST_F(PostgresHistories, OpenedRepositoryIsTheOneOfTheMemory) {
  const Kit::OpenedRepository opened = Kit::Open(m_store).value();
  EXPECT_EQ(Ascii(opened.GetRepository().GetCurentBranch()), "topic");
  EXPECT_EQ(HistoryOf(opened.GetRepository()), HistoryOf(m_source));
}

TEST_F(PostgresHistories, TablesOfVersion1AreUpgradedAndTheirHistoriesRead) {
  Sql("CREATE DATABASE older");
  const std::string connection = Connection() + " dbname=older";
  const auto open = [&](bool create) {
    return PostgresStore::Open(connection, "document", {.create = create});
  };
  {
    PostgresStore store = open(true).value();
    Kit::Copy(*m_memory, store).value();
  }
  Sql("ALTER TABLE talvcs.objects DROP COLUMN parent, DROP COLUMN root", connection);
  Sql("UPDATE talvcs.meta SET version = 1", connection);
  EXPECT_EQ(open(false).error().code, Kit::ErrorCode::NotFound);
  auto store = std::make_shared<PostgresStore>(open(true).value());
  EXPECT_EQ(Sql("SELECT version FROM talvcs.meta", connection), "2");
  EXPECT_EQ(HistoryOf(Kit::Open(store).value().GetRepository()), HistoryOf(m_source));
}

TEST_F(PostgresHistories, RepairReplacesWhatIsDamagedAndAddsWhatIsMissing) {
  Change("data = '\\x00ff'", "parent IS NULL");
  Sql("DELETE FROM talvcs.objects WHERE parent IS NOT NULL AND repository = (SELECT number FROM " +
      std::string("talvcs.repositories WHERE name = '") + m_name + "')");
  const Kit::RepairReport report = Kit::Repair(*m_store, *m_memory).value();
  EXPECT_TRUE(report.IsWhole());
  EXPECT_EQ(report.repairedObjects, m_memory->GetCount());
  EXPECT_EQ(HistoryOf(Kit::Open(m_store).value().GetRepository()), HistoryOf(m_source));
  EXPECT_EQ(Read(HeadOf("master"), 9), Wanted(HeadOf("master"), 9));
}

// TLS

std::string CertifiedBy(const std::string& certificate) {
  return std::string(std::getenv("TALVCS_POSTGRES_TLS")) +
         " sslrootcert=" + std::getenv("TALVCS_POSTGRES_CERTIFICATES") + "/" + certificate;
}

TEST(PostgresTls, ServerWithTheRightCertificateIsUsed) {
  ASSERT_TRUE(PostgresStore::Open(CertifiedBy("server.crt"), NewRepositoryName()).ok());
  EXPECT_EQ(
      Sql("SELECT ssl FROM pg_stat_ssl WHERE pid = pg_backend_pid()", CertifiedBy("server.crt")),
      "t");
}

TEST(PostgresTls, ServerOfAnotherAuthorityOrNameIsRefused) {
  const Kit::PostgresOptions options{.connectTimeout = std::chrono::milliseconds(500)};
  const auto cause = [&](const std::string& connection) {
    const auto store = PostgresStore::Open(connection, NewRepositoryName(), options);
    EXPECT_EQ(store.error().code, Kit::ErrorCode::Unavailable);
    return store.error().cause;
  };
  EXPECT_NE(cause(CertifiedBy("other.crt")).find("certificate verify failed"), std::string::npos);
  EXPECT_NE(cause(CertifiedBy("server.crt") + " host=elsewhere.example").find("elsewhere.example"),
            std::string::npos);
}

}  // namespace
}  // namespace TalVcs::Testing
