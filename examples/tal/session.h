#pragma once

#include "file_tree.h"
#include "folder.h"
#include "host.h"
#include "staged_store.h"

#include <kit/open/open.h>
#include <kit/workspace/workspace.h>

#include <memory>
#include <optional>
#include <string>

namespace Tal {

/// What a command does with the store.
enum class Access {
  Read,
  Change,    ///< no other command can change the folder or its store meanwhile
  Rehearse,  ///< works like a change, and keeps nothing: for a dry run
};

/// Returns the access of a command that has the option "--dry-run".
inline Access AccessFor(bool isDryRun) { return isDryRun ? Access::Rehearse : Access::Change; }

/// A folder with its history, which is read from the store in its ".vcs" folder as it is needed.
///
/// A command that changes something works on `Document`; nothing of that is final before `Save`.
/// Errors of the kit are thrown as `Kit::ErrorException`.
class Session {
 public:
  /// Finds the store of the folder in which the host was started, or of one above it. Throws
  /// `Failure`.
  Session(const Host& host, Access access);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  /// Returns the history. Opens it at the first call. Throws `Failure`: `Damaged` if it can't be
  /// read.
  Kit::Workspace& Document();
  /// Forgets what `Document` knows, so that the next call opens it anew.
  void Reopen() { m_document.reset(); }
  /// Returns the history as the core knows it, over the same store. Save it with `Kit::Save`, and
  /// call `Reopen`.
  Kit::OpenedRepository OpenRepository();

  /// Returns the store: with the changes of this command if it makes any.
  Kit::IObjectStore& Store() noexcept { return *m_visible; }
  /// Returns the store itself, without changes that aren't saved.
  Kit::IObjectStore& SavedStore() noexcept { return *m_store; }

  const Host& GetHost() const noexcept { return m_host; }
  const Folder& WorkFolder() const noexcept { return m_folder; }
  bool IsRehearsal() const noexcept { return m_access == Access::Rehearse; }

  /// Returns the current branch, which has no commit yet in a new store.
  std::string Branch() { return Document().GetBranch(); }
  /// Returns its newest version, or none.
  std::optional<Kit::Version> Head() { return Document().GetHead().value(); }
  FileTree HeadFiles();
  FileTree FilesOf(const TalVcs::Id& version);
  /// Returns the files of the version before this one.
  FileTree FilesBefore(const Kit::Version& version);

  /// Returns the version that `name` names: a branch, a tag, "HEAD" for the current branch, or at
  /// least four characters of an id; after it perhaps "~" and how many versions to go back. Throws
  /// `Failure`.
  Kit::Version Find(const std::string& name);
  /// Returns the head for an empty name.
  Kit::Version FindOrHead(const std::string& name) { return Find(name.empty() ? "HEAD" : name); }

  /// Makes everything that the command did final, in one step; a rehearsal keeps nothing. Throws
  /// `Failure`: the store is as it was then, unless `IsSaved`.
  void Save();
  bool IsSaved() const noexcept { return m_isSaved; }

 private:
  class Lock;

  const Host& m_host;
  Access m_access;
  Folder m_folder;
  std::unique_ptr<Lock> m_lock;
  std::shared_ptr<Kit::IObjectStore> m_store;
  std::shared_ptr<StagedStore> m_staged;         // null for a reader
  std::shared_ptr<Kit::IObjectStore> m_visible;  // one of the two
  std::optional<Kit::Workspace> m_document;
  bool m_isSaved = false;
};

/// Returns the folder with a store that is `start` or above it. Throws `Failure`.
std::filesystem::path FindTop(const std::filesystem::path& start);

/// Opens the store of a folder; of a clone that reads its remote on demand, both together. Throws
/// `Failure`.
std::shared_ptr<Kit::IObjectStore> OpenWholeStore(const std::filesystem::path& top);

/// Throws `Failure` with `Usage` if there is no folder at `start`.
void CheckStart(const std::filesystem::path& start);

/// Throws `Failure` with `Usage` if `name` can't name a branch or tag.
void CheckBranchName(const std::string& name);

}  // namespace Tal
