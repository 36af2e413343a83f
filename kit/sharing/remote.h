#pragma once

#include <kit/export.h>
#include <kit/sharing/sharing_options.h>
#include <kit/store/head_watcher.h>
#include <kit/store/object_store.h>
#include <kit/text/result.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

class Workspace;

/// A store that several local stores share a history through.
///
///     Remote remote(shared_store);
///     auto workspace = Workspace::Open(local_store, {.author = "Ada"}).value();
///     workspace.Write("page", bytes).value();
///     workspace.Commit("Edit").value();
///     workspace.Sync(remote).value();
///
/// The local store has a branch for each branch of the remote that it knows: "remote/master" for
/// "master", with the name of the remote before the "/". Fetches and pushes move it to where the
/// remote's branch is. Nobody should work on it: the next fetch drops what is made there.
///
/// *Cost.* A fetch calls the far store once for all heads, then once for each level of the folders
/// that changed, and once for their files. A push calls it once for all heads, once to look for all
/// that changed in 256 versions, once for each list of up to 4,096 objects or 8 MB to write, and
/// once to move the head. The number of calls doesn't follow the number of objects, except that
/// long lists are split at some thousands. A history of new commits is read in windows that double
/// up to 1,024.
///
/// *Progress.* It counts a list of objects when the store has taken it. The end of a push waits
/// until the store has them all: up to three lists of 8 MB where it writes in the background
/// (`IBackgroundWriter`).
///
/// *Safety.* Every object that is copied is compared with its id, and written before what names it.
/// Heads move last, from where they were to where they are wanted, or not at all. What a failed or
/// cancelled operation wrote is unused, spares the next one its reading, and is removed by a
/// clean-up. If a clean-up runs meanwhile, the operation looks again, a few times at the most.
///
/// Threads: a remote and both stores belong to one thread at a time. Any number of remotes, in any
/// number of processes, may share a store if the store's documents say so.
class TALVCS_KIT_API Remote {
 public:
  /// The remote is `store`, which must not be null. `name` is not empty, not "tags", and without
  /// U+0000.
  explicit Remote(std::shared_ptr<IObjectStore> store, std::string name = "remote");
  Remote(Remote&& other) noexcept;
  Remote& operator=(Remote&& other) noexcept;
  ~Remote();

  const std::string& GetName() const noexcept { return m_name; }  ///< The name of the remote.
  IObjectStore& GetStore() noexcept { return *m_store; }          ///< The store of the remote.
  /// Returns the name of the local branch that keeps the head of a branch of the remote.
  std::string GetLocalBranch(std::string_view branch) const;

  /// Returns the branch to begin with: the one that the remote's last session worked on, else
  /// "master", else the first; "master" if there is none.
  Result<std::string> FindMainBranch();

  /// Copies the heads of the remote, and all objects that they reach, to the local store.
  ///
  /// A local store without a branch of its own will open on the branch that `FindMainBranch`
  /// returns. Reads nothing that the local store has: it has everything below a commit or folder
  /// that is in it. `local` must be another store than the remote's. Fails with `Damaged` if the
  /// remote lacks what a head reaches or passes other bytes, with `Cancelled`, and as either store
  /// does.
  Result<FetchReport> Fetch(IObjectStore& local, const FetchOptions& options = {});

  /// Uploads what the remote lacks of a local branch, and moves the remote's branch of that name.
  ///
  /// Fails with `Conflict` and the actual head if the remote's branch isn't an ancestor of the
  /// local one, or is moved meanwhile: fetch or synchronise first. Fails with `NotFound` if there
  /// is no such local branch, with `Unknown` if the remote's branch may have moved, with
  /// `Cancelled`, and as either store does. Does nothing if the remote is there already.
  Result<PushReport> Push(IObjectStore& local, std::string_view branch,
                          const PushOptions& options = {});

  /// Does what `Workspace::Sync` does.
  Result<SyncReport> Sync(Workspace& workspace, const SyncOptions& options = {});

  /// Waits until the heads of the remote differ from those that this object saw at its last fetch
  /// or push. Returns false after the timeout. Fails as `WaitForHeads` does.
  Result<bool> Watch(const HeadWaitOptions& options = {});

 private:
  TALVCS_KIT_NO_EXPORT Result<std::vector<Head>> ReadHeads();
  TALVCS_KIT_NO_EXPORT Status BeginBranch(IObjectStore& local, std::span<const Head> known);
  TALVCS_KIT_NO_EXPORT Result<FetchReport> FetchOnce(IObjectStore& local,
                                                     const FetchOptions& options);
  TALVCS_KIT_NO_EXPORT Result<PushReport> PushOnce(IObjectStore& local, const std::string& branch,
                                                   const PushOptions& options);

  std::shared_ptr<IObjectStore> m_store;
  std::string m_name;
  std::vector<Head> m_seen;  // the heads of the remote
};

}  // namespace TalVcs::Kit
