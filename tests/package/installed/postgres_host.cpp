// A host of the installed store on a PostgreSQL server, without a server.

#include <stores/postgres/postgres_store.h>

#include <chrono>
#include <cstdio>

using namespace TalVcs;

int main() {
  const Kit::Result<Kit::PostgresStore> store = Kit::PostgresStore::Open(
      "host=/nonexistent", "host", {.connectTimeout = std::chrono::milliseconds(1)});
  if (store) return 1;
  std::printf("%s\n", Kit::ToString(store.error().code));
  return 0;
}
