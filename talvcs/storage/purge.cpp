#include <talvcs/objects/commit_access.h>
#include <talvcs/objects/tree_walk.h>
#include <talvcs/storage/mem_objects_storage.h>

#include <utility>

// An object is in use while anybody but its own table entry holds it: a branch, a child commit, a
// tree above, a host. So nothing has to be marked. Each stage sweeps its table once and removes what
// only the table holds; what the removed objects held may be free by then, and is looked at again:
//
//   commits:  tip -> parent -> parent ...     up to the first with another child, branch or holder
//   trees:    root -> subtrees ...            those that a tree still in use shares stay
//   blobs:    they hold nothing

namespace TalVcs {

namespace {

constexpr long kSoleHolder = 1;
constexpr long kTableAndOneMore = 2;

// Append the ids of the objects that may be free once `object` is gone: those that the table and one
// more hold. What `object` alone holds stands in no table and dies with it, so the search goes on
// below that.
void CollectReferences(const Commit& commit, std::vector<Id>& ids) {
  const cow_ptr<Commit>* parent = &CommitAccess::Parent(commit);
  while (parent->use_count() == kSoleHolder) parent = &CommitAccess::Parent(**parent);
  if (parent->use_count() == kTableAndOneMore) ids.push_back(CommitAccess::GetId(**parent));
}

void CollectReferences(const Tree& tree, std::vector<Id>& ids) {
  std::vector<const Tree*> dying{&tree};
  while (!dying.empty()) {
    EntryCursor cursor(TreeAccess::Entries(*dying.back()));
    dying.pop_back();
    while (!cursor.AtEnd()) {
      const NamedEntries entries = cursor.Take();
      const Tree* subtree = entries.TreeObject();
      if (subtree == nullptr) continue;
      if (entries.tree->use_count() == kTableAndOneMore) ids.push_back(subtree->GetId());
      if (entries.tree->use_count() == kSoleHolder) dying.push_back(subtree);
    }
  }
}

void CollectReferences(const Blob&, std::vector<Id>&) {}

template <class T>
void PurgeTable(std::unordered_map<Id, cow_ptr<T>>& table) {
  std::vector<Id> to_visit;
  for (auto entry = table.begin(); entry != table.end();) {
    if (entry->second.use_count() != kSoleHolder) {
      ++entry;
      continue;
    }
    CollectReferences(*entry->second, to_visit);
    entry = table.erase(entry);
  }
  while (!to_visit.empty()) {
    const auto found = table.find(to_visit.back());
    to_visit.pop_back();
    if (found == table.end() || found->second.use_count() != kSoleHolder) continue;
    CollectReferences(*found->second, to_visit);
    table.erase(found);
  }
}

}  // namespace

void MemObjectsStorage::DeleteCommit(cow_ptr<Commit> commit) {
  if (!commit) return;
  const Id id = commit->GetId();
  const IObjectsStorage& self = *this;
  if (self.GetCommit(id)) m_commits.erase(id);
}

void MemObjectsStorage::PurgeUnusedObjects() {
  PurgeTable(m_commits);
  PurgeTable(m_trees);
  PurgeTable(m_blobs);
}

}  // namespace TalVcs
