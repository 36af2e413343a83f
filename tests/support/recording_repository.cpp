#include <tests/support/recording_repository.h>

#include <talvcs/merge/resolvers.h>
#include <tests/support/text.h>

#include <utility>

namespace TalVcs::Testing {

template <class T>
cow_ptr<T> RecordingRepository::Find(const Table<T>& table, const Id& id) const {
  const auto found = table.find(Ascii(id));
  return found == table.end() ? nullptr : found->second;
}

template <class T>
cow_ptr<T> RecordingRepository::Sync(Table<T>& table, cow_ptr<T> object) {
  if (!object) return nullptr;
  if (cow_ptr<T> stored = Find(table, object->GetId())) return stored;
  if (m_mode == Mode::Lose) return nullptr;
  if (m_mode == Mode::Store) table.emplace(Ascii(object->GetId()), object);
  return object;
}

bool RecordingRepository::Refuse(const char* call) const {
  Note(call);
  return false;
}

cow_ptr<Commit> RecordingRepository::DoCommit(Commit& commit) {
  Note("DoCommit");
  m_head = Sync(m_commits, cow_ptr<Commit>(dll_wrapped_shared(std::make_unique<Commit>(commit))));
  return m_head;
}

cow_ptr<Commit> RecordingRepository::GetHead(TalStringViewT<WideChar>) const {
  Note("GetHead(branch)");
  return m_head;
}

cow_ptr<Commit> RecordingRepository::GetHead() const {
  Note("GetHead");
  return m_head;
}

TalStringT<WideChar> RecordingRepository::GetCurentBranch() const {
  Note("GetCurentBranch");
  return TAL_WIDE("master");
}

cow_ptr<Commit> RecordingRepository::GetCommitFromStorage(const Id& id) const {
  Note("GetCommitFromStorage");
  return Find(m_commits, id);
}

cow_ptr<Tree> RecordingRepository::GetTreeFromStorage(const Id& id) const {
  Note("GetTreeFromStorage");
  return Find(m_trees, id);
}

cow_ptr<Blob> RecordingRepository::GetBlobFromStorage(const Id& id) const {
  Note("GetBlobFromStorage");
  return Find(m_blobs, id);
}

cow_ptr<Blob> RecordingRepository::SyncWithStorage(cow_ptr<Blob> blob) {
  Note("SyncWithStorage(blob)");
  return Sync(m_blobs, std::move(blob));
}

cow_ptr<Tree> RecordingRepository::SyncWithStorage(cow_ptr<Tree> tree) {
  Note("SyncWithStorage(tree)");
  return Sync(m_trees, std::move(tree));
}

cow_ptr<Commit> RecordingRepository::SyncWithStorage(cow_ptr<Commit> commit) {
  Note("SyncWithStorage(commit)");
  return Sync(m_commits, std::move(commit));
}

bool RecordingRepository::DeleteCommits(cow_ptr<Commit>) { return Refuse("DeleteCommits"); }
bool RecordingRepository::SimplifyCommitGraph(bool) { return Refuse("SimplifyCommitGraph"); }
void RecordingRepository::UpdateStorage() { Note("UpdateStorage"); }

cow_ptr<Commit> RecordingRepository::GetCommonBase(cow_ptr<Commit>, cow_ptr<Commit>) const {
  Note("GetCommonBase");
  return nullptr;
}

bool RecordingRepository::Checkout(TalStringViewT<WideChar>) { return Refuse("Checkout"); }
bool RecordingRepository::CreateBranch(TalStringViewT<WideChar>, cow_ptr<Commit>) {
  return Refuse("CreateBranch");
}
bool RecordingRepository::BranchExist(TalStringViewT<WideChar>) { return Refuse("BranchExist"); }
bool RecordingRepository::MoveBranchTo(TalStringViewT<WideChar>, cow_ptr<Commit>) {
  return Refuse("MoveBranchTo");
}
bool RecordingRepository::RemoveBranch(TalStringViewT<WideChar>) { return Refuse("RemoveBranch"); }
bool RecordingRepository::EnsureCommonRootFor(TalStringViewT<WideChar>, TalStringViewT<WideChar>,
                                              TalStringViewT<WideChar>) {
  return Refuse("EnsureCommonRootFor");
}
bool RecordingRepository::FastForwardMerge(cow_ptr<Commit>) { return Refuse("FastForwardMerge"); }
bool RecordingRepository::Merge3Way(cow_ptr<Commit>, Resolvers) { return Refuse("Merge3Way"); }
bool RecordingRepository::Merge(cow_ptr<Commit>, Resolvers) { return Refuse("Merge"); }

}  // namespace TalVcs::Testing
