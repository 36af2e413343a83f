#pragma once

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

/// Returns the name of a repository that no other test uses.
inline std::string NewRepositoryName() {
  static std::atomic<int> count = 0;
  return "repository " + std::to_string(++count);
}

inline Kit::PostgresStore OpenStore(const std::string& name, Kit::PostgresOptions options = {}) {
  return Kit::PostgresStore::Open(Connection(), name, options).value();
}

}  // namespace TalVcs::Testing
