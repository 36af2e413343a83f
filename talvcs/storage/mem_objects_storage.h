#pragma once

#include <talvcs/export.h>
#include <talvcs/storage/objects_storage.h>

#include <initializer_list>

namespace TalVcs {

/// A storage in memory: four hash tables.
///
/// A copy has entries of its own that share the objects, so it is a cheap snapshot; while it lives,
/// a purge of either finds everything in use. A moved-from storage is empty, without any branch,
/// and stays usable.
class TALVCS_API MemObjectsStorage : public IObjectsStorage {
 public:
  /// A storage with the branch "master", which has no head yet.
  MemObjectsStorage();
  /// A storage with the branches of these names, of which none has a head. Names aren't checked.
  MemObjectsStorage(std::initializer_list<TalStringViewT<WideChar>> names);
  MemObjectsStorage(const MemObjectsStorage& other);
  MemObjectsStorage(MemObjectsStorage&& other) noexcept;
  MemObjectsStorage& operator=(const MemObjectsStorage& other);
  MemObjectsStorage& operator=(MemObjectsStorage&& other) noexcept;
  ~MemObjectsStorage() override;

  std::unique_ptr<IObjectsStorage> Clone() const override;
  cow_ptr<Commit> GetCommit(const Id& id) const override;
  cow_ptr<Tree> GetTree(const Id& id) const override;
  cow_ptr<Blob> GetBlob(const Id& id) const override;
  void AddCommit(cow_ptr<Commit> commit) override;
  void AddTree(cow_ptr<Tree> tree) override;
  void AddBlob(cow_ptr<Blob> blob) override;
  std::uint64_t GetCommitCount() const override;
  std::uint64_t GetTreeCount() const override;
  std::uint64_t GetBlobCount() const override;
  const CommitTable& GetCommits() const override;
  const TreeTable& GetTrees() const override;
  const BlobTable& GetBlobs() const override;
  const RefTable& GetRefs() const override;
  void DeleteCommit(cow_ptr<Commit> commit) override;
  void PurgeUnusedObjects() override;
  bool BranchExist(TalStringViewT<WideChar> name) const override;
  bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  bool RemoveBranch(TalStringViewT<WideChar> name) override;
  bool UpdateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  cow_ptr<Commit> GetHead(TalStringViewT<WideChar> name) const override;
  std::vector<TalStringT<WideChar>> GetCommitBranches(cow_ptr<Commit> commit) const override;

 private:
  CommitTable m_commits;
  TreeTable m_trees;
  BlobTable m_blobs;
  RefTable m_refs;
};

}  // namespace TalVcs
