#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/blob.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/tree.h>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace TalVcs {

/// The tables of a storage. Their order of iteration carries no meaning.
using CommitTable = std::unordered_map<Id, cow_ptr<Commit>>;
using TreeTable = std::unordered_map<Id, cow_ptr<Tree>>;
using BlobTable = std::unordered_map<Id, cow_ptr<Blob>>;
using RefTable = std::unordered_map<TalStringT<WideChar>, cow_ptr<Commit>>;

/// The place where objects and the heads of branches live.
///
/// The instance that a storage holds under an id is the canonical one. Objects are shared with
/// everybody who holds a handle on them and are never edited here. A branch is a name of any text
/// and a head, which may be null.
///
/// Threads: a storage belongs to one thread at a time.
class TALVCS_API IObjectsStorage {
 public:
  virtual ~IObjectsStorage();

  /// Returns a second storage with the same entries, which share the objects, and so belongs to the
  /// same thread.
  virtual std::unique_ptr<IObjectsStorage> Clone() const = 0;

  /// Return the stored instance of that id, or null.
  virtual cow_ptr<Commit> GetCommit(const Id& id) const = 0;
  virtual cow_ptr<Tree> GetTree(const Id& id) const = 0;
  virtual cow_ptr<Blob> GetBlob(const Id& id) const = 0;

  /// Store an object, which must not be null, under its id. An id that is already there keeps the
  /// instance that it has. What the object refers to isn't stored with it.
  virtual void AddCommit(cow_ptr<Commit> commit) = 0;
  virtual void AddTree(cow_ptr<Tree> tree) = 0;
  virtual void AddBlob(cow_ptr<Blob> blob) = 0;

  /// Return the number of stored objects of a type.
  virtual std::uint64_t GetCommitCount() const = 0;
  virtual std::uint64_t GetTreeCount() const = 0;
  virtual std::uint64_t GetBlobCount() const = 0;

  /// Return the tables themselves, valid until the storage changes.
  virtual const CommitTable& GetCommits() const = 0;
  virtual const TreeTable& GetTrees() const = 0;
  virtual const BlobTable& GetBlobs() const = 0;
  virtual const RefTable& GetRefs() const = 0;

  /// Takes the commit of that id out of the table, if it is there; null does nothing. Branches and
  /// children keep their handles on it.
  virtual void DeleteCommit(cow_ptr<Commit> commit) = 0;

  /// Removes the commits, then the trees, then the blobs that only their own table holds. What a
  /// branch reaches, and what a host holds a handle on, stays. Cost: linear in the entries.
  virtual void PurgeUnusedObjects() = 0;

  /// True if there is a branch of that name, with or without a head.
  virtual bool BranchExist(TalStringViewT<WideChar> name) const = 0;
  /// Returns false for an empty name or one that exists; `commit` may be null.
  virtual bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) = 0;
  /// Returns false for an unknown name.
  virtual bool RemoveBranch(TalStringViewT<WideChar> name) = 0;
  /// Moves an existing branch. Returns false for an empty or unknown name or a null commit.
  virtual bool UpdateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) = 0;
  /// Returns the branch's head, or null if it has none or doesn't exist.
  virtual cow_ptr<Commit> GetHead(TalStringViewT<WideChar> name) const = 0;
  /// Returns the names of all branches whose head is that very instance, in no order; for null,
  /// those of the branches without a head.
  virtual std::vector<TalStringT<WideChar>> GetCommitBranches(cow_ptr<Commit> commit) const = 0;

 protected:
  IObjectsStorage() = default;
  IObjectsStorage(const IObjectsStorage&) = default;
  IObjectsStorage& operator=(const IObjectsStorage&) = default;
};

}  // namespace TalVcs
