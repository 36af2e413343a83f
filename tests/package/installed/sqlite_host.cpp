// A host of the installed store in a SQLite file.

#include <stores/sqlite/sqlite_store.h>

#include "store_host.h"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  return SaveAndPrint(TalVcs::Kit::SqliteStore::Open(arguments[1], {.durable = false}));
}
