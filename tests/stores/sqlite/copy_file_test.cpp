// Files that are in the way of a copy or a salvage, both of which are made in a file beside the new
// document.

#include <gtest/gtest.h>
#include <kit/open/copy.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/temporary_folder.h>

#include <filesystem>
#include <string>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

namespace fs = std::filesystem;

class SqliteCopies : public testing::Test {
 protected:
  void SetUp() override {
    SqliteStore store = SqliteStore::Open(m_document, {.durable = false}).value();
    Repository repository = SmallHistory();
    Copy(*StoreOf(repository), store).value();
    store.Close().value();
    m_bytes = ReadWhole(m_document);
  }

  fs::path Target(const std::string& ending = {}) const {
    return m_folder.Path() / ("new.tal" + ending);
  }
  static Status CopyTo(const fs::path& target, const fs::path& document) {
    return SqliteStore::Open(document, {.create = false, .durable = false})
        .value()
        .CompactInto(target);
  }
  static void ExpectDenied(const Error& error, const fs::path& subject) {
    EXPECT_EQ(error.code, ErrorCode::Denied);
    EXPECT_EQ(error.subject, subject.string());
  }

  TemporaryFolder m_folder;
  const fs::path m_document = m_folder.Path() / "document.tal";
  std::string m_bytes;
};

// SQLite would undo or redo, in the new document, what it finds in the journal or the log of a
// former one.
TEST_F(SqliteCopies, GetNoNameBesideWhichAJournalOrALogLies) {
  for (const std::string ending : {"", "-journal", "-wal", "-shm"}) {
    SCOPED_TRACE(ending);
    const fs::path left = Target(ending);
    WriteWhole(left, "of a former file");
    ExpectDenied(CopyTo(Target(), m_document).error(), left);
    ExpectDenied(SqliteStore::Salvage(m_document, Target()).error(), left);
    EXPECT_EQ(ReadWhole(left), "of a former file");
    fs::remove(left);
    EXPECT_FALSE(fs::exists(Target()));
  }
  EXPECT_TRUE(CopyTo(Target(), m_document).ok());
  EXPECT_EQ(ReadWhole(m_document), m_bytes);
}

// A compaction that was killed leaves these, so that a copy replaces them. What a salvage finds
// there may be all that is left of a document.
TEST_F(SqliteCopies, FilesOfAnEarlierOneAreReplacedByACopyAlone) {
  for (const std::string ending : {"-compact", "-compact-journal"}) {
    SCOPED_TRACE(ending);
    const fs::path left = Target(ending);
    WriteWhole(left, "of a copy");
    ExpectDenied(SqliteStore::Salvage(m_document, Target()).error(), left);
    EXPECT_EQ(ReadWhole(left), "of a copy");
    EXPECT_TRUE(CopyTo(Target(), m_document).ok());
    EXPECT_FALSE(fs::exists(left));
    fs::remove(Target());
  }
}

TEST_F(SqliteCopies, DocumentWithTheNameOfTheCopyStays) {
  for (const std::string ending : {"-compact", "-compact-journal"}) {
    SCOPED_TRACE(ending);
    const fs::path source = Target(ending);
    fs::rename(m_document, source);
    ExpectDenied(CopyTo(Target(), source).error(), Target());
    ExpectDenied(SqliteStore::Salvage(source, Target()).error(), source);
    EXPECT_EQ(ReadWhole(source), m_bytes);
    EXPECT_FALSE(fs::exists(Target()));
    fs::rename(source, m_document);
  }
}

TEST_F(SqliteCopies, SalvageOfNoFileIsRefused) {
  for (const fs::path& source : {m_folder.Path() / "none", m_folder.Path()}) {
    const Result<SqliteSalvage> salvage = SqliteStore::Salvage(source, Target());
    EXPECT_EQ(salvage.error().code, ErrorCode::NotFound);
    EXPECT_FALSE(fs::exists(Target()));
  }
}

}  // namespace
}  // namespace TalVcs::Kit
