#pragma once

#include "merge.h"
#include "objects.h"

#include <map>
#include <memory>
#include <vector>

namespace Model {

/// The tables: objects by id, heads by name.
struct Storage {
  std::map<Id, Handle<Commit>> commits;
  std::map<Id, Handle<Tree>> trees;
  std::map<Id, Handle<Blob>> blobs;
  std::map<Text, Handle<Commit>> refs;

  explicit Storage(const std::vector<Text>& names = {u"master"});
  void DeleteCommit(const Handle<Commit>& commit);
  std::vector<Text> GetCommitBranches(const Handle<Commit>& commit) const;
  bool CreateBranch(const Text& name, const Handle<Commit>& commit);
  bool UpdateBranch(const Text& name, const Handle<Commit>& commit);

  /// Removes the objects that only their own table holds.
  void Purge();
};

class Repository {
 public:
  explicit Repository(std::unique_ptr<Storage> storage) : m_storage(std::move(storage)) {}
  Repository(const Repository& other);
  Repository(Repository&& other) noexcept;
  Repository& operator=(const Repository& other);
  Repository& operator=(Repository&& other) noexcept;

  Storage* GetStorage() { return m_storage.get(); }
  const Text& GetCurrentBranch() const { return m_currentBranch; }

  /// `now` is what the clock says at the call.
  Handle<Commit> DoCommit(Commit& commit, const Stamp& now);

  Handle<Commit> GetHead(const Text& branch) const;
  Handle<Commit> GetHead() const { return GetHead(m_currentBranch); }
  Handle<Commit> GetCommitFromStorage(const Id& id) const;
  Handle<Tree> GetTreeFromStorage(const Id& id) const;
  Handle<Blob> GetBlobFromStorage(const Id& id) const;
  Handle<Commit> SyncWithStorage(const Handle<Commit>& commit);
  Handle<Tree> SyncWithStorage(const Handle<Tree>& tree);
  Handle<Blob> SyncWithStorage(const Handle<Blob>& blob);

  bool BranchExist(const Text& name) const;
  bool Checkout(const Text& name);
  bool CreateBranch(const Text& name, const Handle<Commit>& commit);
  bool MoveBranchTo(const Text& name, const Handle<Commit>& commit);
  bool RemoveBranch(const Text& name);

  Handle<Commit> GetCommonBase(Handle<Commit> first, Handle<Commit> second) const;
  bool EnsureCommonRootFor(const Text& first, const Text& second, const Text& rootBranch);
  bool DeleteCommits(Handle<Commit> commit);
  bool SimplifyCommitGraph(bool updateStorage);
  void UpdateStorage();

  bool FastForwardMerge(const Handle<Commit>& commit);
  bool Merge3Way(const Handle<Commit>& commit, const Resolvers& resolvers, const Stamp& now);
  bool Merge(const Handle<Commit>& commit, const Resolvers& resolvers, const Stamp& now);

  /// True once the outcome of a simplification depended on the order in which the kept commits are
  /// rewritten, which is up to the library.
  bool IsOrderUnknown() const { return m_orderUnknown; }

 private:
  bool AttachToRoot(const Text& branch, const Handle<Commit>& root);
  Handle<Commit> MergelessRebase(const Handle<Commit>& tip, const Handle<Commit>& stop,
                                 const Handle<Commit>& newBase);

  std::unique_ptr<Storage> m_storage;
  Text m_currentBranch = u"master";
  bool m_orderUnknown = false;
};

}  // namespace Model
