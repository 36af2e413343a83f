#include <gtest/gtest.h>
#include <kit/text.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/sqlite/documents.h>
#include <tests/stores/sqlite/raw_file.h>

#include <chrono>
#include <filesystem>
#include <string>

#ifndef _WIN32
#include <tests/support/child_process.h>
#endif

namespace TalVcs::Kit {
namespace {

using namespace Testing;

class SqliteOpen : public testing::Test {
 protected:
  Result<SqliteStore> Open(SqliteOptions options = {}) {
    options.busyTimeout = std::chrono::milliseconds(20);
    options.durable = false;
    return SqliteStore::Open(m_path, options);
  }
  /// Opens the document and describes it.
  std::string State(const SqliteOptions& options = {}) {
    SqliteStore store = Open(options).value();
    return DescribeStore(store);
  }
  void SaveDocument() {
    SqliteStore store = Open().value();
    ASSERT_TRUE(SaveOldState(store).ok());
  }
  void ExpectFails(ErrorCode code, const std::string& reason, const SqliteOptions& options = {}) {
    const Result<SqliteStore> store = Open(options);
    ASSERT_FALSE(store.ok());
    EXPECT_EQ(store.error().code, code) << Describe(store.error());
    EXPECT_NE(store.error().message.find(reason), std::string::npos) << store.error().message;
    EXPECT_EQ(store.error().subject, m_path.string());
  }

  const TemporaryFolder m_folder;
  std::filesystem::path m_path = m_folder.Path() / "document.tal";
};

TEST_F(SqliteOpen, MissingFileBecomesAnEmptyDocument) {
  EXPECT_EQ(State(), "");
  EXPECT_EQ(State({.create = false}), "");
}

TEST_F(SqliteOpen, MissingFileIsNotFoundUnlessItIsToBeMade) {
  ExpectFails(ErrorCode::NotFound, "no such file", {.create = false});
  ExpectFails(ErrorCode::NotFound, "no such file", {.readOnly = true});
  EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(SqliteOpen, MissingFolderIsNotFound) {
  m_path = m_folder.Path() / "missing" / "document.tal";
  ExpectFails(ErrorCode::NotFound, "no such file");
}

TEST_F(SqliteOpen, EmptyFileBecomesADocumentIfItIsToBeMade) {
  WriteWhole(m_path, "");
  ExpectFails(ErrorCode::NotFound, "it is empty", {.create = false});
  ExpectFails(ErrorCode::NotFound, "it is empty", {.readOnly = true});
  SaveDocument();
  EXPECT_EQ(State(), kOldState);
}

TEST_F(SqliteOpen, NamesWithAMeaningForSqliteAreNamesOfFiles) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(m_folder.Path());
  for (const char* name : {":memory:", "file:name?mode=memory", "a'b\"c;--"}) {
    EXPECT_TRUE(SqliteStore::Open(name, {.durable = false}).ok()) << name;
    EXPECT_TRUE(std::filesystem::exists(m_folder.Path() / name)) << name;
  }
  std::filesystem::current_path(before);
  EXPECT_EQ(SqliteStore::Open("").error().code, ErrorCode::NotFound);
}

TEST_F(SqliteOpen, FolderIsNotADocument) {
  std::filesystem::create_directory(m_path);
  ExpectFails(ErrorCode::Unsupported, "it is not a file");
}

// The texts had the bytes of the name.
TEST_F(SqliteOpen, TextsOfAnErrorAreUtf8) {
  m_path = m_folder.Path() / "\xff" / "document.tal";
  const Result<SqliteStore> store = Open();
  ASSERT_FALSE(store.ok());
  EXPECT_TRUE(ToWideExactly(store.error().message)) << store.error().message;
  EXPECT_TRUE(store.error().subject.ends_with("/\xEF\xBF\xBD/document.tal"));
}

TEST_F(SqliteOpen, FileOfAnotherKindIsRefusedAndUnchanged) {
  const std::string text = "A letter, not a document." + std::string(2000, '\n');
  WriteWhole(m_path, text);
  ExpectFails(ErrorCode::Damaged, "it isn't a document");
  EXPECT_EQ(ReadWhole(m_path), text);
}

TEST_F(SqliteOpen, FileOfAnotherApplicationIsRefused) {
  RawFile(m_path).Execute("PRAGMA application_id = 7; CREATE TABLE heads(name, id)");
  ExpectFails(ErrorCode::Unsupported, "belongs to another application");
}

TEST_F(SqliteOpen, FileWithTablesOfAnUnknownApplicationIsRefused) {
  RawFile(m_path).Execute("CREATE TABLE notes(text)");
  ExpectFails(ErrorCode::Unsupported, "belongs to another application");
}

TEST_F(SqliteOpen, FileOfANewerVersionIsRefused) {
  SaveDocument();
  RawFile(m_path).Execute("PRAGMA user_version = 3");
  ExpectFails(ErrorCode::Unsupported, "its version is 3, but this build knows versions up to 2");
}

TEST_F(SqliteOpen, FileWithoutAVersionIsDamaged) {
  SaveDocument();
  RawFile(m_path).Execute("PRAGMA user_version = 0");
  ExpectFails(ErrorCode::Damaged, "no valid version");
}

TEST_F(SqliteOpen, MarksOfTheFileAreThoseOfTheFormat) {
  SaveDocument();
  const std::string bytes = ReadWhole(m_path);
  EXPECT_EQ(bytes.substr(0, 16), std::string("SQLite format 3\0", 16));
  EXPECT_EQ(bytes.substr(16, 2), std::string("\x02\x00", 2));
  EXPECT_EQ(bytes.substr(60, 4), std::string("\0\0\0\x02", 4));
  EXPECT_EQ(bytes.substr(68, 4), "TalV");
}

TEST_F(SqliteOpen, DocumentWithoutItsTablesIsDamaged) {
  SaveDocument();
  RawFile(m_path).Execute("DROP TABLE heads");
  ExpectFails(ErrorCode::Damaged, "its tables aren't those of a document");
}

TEST_F(SqliteOpen, ViewInPlaceOfATableIsNotRead) {
  SaveDocument();
  RawFile(m_path).Execute(
      "ALTER TABLE heads RENAME TO others; CREATE VIEW heads AS SELECT * FROM others");
  ExpectFails(ErrorCode::Damaged, "its tables aren't those of a document");
}

TEST_F(SqliteOpen, TriggerInTheFileDoesNotRun) {
  SaveDocument();
  RawFile(m_path).Execute(
      "CREATE TRIGGER t AFTER INSERT ON objects BEGIN DELETE FROM host_values; END");
  SqliteStore store = Open().value();
  ASSERT_TRUE(store.SetValue("current", "master").ok());
  ASSERT_TRUE(SaveNewState(store).ok());
  EXPECT_EQ(store.Value("current").value(), "master");
}

void ExpectReadsAndRefusesChanges(SqliteStore store) {
  EXPECT_EQ(DescribeStore(store), kOldState);
  EXPECT_EQ(store.Missing({{kOld.id, kNew.id}}).value(), std::vector<Id>{kNew.id});
  EXPECT_FALSE(store.Value("current").value());
  EXPECT_EQ(store.Write({{kNew}}).error().code, ErrorCode::Denied);
  EXPECT_EQ(store.MoveHeads({{HeadMove{"master", kOld.id, Id()}}}).error().code, ErrorCode::Denied);
  EXPECT_EQ(store.SetValue("current", "master").error().code, ErrorCode::Denied);
  EXPECT_EQ(store.RemoveUnmarked([](auto) { return std::vector<Id>(); }).error().code,
            ErrorCode::Denied);
  EXPECT_EQ(DescribeStore(store), kOldState);
  EXPECT_TRUE(store.Close().ok());
}

TEST_F(SqliteOpen, DocumentOpenedReadOnlyRefusesChanges) {
  SaveDocument();
  ExpectReadsAndRefusesChanges(Open({.readOnly = true}).value());
}

#ifndef _WIN32
TEST_F(SqliteOpen, DocumentWithoutTheRightToWriteRefusesChanges) {
  using std::filesystem::perms;
  SaveDocument();
  const perms reading = perms::owner_read | perms::group_read | perms::others_read;
  const perms entering = perms::owner_exec | perms::group_exec | perms::others_exec;
  std::filesystem::permissions(m_path, reading);
  std::filesystem::permissions(m_folder.Path(), reading | entering);
  const int code = InChild([this] {
    std::filesystem::current_path(m_folder.Path());
    m_path = "document.tal";
    if (BecomeOrdinaryUser()) {
      ExpectReadsAndRefusesChanges(Open().value());
      m_path = std::filesystem::current_path() / "new.tal";
      ExpectFails(ErrorCode::Denied, "no permission to make it");
    } else {
      EXPECT_EQ(State(), kOldState) << "a superuser who cannot become another user";
    }
    return HasFailure() ? 1 : 0;
  });
  std::filesystem::permissions(m_folder.Path(), perms::owner_all);
  EXPECT_EQ(code, 0);
}
#endif

TEST_F(SqliteOpen, OpeningWaitsForAWriterUpToTheTimeout) {
  SaveDocument();
  RawFile writer(m_path);
  writer.Execute("BEGIN EXCLUSIVE");
  ExpectFails(ErrorCode::Busy, "another program is using it");
  writer.Execute("COMMIT");
  EXPECT_EQ(State(), kOldState);
}

}  // namespace
}  // namespace TalVcs::Kit
