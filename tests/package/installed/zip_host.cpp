// A host of the installed store in a zip archive.

#include <stores/zip/zip_store.h>

#include "store_host.h"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  return SaveAndPrint(TalVcs::Kit::ZipStore::Open(arguments[1], {.durable = false}));
}
