#pragma once

#include <kit/export.h>
#include <kit/open/report.h>
#include <kit/store/object_store.h>
#include <kit/text/progress.h>
#include <kit/text/result.h>
#include <talvcs/repository/repository.h>

#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Kit {

struct OpenedState;

/// What `Open` looks at before it returns.
enum class OpenCheck {
  Nothing,     ///< The list of branches alone; damage shows when something is read.
  Heads,       ///< The head commit and root folder of each branch.
  Everything,  ///< All that the branches reach, as `Verify` does.
};

/// Options of `Open`.
struct OpenOptions {
  /// The current branch. Empty: the one of the last save, else "master", else the first.
  std::string branch = {};
  OpenCheck check = OpenCheck::Nothing;
  /// What to do if the check finds damage.
  DamagePolicy policy = DamagePolicy::Stop;
  /// Phases of a check of everything: "history" and "contents" for each branch.
  Progress progress = {};
};

/// A repository that was opened from a store, with what `Save` needs to save it there.
///
/// The repository is an ordinary one to work with. It can be copied; a copy shares what was read,
/// and `Save` saves the original. Don't assign another repository to it: `Save` refuses that. This
/// object is moved, not copied; a moved-from one can only be assigned to and destroyed. References
/// to the repository stay valid when this object is moved.
///
/// Objects are read when a link to them is followed. One that can't be read throws
/// `ObjectUnavailable`; see `Try`. Handles on objects may outlive this one and go on reading, and
/// keep the store object alive.
///
/// Threads: this, its repository, all that was read through it and the store belong to one thread
/// at a time.
class TALVCS_KIT_API OpenedRepository {
 public:
  OpenedRepository(OpenedRepository&& other) noexcept;
  OpenedRepository& operator=(OpenedRepository&& other) noexcept;
  ~OpenedRepository();

  /// Return the repository. It lives as long as this object or the one it was moved to.
  Repository& GetRepository() noexcept;
  const Repository& GetRepository() const noexcept;
  Repository* operator->() noexcept { return &GetRepository(); }
  const Repository* operator->() const noexcept { return &GetRepository(); }

  /// Returns the branches of the store with their heads, as opening or the last save left them. A
  /// branch that was left out of the repository isn't among them.
  const std::vector<Head>& GetSavedHeads() const noexcept;

  /// Returns what was found when it was opened, of all branches of the store.
  const HistoryReport& GetReport() const noexcept;

  /// Frees all objects that the store has and that nothing else holds, and what the store itself
  /// caches. Raw pointers into objects that were read are invalid afterwards; handles stay valid.
  void Trim();

 private:
  friend class OpenedAccess;
  TALVCS_KIT_NO_EXPORT explicit OpenedRepository(std::unique_ptr<OpenedState> state) noexcept;

  std::unique_ptr<OpenedState> m_state;
};

/// Opens the repository of a store, which must not be null, without reading it.
///
///     auto store = std::make_shared<MemoryObjectStore>();
///     OpenedRepository opened = Open(store).value();
///     Commit commit(&opened.GetRepository(), false);
///     ...
///     opened->DoCommit(commit);
///     Save(opened).value();
///
/// Cost and memory follow what is touched, whatever the size of the store. Objects are read ahead
/// of the links that are followed: a history in windows that double, and the subfolders of a folder
/// together. If the store has no branches, the repository has the branch `options.branch`, or
/// "master", without a head.
///
/// With a check, `options.policy` decides about branches that aren't whole. One that is left out
/// stays in the store as it is. If the current branch is left out, the first one that isn't is the
/// current one. `Save` refuses a repository that was found not to be whole unless the caller names
/// its damaged branches.
///
/// Fails if the store can't list its branches, with `NotFound` for an `options.branch` that the
/// store lacks, and as the check does. Nothing is written in any case.
TALVCS_KIT_API Result<OpenedRepository> Open(std::shared_ptr<IObjectStore> store,
                                             const OpenOptions& options = {});

}  // namespace TalVcs::Kit
