#pragma once

#include <talvcs/export.h>
#include <talvcs/merge/resolvers.h>
#include <talvcs/objects/commit.h>
#include <talvcs/repository/irepository.h>
#include <talvcs/storage/objects_storage.h>

#include <memory>
#include <vector>

namespace TalVcs {

#if defined(__GNUC__)
// A repository is destroyed as what it is and never through its interface, so that its destructor
// needn't be virtual.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

/// A storage of objects and branches with a current branch, and the operations on both.
///
/// Failures are results: null, false or 0. A repository may have no storage, as after a move from
/// it; then everything that needs the storage fails, and `SyncWithStorage` returns its argument. A
/// copy has a clone of the storage, which shares the objects. There is no working tree: the current
/// branch is only a name that later operations use. At first it is "master", whether or not such a
/// branch exists.
///
/// Histories fork but never join: the commit of a merge has one parent too. Objects that nothing
/// uses stay until `UpdateStorage`.
///
/// Threads: a repository and all that is reachable from it belong to one thread at a time.
/// Repositories that share no object may be used by separate threads; a repository and its copy
/// share all that the copy began with.
class TALVCS_API Repository : public IRepository {
 public:
  /// Takes over `storage`, which may be null.
  explicit Repository(std::unique_ptr<IObjectsStorage>&& storage);
  Repository(const Repository& other);
  Repository(Repository&& other) noexcept;
  Repository& operator=(const Repository& other);
  Repository& operator=(Repository&& other) noexcept;
  ~Repository();

  /// Stamps `commit` with the present time, in whole seconds, and the local time zone, stores a
  /// copy and moves the current branch to it, if that exists.
  ///
  /// Returns the canonical instance, which is that of an equal commit if one is stored. Returns
  /// null, with `commit` unchanged, if there is no storage, or if the commit amends and the current
  /// branch has no head. The parent of the commit is not checked: it may be another commit than the
  /// head.
  cow_ptr<Commit> DoCommit(Commit& commit) override;

  /// Return the head of a branch, or of the current branch, or null if there is none.
  cow_ptr<Commit> GetHead(TalStringViewT<WideChar> branch) const override;
  cow_ptr<Commit> GetHead() const override;
  /// Returns the name of the current branch. The spelling of the function's name is part of the
  /// interface.
  TalStringT<WideChar> GetCurentBranch() const override;

  /// Return the stored instance of that id, or null.
  cow_ptr<Commit> GetCommitFromStorage(const Id& id) const override;
  cow_ptr<Tree> GetTreeFromStorage(const Id& id) const override;
  cow_ptr<Blob> GetBlobFromStorage(const Id& id) const override;

  /// Return the canonical instance for the object's id, after storing this object if there is none.
  /// What the object refers to is not stored. Null returns null.
  cow_ptr<Blob> SyncWithStorage(cow_ptr<Blob> blob) override;
  cow_ptr<Tree> SyncWithStorage(cow_ptr<Tree> tree) override;
  cow_ptr<Commit> SyncWithStorage(cow_ptr<Commit> commit) override;

  std::uint64_t GetCommitCount() const override;
  std::uint64_t GetTreeCount() const override;
  std::uint64_t GetBlobCount() const override;

  /// Removes `commit` and all its ancestors from the storage, except the heads of branches. Those
  /// become a new chain, with new ids, and their branches follow.
  ///
  /// Descendants of `commit` do not change: a child still holds its parent in memory, but a store
  /// that is written afterwards lacks the parent and cannot be loaded. A null `commit` or one
  /// without a parent changes nothing. Purges only if a commit was kept. Returns false only without
  /// a storage. Cost: the number of ancestors plus the number of branches.
  bool DeleteCommits(cow_ptr<Commit> commit) override;

  /// Drops every commit that is neither the head of a branch nor a fork of two branches. Of
  /// kept commits the parent alone changes, and with it the id; branches follow. Purges if
  /// `updateStorage` is true. Returns false only without a storage. Cost: linear in commits plus
  /// branches; a derived class's `GetCommonBase` is called for every two branches.
  bool SimplifyCommitGraph(bool updateStorage) override;

  /// Removes all objects that nothing uses; see `IObjectsStorage::PurgeUnusedObjects`.
  void UpdateStorage() override;

  /// Return the storage, which the repository keeps, or null.
  IObjectsStorage* GetStorage() override;
  const IObjectsStorage* GetStorage() const override;

  /// Returns the nearest commit that both are or descend from, found along their parents without
  /// the storage; null if there is none or an argument is null. If the two chains have different
  /// instances of it, returns that of the chain on which it is farther away, at equal distance that
  /// of `second`. Cost: linear in the larger distance if both chains reach one instance, as they do
  /// in one storage; otherwise linear in the length of both chains.
  cow_ptr<Commit> GetCommonBase(cow_ptr<Commit> first, cow_ptr<Commit> second) const override;

  /// Makes an existing branch the current one. Returns false if it does not exist.
  bool Checkout(TalStringViewT<WideChar> name) override;
  /// Creates a branch at `commit`, or at the current head if `commit` is null. Returns false if the
  /// name is empty or the branch exists. The current branch stays the same.
  bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  bool BranchExist(TalStringViewT<WideChar> name) override;
  /// Moves an existing branch to `commit`. Returns false if it does not exist or `commit` is null.
  bool MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  /// Removes a branch, even the current one; false if there is none. Commits stay until a purge.
  bool RemoveBranch(TalStringViewT<WideChar> name) override;

  /// Makes sure that two branches share an ancestor.
  ///
  /// If they don't, the whole history of each that isn't related to `rootBranch` is placed on that
  /// branch's head, with new ids and the same contents; branches that don't exist are created
  /// there. A `rootBranch` that doesn't exist is created with an empty commit "Root commit".
  /// Returns false if a branch can't be created or moved, or if `rootBranch` exists without a head,
  /// as the current branch may; what was done before stays.
  bool EnsureCommonRootFor(TalStringViewT<WideChar> first, TalStringViewT<WideChar> second,
                           TalStringViewT<WideChar> rootBranch) override;

  /// Moves the current branch to `commit` if this is the head or descends from it, or if there is
  /// no head. Otherwise returns false, with nothing changed.
  bool FastForwardMerge(cow_ptr<Commit> commit) override;
  /// Merges the trees of the head, the common base and `commit`, and commits the result with the
  /// head as its only parent, without author and description. Returns false, with the branch
  /// unmoved, if there is no head or the merge fails, as it does where a resolver is needed and
  /// empty, and for two commits without trees; see `ThreeWayMerge`.
  bool Merge3Way(cow_ptr<Commit> commit, Resolvers resolvers) override;
  /// Moves a branch without a head, otherwise fast-forwards if possible, otherwise does a three-way
  /// merge. Returns false for null.
  bool Merge(cow_ptr<Commit> commit, Resolvers resolvers) override;

 private:
  void AddCommitToStorage(cow_ptr<Commit> commit);
  void AddTreeToStorage(cow_ptr<Tree> tree);
  void AddBlobToStorage(cow_ptr<Blob> blob);
  bool AttachToRoot(TalStringViewT<WideChar> branch, const cow_ptr<Commit>& root);
  cow_ptr<Commit> MergelessRebase(cow_ptr<Commit> tip, cow_ptr<Commit> stop,
                                  cow_ptr<Commit> newBase);
  cow_ptr<Commit> MergelessRebase(TalStringViewT<WideChar> branch, TalStringViewT<WideChar> onto);

  std::unique_ptr<IObjectsStorage> m_storage;
  TalStringT<WideChar> m_currentBranch;
};
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

}  // namespace TalVcs
