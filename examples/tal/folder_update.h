#pragma once

#include "session.h"

#include <string>
#include <unordered_set>
#include <vector>

namespace Tal {

/// What a file means that the folder lacks: a change of the user's, or one to be written again.
enum class MissingFiles { Respect, Restore };

/// Takes a folder from one tree to another, file by file, and back again if something goes wrong.
///
/// Nothing that isn't in a history is lost: whatever would be overwritten or removed has to hold
/// the bytes of the tree that the folder comes from, so that its content is in the store. What the
/// user changed elsewhere stays as it is.
class FolderUpdate {
 public:
  /// Plans the way. Either tree may be null, for an empty folder. Throws `Failure`, with nothing
  /// changed, if the target can't stand in a folder or uncommitted changes are in the way.
  FolderUpdate(const Folder& folder, const TreePtr& from, const TreePtr& to,
               MissingFiles missing = MissingFiles::Respect);

  /// Does it. Throws `Failure`, with the folder as it was, if a file can't be written or removed.
  void Apply();

  /// Puts back what `Apply` changed.
  void Undo();

  /// The number of files that differ, before `Apply` and after it.
  std::size_t FileCount() const noexcept { return m_steps.size(); }

 private:
  struct Step {
    std::string path;
    BlobPtr before;
    BlobPtr after;  ///< null to remove the file
  };

  void Plan(const std::string& path);
  void PlanMissing();
  bool IsInTheWay(const Step& step) const;
  bool IsFreeOnceApplied(const std::string& path) const;
  void CheckFolders(const std::string& path) const;
  void Put(const std::string& path, const BlobPtr& blob) const;

  const Folder& m_folder;
  TreePtr m_from;
  TreePtr m_to;
  MissingFiles m_missing;
  std::vector<Step> m_steps;                // removals first
  std::unordered_set<std::string> m_going;  // the files that are removed
  std::vector<const Step*> m_done;
};

/// Takes the folder from `before` to the tree of the current branch, then saves. If the store can't
/// be saved, the folder is put back. Throws `Failure`.
void SaveWithFolder(Session& session, const TreePtr& before);

}  // namespace Tal
