// The roles of docs/sharing.md, made by its own statements.

#include <kit/store/gradual_removal.h>
#include <stores/postgres/postgres_store.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/postgres/server.h>
#include <tests/support/bytes.h>

#include <chrono>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::Connection;
using Testing::OpenStore;
using Testing::Sql;

/// Returns the statements of the document.
std::string StatementsOfRoles() {
  const std::string text = Testing::ReadWhole(TALVCS_SHARING_DOCUMENT);
  const std::size_t begin = text.find("```sql\n") + 7;
  return text.substr(begin, text.find("```", begin) - begin);
}

/// A repository with one branch, and users of each role.
class PostgresRoles : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    OpenStore("roles");
    Sql(StatementsOfRoles());
    for (const std::string role : {"reader", "writer", "cleaner"}) {
      Sql("CREATE ROLE " + role + " LOGIN IN ROLE talvcs_" + role);
    }
    Sql("CREATE ROLE repairer LOGIN IN ROLE talvcs_writer, talvcs_cleaner");
  }

  PostgresRoles() {
    PostgresStore owner = OpenStore(m_name);
    EXPECT_TRUE(owner.Write({{m_one, m_two}}).ok());
    EXPECT_TRUE(owner.MoveHeads({{HeadMove{"master", Id(), m_one.id}}}).ok());
  }

  PostgresStore OpenAs(const std::string& user) const {
    return PostgresStore::Open(Connection(user), m_name).value();
  }

  static StoredObject ObjectOf(const std::string& packed) {
    const Buffer buffer = Testing::BufferOf(packed);
    return {Id(buffer), buffer};
  }

  template <class AnyResult>
  static void ExpectDenied(const AnyResult& result) {
    ASSERT_FALSE(result.ok());
    EXPECT_STREQ(ToString(result.error().code), "Denied");
  }

  /// Runs a statement as that user and returns whether the server did it.
  static bool MayRun(const std::string& user, const std::string& statement) {
    PGconn* const server = PQconnectdb(Connection(user).c_str());
    PGresult* const result = PQexec(server, ("BEGIN; " + statement + "; ROLLBACK").c_str());
    const bool is_done = PQresultStatus(result) == PGRES_COMMAND_OK;
    PQclear(result);
    PQfinish(server);
    return is_done;
  }

  static Result<RemovedObjects> CleanUpBy(PostgresStore& store, std::vector<Id> kept) {
    return RemoveGradually(
        store, [&](std::span<const Head>) -> Result<std::vector<Id>> { return kept; },
        std::chrono::milliseconds(0));
  }

  const std::string m_name = Testing::NewRepositoryName();
  const StoredObject m_one = ObjectOf("one");
  const StoredObject m_two = ObjectOf("two");
  const StoredObject m_new = ObjectOf("new");
};

TEST_F(PostgresRoles, ReaderReadsAndChangesNothing) {
  PostgresStore store = OpenAs("reader");
  EXPECT_EQ(store.Heads().value().size(), 1U);
  EXPECT_EQ(store.Missing({{m_one.id, m_new.id}}).value().size(), 1U);
  EXPECT_EQ(store.Value("name").value(), std::nullopt);
  ExpectDenied(store.Write({&m_new, 1}));
  ExpectDenied(store.MoveHeads({{HeadMove{"master", m_one.id, m_two.id}}}));
  ExpectDenied(store.SetValue("name", "value"));
  ExpectDenied(CleanUpBy(store, {m_one.id}));
  ExpectDenied(store.RemoveUnmarked([](auto) { return std::vector<Id>(); }));
  ExpectDenied(PostgresStore::Open(Connection("reader"), "a new repository"));
}

TEST_F(PostgresRoles, WriterSavesAndRemovesNothing) {
  PostgresStore store = OpenAs("writer");
  ASSERT_TRUE(store.Write({&m_new, 1}).ok());
  ASSERT_TRUE(
      store.MoveHeads({{HeadMove{"master", m_one.id, m_new.id}, HeadMove{"topic", Id(), m_one.id}}})
          .ok());
  ASSERT_TRUE(store.MoveHeads({{HeadMove{"topic", m_one.id, Id()}}}).ok());
  EXPECT_TRUE(store.SetValue("name", "value").ok());
  ExpectDenied(CleanUpBy(store, {m_one.id}));
  ExpectDenied(store.RemoveUnmarked([](auto) { return std::vector<Id>(); }));
  ExpectDenied(PostgresStore::Open(Connection("writer"), "a new repository"));
  for (const std::string statement :
       {"DELETE FROM talvcs.objects", "UPDATE talvcs.objects SET data = ''",
        "DELETE FROM talvcs.pieces", "UPDATE talvcs.repositories SET epoch = 0",
        "UPDATE talvcs.meta SET version = 9", "DROP TABLE talvcs.heads",
        "TRUNCATE talvcs.condemned", "CREATE TABLE talvcs.more ()"}) {
    EXPECT_FALSE(MayRun("writer", statement)) << statement;
  }
}

TEST_F(PostgresRoles, WriterSavesACondemnedObject) {
  PostgresStore owner = OpenStore(m_name);
  ASSERT_TRUE(RemoveGradually(
                  owner, [&](auto) -> Result<std::vector<Id>> { return std::vector{m_one.id}; },
                  std::chrono::hours(1))
                  .ok());
  PostgresStore store = OpenAs("writer");
  EXPECT_EQ(store.Missing({{m_two.id}}).value().size(), 1U);
  ASSERT_TRUE(store.Write({&m_two, 1}).ok());
  EXPECT_TRUE(store.MoveHeads({{HeadMove{"topic", Id(), m_two.id}}}).ok());
  EXPECT_EQ(CleanUpBy(owner, {m_one.id, m_two.id}).value().count, 0U);
}

TEST_F(PostgresRoles, RepairNeedsTheRightsOfWriterAndCleaner) {
  PostgresStore writer = OpenAs("writer");
  ExpectDenied(writer.Replace({&m_one, 1}));
  PostgresStore cleaner = OpenAs("cleaner");
  ExpectDenied(cleaner.Replace({&m_one, 1}));
  PostgresStore both = OpenAs("repairer");
  EXPECT_TRUE(both.Replace({{m_one, m_new}}).ok());
  EXPECT_TRUE(both.Missing({{m_one.id, m_new.id}}).value().empty());
}

TEST_F(PostgresRoles, CleanerRemovesAndSavesNothing) {
  PostgresStore store = OpenAs("cleaner");
  EXPECT_EQ(CleanUpBy(store, {m_one.id}).value().count, 1U);
  EXPECT_EQ(store.RemoveUnmarked([&](auto) { return std::vector{m_one.id}; }).value().count, 0U);
  ExpectDenied(store.Write({&m_new, 1}));
  ExpectDenied(store.MoveHeads({{HeadMove{"master", m_one.id, m_two.id}}}));
  ExpectDenied(store.SetValue("name", "value"));
  for (const std::string statement :
       {"INSERT INTO talvcs.objects VALUES (1, '\\x00', 0, 0, 0, '')",
        "UPDATE talvcs.objects SET data = ''", "DELETE FROM talvcs.heads",
        "UPDATE talvcs.heads SET target = ''", "TRUNCATE talvcs.objects"}) {
    EXPECT_FALSE(MayRun("cleaner", statement)) << statement;
  }
}

}  // namespace
}  // namespace TalVcs::Kit
