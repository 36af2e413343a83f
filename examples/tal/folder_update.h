#pragma once

#include "folder_changes.h"
#include "session.h"

#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace Tal {

/// What to do about a file that the folder lacks: it is a change of the user's, or it is written
/// again.
enum class MissingFiles { Respect, Restore };

/// Takes a folder from one version to another, file by file, and back again if something fails.
///
/// Nothing that isn't in a history is lost: a file that would be overwritten or removed must have
/// the bytes of the version that the folder comes from, so that its content is in the store. What
/// the user changed elsewhere stays as it is.
class FolderUpdate {
 public:
  /// Plans the steps. Files of which `known` is sure are not read. Throws `Failure`, with nothing
  /// changed, if the target can't be in a folder or uncommitted changes are in the way.
  FolderUpdate(const Folder& folder, const FolderIndex& known, const FileTree& from,
               const FileTree& to, MissingFiles missing = MissingFiles::Respect);

  /// Does them. Throws `Failure`, with the folder as it was, if a file can't be written or removed,
  /// and after an interrupt.
  void Apply();

  /// Puts back what `Apply` changed.
  void Undo();

  /// Returns the files that `Apply` has written.
  std::vector<SettledFile> Written() const;

  /// Returns the number of files that differ.
  std::size_t FileCount() const noexcept { return m_steps.size(); }

 private:
  struct Side {
    TalVcs::Id id;  ///< empty if there is no file
    FileKind kind = FileKind::File;

    bool HasFile() const { return !id.View().IsEmpty(); }
  };
  struct Step {
    std::string path;
    Side before;
    Side after;
    Entry found;         ///< what is at the path
    TalVcs::Id foundId;  ///< of the file at the path, once it was read
    BlobPtr content;     ///< of the file that the step writes
  };
  struct Done {
    const Step* step;
    std::optional<FileContent> former;  ///< the file that was there
    FileStat stat;                      ///< of the file that was written
  };

  void Plan(const FolderIndex& known, const std::string& path, Side before, Side after);
  void PlanMissing(const FolderIndex& known);
  bool Holds(const FolderIndex& known, Step& step, const Side& side) const;
  bool IsInTheWay(const FolderIndex& known, Step& step) const;
  bool IsFreeOnceApplied(const std::string& path) const;
  void CheckFolders(const std::string& path) const;
  void Do(const Step& step);

  const Folder& m_folder;
  FileTree m_from;
  FileTree m_to;
  MissingFiles m_missing;
  std::vector<Step> m_steps;                // removals first
  std::unordered_set<std::string> m_going;  // the files that are removed
  std::vector<Done> m_done;
};

/// Takes the folder from `before` to the files of the current branch, then saves. If the store
/// can't be saved, the folder is put back. A rehearsal plans it and changes nothing. Returns the
/// number of files that differ. Throws `Failure`.
std::size_t SaveWithFolder(Session& session, const FileTree& before,
                           MissingFiles missing = MissingFiles::Respect);
/// Takes the folder to other files likewise.
std::size_t SaveWithFolder(Session& session, const FileTree& before, const FileTree& after,
                           MissingFiles missing = MissingFiles::Respect);

}  // namespace Tal
