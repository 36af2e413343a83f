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
  /// Stores a copy of `commit` with the present time and moves the current branch to it.
  virtual cow_ptr<Commit> DoCommit(Commit& commit) = 0;
  /// Return the head of a branch, or of the current one; null if there is none.
  virtual cow_ptr<Commit> GetHead(TalStringViewT<WideChar> branch) const = 0;
  virtual cow_ptr<Commit> GetHead() const = 0;
  /// The spelling of this name is part of the interface.
  virtual TalStringT<WideChar> GetCurentBranch() const = 0;
  /// Return the stored instance of that id, or null.
  virtual cow_ptr<Commit> GetCommitFromStorage(const Id& id) const = 0;
  virtual cow_ptr<Tree> GetTreeFromStorage(const Id& id) const = 0;
  virtual cow_ptr<Blob> GetBlobFromStorage(const Id& id) const = 0;
  /// Return the canonical instance of the object, which is stored if there is none yet.
  virtual cow_ptr<Blob> SyncWithStorage(cow_ptr<Blob> blob) = 0;
  virtual cow_ptr<Tree> SyncWithStorage(cow_ptr<Tree> tree) = 0;
  virtual cow_ptr<Commit> SyncWithStorage(cow_ptr<Commit> commit) = 0;
  /// Return the number of stored objects of a type; 0 without a storage.
  virtual std::uint64_t GetCommitCount() const = 0;
  virtual std::uint64_t GetTreeCount() const = 0;
  virtual std::uint64_t GetBlobCount() const = 0;
  /// Removes `commit` and its ancestors from the storage, except heads of branches.
  virtual bool DeleteCommits(cow_ptr<Commit> commit) = 0;
  /// Removes all commits that are neither tips nor forks.
  virtual bool SimplifyCommitGraph(bool updateStorage) = 0;
  /// Removes all objects that nothing holds.
  virtual void UpdateStorage() = 0;
  /// Return the storage, which the repository keeps, or null.
  virtual IObjectsStorage* GetStorage() = 0;
  virtual const IObjectsStorage* GetStorage() const = 0;
  /// Returns the nearest common ancestor of two commits, or null.
  virtual cow_ptr<Commit> GetCommonBase(cow_ptr<Commit> first, cow_ptr<Commit> second) const = 0;
  /// Makes an existing branch the current one. Returns false if there is no such branch.
  virtual bool Checkout(TalStringViewT<WideChar> name) = 0;
  /// Creates a branch at `commit`, or at the current head if that is null.
  virtual bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) = 0;
  /// True if there is a branch of that name, with or without a head.
  virtual bool BranchExist(TalStringViewT<WideChar> name) = 0;
  /// Moves an existing branch to any commit but null.
  virtual bool MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) = 0;
  /// Removes a branch. Returns false if it does not exist. Its commits stay until a purge.
  virtual bool RemoveBranch(TalStringViewT<WideChar> name) = 0;
  /// Makes sure that two branches have a common ancestor; `rootBranch` becomes one if they don't.
  virtual bool EnsureCommonRootFor(TalStringViewT<WideChar> first, TalStringViewT<WideChar> second,
                                   TalStringViewT<WideChar> rootBranch) = 0;
  /// Moves the current branch to a descendant of its head.
  virtual bool FastForwardMerge(cow_ptr<Commit> commit) = 0;
  /// Merges `commit` into the current branch by a new commit.
  virtual bool Merge3Way(cow_ptr<Commit> commit, Resolvers resolvers) = 0;
  /// Moves a branch without a head, fast-forwards, or merges, whichever fits.
  virtual bool Merge(cow_ptr<Commit> commit, Resolvers resolvers) = 0;

 protected:
  IRepository() = default;
  IRepository(const IRepository&) = default;
  IRepository& operator=(const IRepository&) = default;
  ~IRepository() = default;
};

}  // namespace TalVcs
