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

/// A history: an objects storage that it owns, and the name of the current branch.
///
/// Failures are results: null, false or 0. A repository without a storage, as a moved-from one, is
/// legal and answers in this way whatever needs the storage; `SyncWithStorage` gives its argument
/// back. A copy has a clone of the storage, which shares the objects. There is no working tree: the
/// current branch is only a name that later operations use, at first "master", whether it exists or
/// not.
///
/// Commits form chains that fork but never join; a merge makes a commit with one parent too.
/// Objects that nothing uses any more stay until `UpdateStorage`.
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
  /// Returns the stored instance; the one of an equal commit that is already stored. Returns null,
  /// with `commit` untouched, without a storage or for an amending commit while the current branch
  /// has no head. Whatever parent the commit has stays: the branch may be moved away from its head.
  cow_ptr<Commit> DoCommit(Commit& commit) override;

  /// Return the head of a branch, or of the current one; null if there is none.
  cow_ptr<Commit> GetHead(TalStringViewT<WideChar> branch) const override;
  cow_ptr<Commit> GetHead() const override;
  TalStringT<WideChar> GetCurentBranch() const override;

  /// Return the stored instance of that id, or null.
  cow_ptr<Commit> GetCommitFromStorage(const Id& id) const override;
  cow_ptr<Tree> GetTreeFromStorage(const Id& id) const override;
  cow_ptr<Blob> GetBlobFromStorage(const Id& id) const override;

  /// Return the stored instance of the object's id, storing this one if there is none. Only the
  /// object itself is stored, not what it refers to. Null gives null.
  cow_ptr<Blob> SyncWithStorage(cow_ptr<Blob> blob) override;
  cow_ptr<Tree> SyncWithStorage(cow_ptr<Tree> tree) override;
  cow_ptr<Commit> SyncWithStorage(cow_ptr<Commit> commit) override;

  std::uint64_t GetCommitCount() const override;
  std::uint64_t GetTreeCount() const override;
  std::uint64_t GetBlobCount() const override;

  /// Removes `commit` and all its ancestors from the storage, except commits on which a branch
  /// stands: those are strung together into a new chain, with new ids, and their branches follow.
  ///
  /// Commits above are untouched: a child still holds its parent in memory, and a store written
  /// afterwards lacks it. A null or parentless `commit` changes nothing. Purges only if a commit
  /// was kept. Returns false only without a storage. Cost: the length of the run plus the branches.
  bool DeleteCommits(cow_ptr<Commit> commit) override;

  /// Drops every commit that is neither the head of a branch nor a fork of two branches. Of
  /// kept commits the parent alone changes, and with it the id; branches follow. Purges if
  /// `updateStorage` is true. Returns false only without a storage. Cost: linear in commits plus
  /// branches.
  bool SimplifyCommitGraph(bool updateStorage) override;

  /// Removes all objects that nothing uses; see `IObjectsStorage::PurgeUnusedObjects`.
  void UpdateStorage() override;

  /// Return the storage, which the repository keeps, or null.
  IObjectsStorage* GetStorage() override;
  const IObjectsStorage* GetStorage() const override;

  /// Returns the nearest commit that both are or descend from, found along their parents without
  /// the storage; null if there is none or an argument is null. Of two instances of one id, the
  /// result is the one on the chain of the later finder, the second argument's at equal distance.
  /// Cost: linear in the larger distance where both chains come to one instance, as chains of one
  /// storage do; in the length of both chains where they are instances apart.
  cow_ptr<Commit> GetCommonBase(cow_ptr<Commit> first, cow_ptr<Commit> second) const override;

  /// Makes an existing branch the current one; false for one that doesn't exist.
  bool Checkout(TalStringViewT<WideChar> name) override;
  /// Creates a branch at `commit`, or at the current head if that is null. False for an empty name
  /// or one that exists. The current branch stays.
  bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  bool BranchExist(TalStringViewT<WideChar> name) override;
  /// Moves an existing branch to any commit but null.
  bool MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  /// Removes a branch, be it the current one. Its commits stay until a purge.
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

  /// Moves the current branch to `commit` if that is, or descends from, the head. Returns false,
  /// with nothing changed, otherwise. Without a head it moves the branch.
  bool FastForwardMerge(cow_ptr<Commit> commit) override;
  /// Merges the trees of the head, the common base and `commit`, and commits the result with the
  /// head as its only parent, without author and description. Returns false, with the branch
  /// unmoved, if there is no head or the merge fails, as it does where a resolver is needed and
  /// empty, and for two commits without trees; see `ThreeWayMerge`.
  bool Merge3Way(cow_ptr<Commit> commit, Resolvers resolvers) override;
  /// Moves a branch without a head, fast-forwards, or merges, whichever fits. False for null.
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
