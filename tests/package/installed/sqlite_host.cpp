// A host of the installed store in a SQLite file.

#include <kit/text.h>
#include <stores/sqlite/sqlite_store.h>

#include <cstdio>

using namespace TalVcs;

int main(int count, char** arguments) {
  if (count != 2) return 2;
  Kit::Result<Kit::SqliteStore> store = Kit::SqliteStore::Open(arguments[1], {.durable = false});
  if (!store) return 1;
  Buffer packed;
  packed.Append("blob 5\0hello", 12);
  const Id id(packed);
  if (!store->Write({{Kit::StoredObject{id, packed}}})) return 1;
  if (!store->MoveHeads({{Kit::HeadMove{"master", Id(), id}}})) return 1;
  const Kit::Result<std::vector<Kit::Head>> heads = store->Heads();
  if (!heads) return 1;
  std::printf("%s\n", Kit::ToUtf8(heads->front().id.View()).c_str());
  return 0;
}
