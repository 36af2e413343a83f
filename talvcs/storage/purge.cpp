#include <talvcs/storage/internal/purge_table.h>
#include <talvcs/storage/mem_objects_storage.h>

namespace TalVcs {

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
