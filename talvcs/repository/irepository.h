#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <cstdint>

namespace TalVcs {

class Blob;
class Commit;
class IObjectsStorage;
class Tree;
struct Resolvers;

/// A repository as the rest of the library sees it.
///
/// Operations that find or store objects take a pointer to one, which they do not own and through
/// which they never delete. `Repository` describes each function. A host that implements the
/// interface must return from `SyncWithStorage` an object with the id of the argument.
///
/// Threads: a repository and all that is reachable from it belong to one thread at a time.
class TALVCS_API IRepository {
 public:
  virtual cow_ptr<Commit> DoCommit(Commit& commit) = 0;
  virtual cow_ptr<Commit> GetHead(TalStringViewT<WideChar> branch) const = 0;
  virtual cow_ptr<Commit> GetHead() const = 0;
  /// The spelling of this name is part of the interface.
  virtual TalStringT<WideChar> GetCurentBranch() const = 0;
  virtual cow_ptr<Commit> GetCommitFromStorage(const Id& id) const = 0;
  virtual cow_ptr<Tree> GetTreeFromStorage(const Id& id) const = 0;
  virtual cow_ptr<Blob> GetBlobFromStorage(const Id& id) const = 0;
  virtual cow_ptr<Blob> SyncWithStorage(cow_ptr<Blob> blob) = 0;
  virtual cow_ptr<Tree> SyncWithStorage(cow_ptr<Tree> tree) = 0;
  virtual cow_ptr<Commit> SyncWithStorage(cow_ptr<Commit> commit) = 0;
  virtual std::uint64_t GetCommitCount() const = 0;
  virtual std::uint64_t GetTreeCount() const = 0;
  virtual std::uint64_t GetBlobCount() const = 0;
  virtual bool DeleteCommits(cow_ptr<Commit> commit) = 0;
  virtual bool SimplifyCommitGraph(bool updateStorage) = 0;
  virtual void UpdateStorage() = 0;
  virtual IObjectsStorage* GetStorage() = 0;
  virtual const IObjectsStorage* GetStorage() const = 0;
  virtual cow_ptr<Commit> GetCommonBase(cow_ptr<Commit> first, cow_ptr<Commit> second) const = 0;
  virtual bool Checkout(TalStringViewT<WideChar> name) = 0;
  virtual bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) = 0;
  virtual bool BranchExist(TalStringViewT<WideChar> name) = 0;
  virtual bool MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) = 0;
  virtual bool RemoveBranch(TalStringViewT<WideChar> name) = 0;
  virtual bool EnsureCommonRootFor(TalStringViewT<WideChar> first, TalStringViewT<WideChar> second,
                                   TalStringViewT<WideChar> rootBranch) = 0;
  virtual bool FastForwardMerge(cow_ptr<Commit> commit) = 0;
  virtual bool Merge3Way(cow_ptr<Commit> commit, Resolvers resolvers) = 0;
  virtual bool Merge(cow_ptr<Commit> commit, Resolvers resolvers) = 0;

 protected:
  IRepository() = default;
  IRepository(const IRepository&) = default;
  IRepository& operator=(const IRepository&) = default;
  ~IRepository() = default;
};

}  // namespace TalVcs
