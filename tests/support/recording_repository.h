#pragma once

#include <talvcs/objects/blob.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/tree.h>
#include <talvcs/repository/irepository.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace TalVcs::Testing {

/// A repository made of three maps, with one head and no branches, that remembers what it was
/// asked.
///
/// Objects of the model are tested against it, so that such a test needs neither the storage nor
/// the real repository. What has to do with branches and merging answers false or null.
class RecordingRepository final : public IRepository {
 public:
  /// What `SyncWithStorage` does with an object that isn't stored yet.
  enum class Mode {
    Store,        // stores and returns it
    PassThrough,  // returns it unstored, like a repository without a storage
    Lose,         // returns null
  };

  explicit RecordingRepository(Mode mode = Mode::Store) : m_mode(mode) {}

  /// Makes `commit` what `GetHead` answers.
  void SetHead(cow_ptr<Commit> commit) { m_head = std::move(commit); }

  /// The operations that were called since the last `ForgetCalls`, such as "SyncWithStorage(tree)".
  const std::vector<std::string>& Calls() const noexcept { return m_calls; }
  void ForgetCalls() { m_calls.clear(); }

  cow_ptr<Commit> DoCommit(Commit& commit) override;
  cow_ptr<Commit> GetHead(TalStringViewT<WideChar> branch) const override;
  cow_ptr<Commit> GetHead() const override;
  TalStringT<WideChar> GetCurentBranch() const override;
  cow_ptr<Commit> GetCommitFromStorage(const Id& id) const override;
  cow_ptr<Tree> GetTreeFromStorage(const Id& id) const override;
  cow_ptr<Blob> GetBlobFromStorage(const Id& id) const override;
  cow_ptr<Blob> SyncWithStorage(cow_ptr<Blob> blob) override;
  cow_ptr<Tree> SyncWithStorage(cow_ptr<Tree> tree) override;
  cow_ptr<Commit> SyncWithStorage(cow_ptr<Commit> commit) override;
  std::uint64_t GetCommitCount() const override { return m_commits.size(); }
  std::uint64_t GetTreeCount() const override { return m_trees.size(); }
  std::uint64_t GetBlobCount() const override { return m_blobs.size(); }
  bool DeleteCommits(cow_ptr<Commit> commit) override;
  bool SimplifyCommitGraph(bool updateStorage) override;
  void UpdateStorage() override;
  IObjectsStorage* GetStorage() override { return nullptr; }
  const IObjectsStorage* GetStorage() const override { return nullptr; }
  cow_ptr<Commit> GetCommonBase(cow_ptr<Commit> first, cow_ptr<Commit> second) const override;
  bool Checkout(TalStringViewT<WideChar> name) override;
  bool CreateBranch(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  bool BranchExist(TalStringViewT<WideChar> name) override;
  bool MoveBranchTo(TalStringViewT<WideChar> name, cow_ptr<Commit> commit) override;
  bool RemoveBranch(TalStringViewT<WideChar> name) override;
  bool EnsureCommonRootFor(TalStringViewT<WideChar> first, TalStringViewT<WideChar> second,
                           TalStringViewT<WideChar> rootBranch) override;
  bool FastForwardMerge(cow_ptr<Commit> commit) override;
  bool Merge3Way(cow_ptr<Commit> commit, Resolvers resolvers) override;
  bool Merge(cow_ptr<Commit> commit, Resolvers resolvers) override;

 private:
  template <class T>
  using Table = std::map<std::string, cow_ptr<T>>;

  template <class T>
  cow_ptr<T> Find(const Table<T>& table, const Id& id) const;
  template <class T>
  cow_ptr<T> Sync(Table<T>& table, cow_ptr<T> object);
  void Note(const char* call) const { m_calls.emplace_back(call); }
  bool Refuse(const char* call) const;

  Mode m_mode;
  Table<Blob> m_blobs;
  Table<Tree> m_trees;
  Table<Commit> m_commits;
  cow_ptr<Commit> m_head;
  mutable std::vector<std::string> m_calls;
};

}  // namespace TalVcs::Testing
