#pragma once

#include <bench/workloads.h>
#include <git2.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Bench {

/// Frees an object of libgit2.
template <auto kFree>
struct GitFree {
  template <class T>
  void operator()(T* object) const {
    kFree(object);
  }
};
using GitTree = std::unique_ptr<git_tree, GitFree<git_tree_free>>;
using GitCommit = std::unique_ptr<git_commit, GitFree<git_commit_free>>;
using GitBuilder = std::unique_ptr<git_treebuilder, GitFree<git_treebuilder_free>>;

/// Ends the program with the message of libgit2 if `result` is an error.
void Check(int result);

/// An edit of a tree by path: a blob to put there, or a removal.
struct PeerEdit {
  std::string path;
  git_oid blob = {};
  bool remove = false;
};

/// A repository of libgit2 that lives in memory alone: no file, no reference, no configuration.
class PeerRepository {
 public:
  PeerRepository();
  PeerRepository(const PeerRepository&) = delete;
  PeerRepository& operator=(const PeerRepository&) = delete;
  ~PeerRepository();

  git_oid PutBlob(std::string_view bytes);
  git_oid Write(const GitBuilder& builder);
  git_oid Edit(git_tree* base, const std::vector<PeerEdit>& edits);
  git_oid Record(const git_oid& tree, const std::vector<git_oid>& parents, std::uint32_t number);

  GitTree GetTree(const git_oid& id);
  GitCommit GetCommit(const git_oid& id);
  GitBuilder MakeBuilder();

  /// Builds the tree of all files bottom up, with a builder for each directory.
  git_oid BuildTree(const std::vector<std::string>& contents);

  /// Commits the changes of a plan on top of `head`, with one edit a commit or one a file.
  git_oid Replay(git_oid head, const HistoryPlan& plan,
                 const std::vector<std::vector<std::string>>& contents, bool perFile,
                 std::uint32_t number);

  /// Returns what a commit reaches, each object once, read and parsed.
  std::vector<git_oid> Reach(const git_oid& head);

  /// Frees all objects.
  void Reset();

  git_repository* Get() const { return m_repository; }
  git_odb* GetDatabase() const { return m_database; }

 private:
  git_repository* m_repository = nullptr;
  git_odb* m_database = nullptr;
  git_odb_backend* m_objects = nullptr;
};

}  // namespace TalVcs::Bench
