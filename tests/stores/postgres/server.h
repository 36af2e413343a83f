#pragma once

#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <stores/postgres/postgres_store.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>

/// The server that with_server.py has started for this program.
namespace TalVcs::Testing {

/// Returns the connection to its database, with an optional user.
inline std::string Connection(const std::string& user = {}) {
  const char* const text = std::getenv("TALVCS_POSTGRES");
  std::string connection = text == nullptr ? "the test runs without with_server.py" : text;
  if (!user.empty()) connection += " user=" + user;
  return connection;
}

/// Runs a statement and returns its first value; a failure is one of the test.
inline std::string Sql(const std::string& text, const std::string& connection = Connection()) {
  PGconn* const server = PQconnectdb(connection.c_str());
  PGresult* const result = PQexec(server, text.c_str());
  const ExecStatusType status = PQresultStatus(result);
  EXPECT_TRUE(status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK) << PQerrorMessage(server);
  const std::string value = PQntuples(result) > 0 ? PQgetvalue(result, 0, 0) : "";
  PQclear(result);
  PQfinish(server);
  return value;
}

/// Returns the name of a repository that no other test uses.
inline std::string NewRepositoryName() {
  static std::atomic<int> count = 0;
  return "repository " + std::to_string(++count);
}

inline Kit::PostgresStore OpenStore(const std::string& name, Kit::PostgresOptions options = {}) {
  return Kit::PostgresStore::Open(Connection(), name, options).value();
}

}  // namespace TalVcs::Testing
