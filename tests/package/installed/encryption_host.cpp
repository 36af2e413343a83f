// A host of the installed encryption.

#include <kit/store/memory_object_store.h>
#include <kit/text.h>
#include <stores/encryption/encrypted_store.h>

#include <cstdio>
#include <memory>

using namespace TalVcs;

int main() {
  const auto memory = std::make_shared<Kit::MemoryObjectStore>();
  Kit::Result<Kit::EncryptedStore> store =
      Kit::EncryptedStore::Create(memory, "password", {.memoryBytes = 8192, .passes = 1});
  if (!store) return 1;
  Buffer packed;
  packed.Append("blob 5\0hello", 12);
  const Id id(packed);
  if (!store->Write({{Kit::StoredObject{id, packed}}})) return 1;
  if (!store->MoveHeads({{Kit::HeadMove{"master", Id(), id}}})) return 1;
  Kit::Result<Kit::EncryptedStore> again = Kit::EncryptedStore::Open(memory, "password");
  if (!again) return 1;
  const Kit::Result<std::vector<Kit::Head>> heads = again->Heads();
  if (!heads) return 1;
  std::printf("%s\n", Kit::ToUtf8(heads->front().id.View()).c_str());
  return 0;
}
