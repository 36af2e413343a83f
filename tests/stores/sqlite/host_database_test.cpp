// A history in a host's database, beside the host's own tables.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/stores/sqlite/raw_file.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

class SqliteHostDatabase : public testing::Test {
 protected:
  void SetUp() override {
    m_host.Execute("PRAGMA synchronous = OFF; CREATE TABLE notes(text)");
    m_store.emplace(Attach(m_host).value());
    ASSERT_TRUE(SaveOldState(*m_store).ok());
  }
  void TearDown() override { m_store.reset(); }

  static Result<SqliteStore> Attach(RawFile& file, const SqliteOptions& options = {},
                                    std::string_view prefix = "history_") {
    return SqliteStore::Attach(file.Connection(), prefix, options);
  }
  /// Describes what another connection sees: the host's rows, then the branches.
  std::string SeenByOthers() {
    RawFile other(m_path);
    std::string text = other.Query("SELECT count(*) FROM notes") + " notes\n";
    SqliteStore store = Attach(other).value();
    return text + DescribeStore(store);
  }

  const TemporaryFolder m_folder;
  const std::filesystem::path m_path = m_folder.Path() / "host.db";
  RawFile m_host{m_path};
  std::optional<SqliteStore> m_store;
};

TEST_F(SqliteHostDatabase, TablesAndHistoryCommitTogether) {
  m_host.Execute("BEGIN; INSERT INTO notes VALUES('new')");
  ASSERT_TRUE(SaveNewState(*m_store).ok());
  EXPECT_EQ(DescribeStore(*m_store), kNewState);
  EXPECT_EQ(SeenByOthers(), "0 notes\n" + kOldState);
  m_host.Execute("COMMIT");
  EXPECT_EQ(SeenByOthers(), "1 notes\n" + kNewState);
}

TEST_F(SqliteHostDatabase, RollbackOfTheHostUndoesTheHistory) {
  ASSERT_TRUE(m_store->SetValue("current", "master").ok());
  m_host.Execute("BEGIN; INSERT INTO notes VALUES('new')");
  ASSERT_TRUE(SaveNewState(*m_store).ok());
  ASSERT_TRUE(m_store->SetValue("current", "topic").ok());
  ASSERT_TRUE(m_store->RemoveUnmarked([](auto) { return std::vector<Id>(); }).ok());
  m_host.Execute("ROLLBACK");
  EXPECT_EQ(DescribeStore(*m_store), kOldState);
  EXPECT_EQ(m_store->Value("current").value(), "master");
  ASSERT_TRUE(SaveNewState(*m_store).ok());
  EXPECT_EQ(SeenByOthers(), "0 notes\n" + kNewState);
}

TEST_F(SqliteHostDatabase, VersionAfterARolledBackOneIsWhole) {
  const StoredObject first = ObjectOf(RandomBytes(3000));
  const StoredObject second = NextVersion(first, "more");
  m_host.Execute("BEGIN");
  ASSERT_TRUE(Save(*m_store, {first}, {}).ok());
  m_host.Execute("ROLLBACK");
  ASSERT_TRUE(Save(*m_store, {second}, {}).ok());
  SqliteStore again = Attach(m_host).value();
  EXPECT_EQ(DescribeObject(again, second.id), "3004 bytes");
}

TEST_F(SqliteHostDatabase, VersionAfterOneThatWasRolledBackAndWrittenByAnotherIsWhole) {
  const StoredObject first = ObjectOf(RandomBytes(3000));
  const StoredObject second = NextVersion(first, "more");
  const StoredObject third = NextVersion(second, "more");
  StoredObject alone = second;
  alone.previous = Id();
  m_host.Execute("BEGIN");
  ASSERT_TRUE(Save(*m_store, {alone}, {}).ok());
  m_host.Execute("ROLLBACK");
  SqliteStore other = Attach(m_host).value();
  ASSERT_TRUE(Save(other, {first, second}, {}).ok());
  ASSERT_TRUE(Save(*m_store, {third}, {}).ok());
  SqliteStore again = Attach(m_host).value();
  EXPECT_EQ(DescribeObject(again, third.id), "3008 bytes");
}

// A removal encodes what loses its base anew. That is undone with it.
TEST_F(SqliteHostDatabase, VersionsAfterAnUndoneRemovalAreWhole) {
  const char* const refuse =
      "CREATE TRIGGER no BEFORE DELETE ON history_objects WHEN old.number = (SELECT max(number) - 2"
      " FROM history_objects) BEGIN SELECT RAISE(ABORT, 'no'); END";
  for (const bool by_host : {false, true}) {
    std::vector<StoredObject> versions{ObjectOf(RandomBytes(3000, by_host ? 2 : 3))};
    while (versions.size() < 10) versions.push_back(NextVersion(versions.back(), "more"));
    ASSERT_TRUE(Save(*m_store, versions, {}).ok());
    m_host.Execute(by_host ? "BEGIN" : refuse);
    const Result<RemovedObjects> removed = m_store->RemoveUnmarked([&](auto) {
      return std::vector<Id>{kOld.id, kShared.id, versions[5].id, versions[9].id};
    });
    EXPECT_EQ(removed.ok(), by_host);
    m_host.Execute(by_host ? "ROLLBACK" : "DROP TRIGGER no");
    for (int count = 0; count < 6; ++count) {
      versions.push_back(NextVersion(versions[versions.size() - (count == 3 ? 5 : 1)], "more"));
      ASSERT_TRUE(Save(*m_store, {versions.back()}, {}).ok());
    }
    SqliteStore again = Attach(m_host).value();
    for (const StoredObject& version : versions) {
      EXPECT_EQ(DescribeObject(again, version.id),
                std::to_string(version.packed.GetSize()) + " bytes");
    }
  }
}

TEST_F(SqliteHostDatabase, TriggerThatIgnoresAChangeLetsItFail) {
  ASSERT_TRUE(m_store->SetValue("current", "master").ok());
  for (const std::string table : {"objects", "heads", "host_values", "meta"}) {
    for (const std::string change : {"INSERT", "UPDATE", "DELETE"}) {
      SCOPED_TRACE(change + " " + table);
      const std::string trigger = "CREATE TRIGGER no BEFORE " + change + " ON history_" + table +
                                  " BEGIN SELECT RAISE(IGNORE); END";
      m_host.Execute(trigger.c_str());
      const Status status = SaveNewState(*m_store);
      const bool is_head = table == "heads" || table == "meta";
      if (is_head || (table == "objects" && change == "INSERT")) {
        EXPECT_EQ(status.ok(), table == "meta" && change == "DELETE");
      }
      EXPECT_EQ(status ? ErrorCode::Denied : status.error().code, ErrorCode::Denied);
      if (table == "host_values" && change != "DELETE") {
        EXPECT_EQ(m_store->SetValue("current", "topic").error().code, ErrorCode::Denied);
      }
      m_host.Execute("DROP TRIGGER no");
      SqliteStore again = Attach(m_host).value();
      EXPECT_EQ(DescribeStore(again), status ? kNewState : kOldState);
      EXPECT_EQ(again.Value("current").value(), "master");
      if (status) {
        ASSERT_TRUE(Save(*m_store, {kOld, kShared},
                         {{"master", kNew.id, kOld.id},
                          {"large", kLarge.id, Id()},
                          {"topic", Id(), kShared.id}})
                        .ok());
      }
    }
  }
}

TEST_F(SqliteHostDatabase, FailedMoveKeepsTheTransactionOfTheHost) {
  m_host.Execute("BEGIN; INSERT INTO notes VALUES('new')");
  ASSERT_TRUE(m_store->Write({{kNew}}).ok());
  EXPECT_EQ(m_store->MoveHeads({{HeadMove{"master", kNew.id, kOld.id}}}).error().code,
            ErrorCode::Conflict);
  m_host.Execute("COMMIT");
  EXPECT_EQ(SeenByOthers(), "1 notes\n" + kOldState);
}

TEST_F(SqliteHostDatabase, ReadingStatementOfTheHostGoesOnAfterASave) {
  m_host.Execute("INSERT INTO notes VALUES(1), (2), (3)");
  sqlite3_stmt* rows = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(m_host.Connection(), "SELECT text FROM notes", -1, &rows, nullptr),
            SQLITE_OK);
  ASSERT_EQ(sqlite3_step(rows), SQLITE_ROW);
  EXPECT_TRUE(SaveNewState(*m_store).ok());
  EXPECT_EQ(m_store->MoveHeads({{HeadMove{"master", kOld.id, kNew.id}}}).error().code,
            ErrorCode::Conflict);
  EXPECT_EQ(sqlite3_step(rows), SQLITE_ROW);
  EXPECT_EQ(sqlite3_step(rows), SQLITE_ROW);
  EXPECT_EQ(sqlite3_step(rows), SQLITE_DONE);
  EXPECT_EQ(sqlite3_finalize(rows), SQLITE_OK);
  EXPECT_EQ(SeenByOthers(), "3 notes\n" + kNewState);
}

TEST_F(SqliteHostDatabase, WritingStatementOfTheHostMakesASaveBusy) {
  sqlite3_stmt* rows = nullptr;
  ASSERT_EQ(
      sqlite3_prepare_v2(m_host.Connection(), "INSERT INTO notes VALUES(1), (2) RETURNING text", -1,
                         &rows, nullptr),
      SQLITE_OK);
  for (const bool is_in_transaction : {false, true}) {
    if (is_in_transaction) m_host.Execute("BEGIN");
    ASSERT_EQ(sqlite3_step(rows), SQLITE_ROW);
    EXPECT_EQ(SaveNewState(*m_store).error().code, ErrorCode::Busy);
    EXPECT_EQ(DescribeStore(*m_store), kOldState);
    ASSERT_EQ(sqlite3_reset(rows), SQLITE_OK);
  }
  m_host.Execute("COMMIT");
  EXPECT_EQ(sqlite3_finalize(rows), SQLITE_OK);
  EXPECT_TRUE(SaveNewState(*m_store).ok());
  EXPECT_EQ(SeenByOthers(), "4 notes\n" + kNewState);
}

TEST_F(SqliteHostDatabase, SettingsOfTheConnectionStay) {
  const std::string settings =
      "SELECT * FROM pragma_synchronous, pragma_journal_mode, pragma_busy_timeout,"
      " pragma_cell_size_check, pragma_trusted_schema, pragma_user_version, pragma_application_id,"
      " pragma_page_size, pragma_auto_vacuum, pragma_secure_delete";
  RawFile host(m_folder.Path() / "other.db");
  host.Execute("CREATE TABLE notes(text)");
  const std::string before = host.Query(settings);
  {
    SqliteStore store = Attach(host, {.durable = true,
                                      .journalMode = SqliteJournalMode::WriteAheadLog,
                                      .secureDelete = true})
                            .value();
    ASSERT_TRUE(SaveOldState(store).ok());
    EXPECT_EQ(host.Query(settings), before);
  }
  EXPECT_EQ(host.Query(settings), before);
}

TEST_F(SqliteHostDatabase, TwoPrefixesAreTwoHistories) {
  SqliteStore other = Attach(m_host, {}, "").value();
  EXPECT_EQ(DescribeStore(other), "");
  ASSERT_TRUE(SaveOldState(other).ok());
  ASSERT_TRUE(SaveNewState(other).ok());
  EXPECT_EQ(DescribeStore(other), kNewState);
  EXPECT_EQ(DescribeStore(*m_store), kOldState);
  EXPECT_EQ(m_host.Query("SELECT name FROM heads"), "large\nmaster");
  EXPECT_EQ(m_host.Query("SELECT name FROM history_heads"), "master\ntopic");
}

TEST_F(SqliteHostDatabase, TemporaryTableOfTheSameNameIsNotUsed) {
  m_host.Execute(
      "CREATE TEMP TABLE b_objects(number, id, size, encoding, data);"
      "CREATE TEMP TABLE b_heads(name, id); CREATE TEMP TABLE b_meta(name, value)");
  SqliteStore store = Attach(m_host, {}, "b_").value();
  ASSERT_TRUE(SaveOldState(store).ok());
  EXPECT_EQ(DescribeStore(store), kOldState);
  EXPECT_EQ(m_host.Query("SELECT count(*) FROM temp.b_objects"), "0");
}

TEST_F(SqliteHostDatabase, PrefixThatNoTableCanHaveIsRefused) {
  for (const std::string prefix : {"a b", "1a", "sqlite_a", "SQLite_a", "a\"", "a$", "\xC3\xA9"}) {
    const Result<SqliteStore> store = Attach(m_host, {}, prefix);
    ASSERT_FALSE(store.ok()) << prefix;
    EXPECT_EQ(store.error().code, ErrorCode::BadName) << prefix;
  }
  EXPECT_EQ(Attach(m_host, {}, std::string(65, 'a')).error().code, ErrorCode::BadName);
  EXPECT_TRUE(Attach(m_host, {}, std::string(64, 'a')).ok());
  const Result<SqliteStore> nowhere = SqliteStore::Attach(nullptr, "a");
  EXPECT_EQ(nowhere.error().code, ErrorCode::BadName);
  EXPECT_THAT(nowhere.error().message, testing::HasSubstr("there is no connection"));
}

// The first save into such a database made its list of branches damaged.
TEST_F(SqliteHostDatabase, DatabaseOfUtf16IsRefusedAndUnchanged) {
  RawFile host(m_folder.Path() / "utf16.db");
  host.Execute("PRAGMA encoding = 'UTF-16'; CREATE TABLE notes(text)");
  const Result<SqliteStore> store = Attach(host);
  ASSERT_FALSE(store.ok());
  EXPECT_EQ(store.error().code, ErrorCode::Unsupported);
  EXPECT_THAT(store.error().message, testing::HasSubstr("UTF-16"));
  EXPECT_EQ(host.Query("SELECT name FROM sqlite_schema"), "notes");
}

TEST_F(SqliteHostDatabase, TriggerOrHookThatRefusesAChangeIsNoDamage) {
  m_host.Execute(
      "CREATE TRIGGER no BEFORE INSERT ON history_objects BEGIN SELECT RAISE(ABORT, 'no'); END");
  EXPECT_EQ(SaveNewState(*m_store).error().code, ErrorCode::Denied);
  m_host.Execute("DROP TRIGGER no");
  sqlite3_commit_hook(
      m_host.Connection(), [](void*) { return 1; }, nullptr);
  EXPECT_EQ(SaveNewState(*m_store).error().code, ErrorCode::Denied);
  sqlite3_commit_hook(m_host.Connection(), nullptr, nullptr);
  EXPECT_EQ(DescribeStore(*m_store), kOldState);
  EXPECT_TRUE(SaveNewState(*m_store).ok());
  EXPECT_EQ(DescribeStore(*m_store), kNewState);
}

TEST_F(SqliteHostDatabase, InterruptByTheHostIsACancellation) {
  sqlite3_progress_handler(
      m_host.Connection(), 1, [](void*) { return 1; }, nullptr);
  EXPECT_EQ(m_store->Heads().error().code, ErrorCode::Cancelled);
  EXPECT_EQ(SaveNewState(*m_store).error().code, ErrorCode::Cancelled);
  sqlite3_progress_handler(m_host.Connection(), 0, nullptr, nullptr);
  EXPECT_EQ(DescribeStore(*m_store), kOldState);
}

TEST_F(SqliteHostDatabase, TablesAreMadeOnlyOnRequest) {
  EXPECT_EQ(Attach(m_host, {.create = false}, "none_").error().code, ErrorCode::NotFound);
  EXPECT_EQ(Attach(m_host, {.readOnly = true}, "none_").error().code, ErrorCode::NotFound);
  SqliteStore store = Attach(m_host, {.readOnly = true}).value();
  EXPECT_EQ(DescribeStore(store), kOldState);
  EXPECT_EQ(store.SetValue("current", "master").error().code, ErrorCode::Denied);
}

TEST_F(SqliteHostDatabase, OtherTablesAndNewerVersionsAreRefused) {
  m_host.Execute("CREATE TABLE bad_heads(name, id)");
  EXPECT_EQ(Attach(m_host, {}, "bad_").error().code, ErrorCode::Damaged);
  m_host.Execute("UPDATE history_meta SET value = 3 WHERE name = 'version'");
  EXPECT_EQ(Attach(m_host).error().code, ErrorCode::Unsupported);
  EXPECT_EQ(SaveNewState(*m_store).error().code, ErrorCode::Unsupported);
}

TEST_F(SqliteHostDatabase, AnotherWriterMakesASaveBusy) {
  RawFile other(m_path);
  other.Execute("BEGIN IMMEDIATE");
  EXPECT_EQ(SaveNewState(*m_store).error().code, ErrorCode::Busy);
  m_host.Execute("BEGIN; SELECT * FROM notes");
  EXPECT_EQ(SaveNewState(*m_store).error().code, ErrorCode::Busy);
  m_host.Execute("ROLLBACK");
  other.Execute("ROLLBACK");
  EXPECT_TRUE(SaveNewState(*m_store).ok());
}

TEST_F(SqliteHostDatabase, HistoryIsCopiedIntoADocument) {
  const std::filesystem::path target = m_folder.Path() / "document.tal";
  ASSERT_TRUE(m_store->CompactInto(target).ok());
  EXPECT_EQ(DescribeFile(target), kOldState);
  EXPECT_EQ(RawFile(target).Query("SELECT count(*) FROM sqlite_schema WHERE name = 'notes'"), "0");
}

}  // namespace
}  // namespace TalVcs::Kit
