#pragma once

#include "folder.h"
#include "terminal.h"
#include "text.h"
#include "trees.h"

#include <kit/directory_store.h>

#include <filesystem>
#include <string>

namespace Tal {

/// What every command gets: where it was started and how it talks.
struct Host {
  std::filesystem::path start = ".";
  Terminal terminal;
  bool json = false;
};

/// What a command wants to do with the store: `Inspect` is to read one that may be damaged.
enum class Access { Read, Inspect, Change };

/// A folder with its history, loaded from the store in its ".vcs" folder.
///
/// Beside the store's own files that folder holds two of this program: "tal-branch" with the name
/// of the current branch, and "tal-freed" with what the last clean-up freed.
class Session {
 public:
  /// Makes an empty store in the folder where the host was started. Throws `Failure` if there is
  /// one.
  static void Create(const Host& host);

  /// Finds the store of the folder in which the host was started, or of one above it, and loads it.
  /// Throws `Failure`: `Damaged` if it doesn't come in whole. With `Access::Change` no other
  /// process can change the store while the session lives.
  Session(const Host& host, Access access);

  TalVcs::Repository& Repository() noexcept { return m_repository; }
  const Folder& WorkFolder() const noexcept { return m_folder; }
  TalVcs::IBlobReader& Reader() noexcept { return m_store; }

  /// False for a store of which not every branch came in as it was saved.
  bool CameInWhole() const noexcept { return m_whyNotWhole.empty(); }
  /// Why the store didn't come in whole, as far as the store can tell; otherwise empty.
  const std::string& WhyNotWhole() const noexcept { return m_whyNotWhole; }

  /// The current branch, which has no commit yet after `Create`.
  std::string Branch() const;
  CommitPtr Head() const { return m_repository.GetHead(); }

  /// Replaces the store by what the repository holds, in one step. Throws `Failure` if that fails
  /// or if a commit wouldn't come back from the store. The store is then as it was, unless
  /// `IsSaved` says that it was replaced, and just isn't known to outlive a loss of power.
  void Save();
  bool IsSaved() const noexcept { return m_store.IsNewStateInPlace(); }

  /// Makes `name`, which has to exist, the current branch, for this session and later ones.
  void SetBranch(const std::string& name);

  /// The number of bytes that the last clean-up freed; 0 if there was none.
  std::uint64_t LastFreed() const;
  void SetLastFreed(std::uint64_t bytes);

 private:
  void Load();
  std::string DescribeDamage();

  const Terminal& m_terminal;
  Folder m_folder;
  TalVcs::Kit::DirectoryStore m_store;
  TalVcs::Repository m_repository;
  std::string m_whyNotWhole;
};

/// Returns the commit that `name` tells: a branch, "HEAD" for the current one, or at least four
/// characters of an id, and behind it perhaps "~" with how many commits to go back. Throws
/// `Failure`.
CommitPtr FindCommit(const TalVcs::IRepository& repository, const std::string& name);

/// Throws `Failure` with `Usage` if `name` can't name a branch.
void CheckBranchName(const std::string& name);

}  // namespace Tal
