#pragma once

#include <kit/store/object_store.h>
#include <kit/text.h>

#include <cstdio>

/// Saves one object in a store that was opened, and prints the head.
template <class Store>
int SaveAndPrint(TalVcs::Kit::Result<Store> store) {
  using namespace TalVcs;
  if (!store) return 1;
  Buffer packed;
  packed.Append("blob 5\0hello", 12);
  const Id id(packed);
  if (!store->Write({{Kit::StoredObject{id, packed, Id()}}})) return 1;
  if (!store->MoveHeads({{Kit::HeadMove{"master", Id(), id}}})) return 1;
  const Kit::Result<std::vector<Kit::Head>> heads = store->Heads();
  if (!heads) return 1;
  std::printf("%s\n", Kit::ToUtf8(heads->front().id.View()).c_str());
  return 0;
}
