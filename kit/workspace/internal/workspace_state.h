#pragma once

#include <kit/open/open.h>
#include <kit/workspace/internal/draft.h>
#include <kit/workspace/internal/message.h>
#include <kit/workspace/workspace.h>
#include <talvcs/storage/on_demand_storage.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// Tags are branches of the store whose names begin with this.
inline constexpr std::string_view kTagPrefix = "tags/";

/// Who makes a version, and when.
struct Signature {
  std::string author;
  std::string email;
  std::chrono::sys_seconds time;
  std::chrono::minutes offset;
};

/// A version to be made.
struct NewVersion {
  cow_ptr<Commit> parent;
  cow_ptr<Tree> tree;
  AnnotatedMessage message;
  Signature signature;
};

/// A branch to be moved; a null commit removes it.
struct BranchMove {
  std::string name;
  cow_ptr<Commit> to;
};

/// The checkpoint that the next one may replace.
struct LastCheckpoint {
  Id id;
  std::string gesture;
  std::string author;
  std::string email;
  std::chrono::sys_seconds time;
};

/// Names of branches and tags by the id of their head.
using NamesOfIds = std::unordered_multimap<Id, std::string>;

/// Heads by the name of their branch.
using HeadMap = std::map<std::string, Id>;

/// Where a branch was before an operation, to be put back.
class FormerBranch {
 public:
  FormerBranch(IObjectsStorage& storage, WideString name);

  Id GetId() const { return m_head ? m_head->GetId() : Id(); }
  /// Moves the branch, or removes it for null.
  void Set(IObjectsStorage& storage, const cow_ptr<Commit>& head) const;
  void PutBack(IObjectsStorage& storage) const;

 private:
  WideString m_name;
  bool m_existed;
  cow_ptr<Commit> m_head;
};

/// What a workspace consists of. The repository holds what is in the store and nothing else between
/// two operations: each saves what it made, or takes it back.
struct WorkspaceState {
  WorkspaceState(std::shared_ptr<IObjectStore> objects, OpenedRepository repository,
                 const WorkspaceOptions& wishes);

  /// Returns the repository. Puts back first what an operation couldn't for want of memory.
  Repository& GetRepository();
  OnDemandStorage& GetStorage();
  /// Undoes an operation that has failed, also while memory is short: the next call of
  /// `GetRepository` then goes on.
  void PutBack(std::vector<FormerBranch> branches, std::optional<WideString> current) noexcept;
  std::string GetBranch();
  /// Returns the head of the current branch, or null. It may be read.
  cow_ptr<Commit> GetHead();
  /// Returns the commit of that id. Fails with `NotFound`.
  Result<cow_ptr<Commit>> FindCommit(const Id& id);
  /// Returns the head of a branch of the store. Fails with `NotFound`, and with `BadText` for what
  /// is no name.
  Result<cow_ptr<Commit>> FindBranch(std::string_view name);
  /// Returns the head of a branch, or else the version of a tag. Fails likewise.
  Result<cow_ptr<Commit>> FindBranchOrTag(std::string_view name);

  /// Begins anew from the files of the head, without pending edits.
  void BeginDraft(cow_ptr<Tree> files);
  bool HasPendingEdits();
  /// Fails with `Undecided` if there are pending edits.
  Status NeedNoEdits(std::string_view operation);

  Signature SignatureOf(const std::string& author, const std::string& email,
                        std::optional<std::chrono::sys_seconds> time) const;
  /// Makes a commit, which is stored in the repository and on no branch.
  Result<cow_ptr<Commit>> Make(const NewVersion& version);
  /// Moves branches and saves, begins a new draft from `files` unless that is null, and calls the
  /// observer last. On failure, everything is as it was.
  Status MoveBranches(const std::vector<BranchMove>& moves, const cow_ptr<Tree>& files,
                      const Progress& progress);
  /// Takes over moves of other branches that were made in the store, and calls the observer.
  Status TakeOver(const std::vector<HeadMove>& moves);
  /// Puts a version on the current branch, saves it and begins a new draft.
  Result<Version> PutOnBranch(const NewVersion& version, const Progress& progress);

  /// Frees what was read and no caller holds, once in some thousand calls. A walk along a history
  /// calls it for each version, so that its memory doesn't grow with the history.
  void PassVersion();

  /// Returns branches and tags by the id of their head.
  NamesOfIds NamesOfHeads();
  Version VersionOf(const cow_ptr<Commit>& commit);
  /// Does the same with the names of all heads, for many versions.
  static Version VersionOf(const cow_ptr<Commit>& commit, const NamesOfIds& names);

  std::shared_ptr<IObjectStore> store;
  OpenedRepository opened;
  /// What is yet to be put back.
  std::vector<FormerBranch> formerBranches;
  std::optional<WideString> formerCurrent;
  WorkspaceOptions options;
  cow_ptr<Tree> base;  // the files of the head, never null
  Draft draft;
  std::optional<LastCheckpoint> lastCheckpoint;
  /// Saves since the objects that were read and saved were last freed.
  int savesInMemory = 0;
  /// Versions that walks have passed since `PassVersion` last freed objects.
  int passedVersions = 0;
  std::function<void(const Workspace::Move&)> observer;
  /// The heads of the store that the observer knows of; none as long as they are the known ones.
  std::optional<HeadMap> observed;
  /// The head of the current branch that the last preview of a reload was made for.
  std::optional<Id> previewed;
};

/// Returns a commit as a host sees it, without the names of branches.
Version DescribeCommit(const Commit& commit);

/// Returns the root of a commit; an empty tree for a null commit and one without a root.
cow_ptr<Tree> RootOf(const cow_ptr<Commit>& commit);

/// True for the id of no object.
inline bool IsEmpty(const Id& id) noexcept { return id.View().IsEmpty(); }

}  // namespace TalVcs::Kit
