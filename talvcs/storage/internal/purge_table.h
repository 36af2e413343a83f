#pragma once

#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/objects/internal/tree_access.h>
#include <talvcs/storage/objects_storage.h>

#include <unordered_map>
#include <utility>
#include <vector>

// An object is in use while anybody but its own table entry holds it: a branch, a child commit, a
// tree above, a host. So nothing has to be marked. Each stage sweeps its table once and removes
// what only the table holds; what the removed objects held may be free by then, and is looked at
// again:
//
//   commits:  tip -> parent -> parent ...     up to the first with another child, branch or holder
//   trees:    root -> subtrees ...            those that a tree still in use shares stay
//   blobs:    they hold nothing

namespace TalVcs {

/// Append handles on what `object` holds in memory, before it goes. Entries that another tree
/// shares with it stay held by that one.
inline void CollectReferences(const Commit& commit, std::vector<cow_ptr<Commit>>& released) {
  const cow_ptr<Commit>& parent = CommitAccess::PresentParent(commit);
  if (parent) released.push_back(parent);
}

inline void CollectReferences(const Tree& tree, std::vector<cow_ptr<Tree>>& released) {
  const TreeEntries* list = TreeAccess::Entries(tree);
  if (list == nullptr || !list->holders.IsSole() || list->TreeCount() == 0) return;
  for (const EntryChunk* chunk : list->Chunks()) {
    if (!chunk->holders.IsSole()) continue;
    for (std::size_t index = 0; index < chunk->Count(); ++index) {
      const cow_ptr<Object>& child = chunk->Child(index);
      if (child && chunk->Kind(index) == EntryKind::Tree) released.push_back(child.as<Tree>());
    }
  }
}

inline void CollectReferences(const Blob&, std::vector<cow_ptr<Blob>>&) {}

/// Removes the objects that only the table holds, and then those that become free by it.
///
/// A handle on the work list is a holder itself. Where it is the only one, the object stands in no
/// table and dies with it; where the object's own entry is the other one, the entry goes. An object
/// with several handles on the list is judged by the last of them.
template <class T>
void PurgeTable(std::unordered_map<Id, cow_ptr<T>>& table) {
  std::vector<cow_ptr<T>> released;
  for (auto entry = table.begin(); entry != table.end();) {
    if (entry->second.use_count() != 1) {
      ++entry;
      continue;
    }
    CollectReferences(*entry->second, released);
    entry = table.erase(entry);
  }
  while (!released.empty()) {
    const cow_ptr<T> object = std::move(released.back());
    released.pop_back();
    const long holders = object.use_count();
    if (holders > 2) continue;
    if (holders == 1) {
      CollectReferences(*object, released);
      continue;
    }
    const auto entry = table.find(object->GetId());
    if (entry == table.end() || !(entry->second == object)) continue;
    CollectReferences(*object, released);
    table.erase(entry);
  }
}

}  // namespace TalVcs
