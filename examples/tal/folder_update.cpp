#include "folder_update.h"

#include "changes.h"
#include "failure.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace Tal {
namespace {

fs::file_type TypeOf(const fs::path& path) {
  std::error_code error;
  return fs::symlink_status(path, error).type();
}

}  // namespace

FolderUpdate::FolderUpdate(const Folder& folder, const TreePtr& from, const TreePtr& to,
                           MissingFiles missing)
    : m_folder(folder), m_from(from), m_to(to), m_missing(missing) {
  const std::string twofold = FindFileAndFolder(to);
  if (!twofold.empty())
    throw Failure("cannot write the commit to the folder: it has a file and a folder named \"" +
                  Printable(twofold) + "\"; files are unchanged");
  for (const Change& change : CompareTrees(from, to)) Plan(change.path);
  if (missing == MissingFiles::Restore) PlanMissing();
  std::stable_partition(m_steps.begin(), m_steps.end(),
                        [](const Step& step) { return !step.after; });

  std::string blocked;
  for (const Step& step : m_steps) {
    if (step.after) CheckFolders(step.path);
    if (IsInTheWay(step)) blocked += "\n  " + Printable(step.path);
  }
  if (!blocked.empty())
    throw Failure("uncommitted changes would be lost; commit them, or move these files away:" +
                  blocked);
}

void FolderUpdate::Plan(const std::string& path) {
  CheckPath(path);
  const Step step{path, FindBlob(m_from, path), FindBlob(m_to, path)};
  const bool isThere = step.after && m_folder.Holds(path, step.after->GetData());
  if (isThere) return;
  if (!step.after) m_going.insert(path);
  m_steps.push_back(step);
}

void FolderUpdate::PlanMissing() {
  for (const std::string& path : ListTree(m_to)) {
    const BlobPtr before = FindBlob(m_from, path);
    const bool isUnchanged = before && before->GetId() == FindBlob(m_to, path)->GetId();
    if (isUnchanged && TypeOf(m_folder.PathOf(path)) == fs::file_type::not_found) Plan(path);
  }
}

// A file may be replaced or removed if it holds what the old tree has. Where there is nothing, only
// a file that the user removed, and that the new tree has in another form, is in the way.
bool FolderUpdate::IsInTheWay(const Step& step) const {
  switch (TypeOf(m_folder.PathOf(step.path))) {
    case fs::file_type::not_found:
      return m_missing == MissingFiles::Respect && step.before && step.after;
    case fs::file_type::regular:
      return !step.before || !m_folder.Holds(step.path, step.before->GetData());
    case fs::file_type::directory:
      return step.after && !IsFreeOnceApplied(step.path);
    default:
      return static_cast<bool>(step.after);
  }
}

/// True for a folder of which all files go in this update, and for a path below a file that goes.
bool FolderUpdate::IsFreeOnceApplied(const std::string& path) const {
  for (std::string above = path; above.find('/') != std::string::npos;) {
    above.resize(above.rfind('/'));
    if (m_going.contains(above)) return true;
  }
  std::error_code error;
  fs::recursive_directory_iterator entries(m_folder.PathOf(path), error);
  for (; !error && entries != fs::recursive_directory_iterator(); entries.increment(error)) {
    if (TypeOf(entries->path()) == fs::file_type::directory) continue;
    if (!m_going.contains(entries->path().lexically_relative(m_folder.Top()).string()))
      return false;
  }
  return !error;
}

/// A symbolic link above a file would lead the file out of the folder.
void FolderUpdate::CheckFolders(const std::string& path) const {
  for (std::string above = path; above.find('/') != std::string::npos;) {
    above.resize(above.rfind('/'));
    const fs::file_type type = TypeOf(m_folder.PathOf(above));
    if (type == fs::file_type::not_found || type == fs::file_type::directory) continue;
    if (type == fs::file_type::regular && IsFreeOnceApplied(path)) continue;
    throw Failure("cannot create the folder \"" + Printable(above) +
                  "\": something else has that name; move it away");
  }
}

void FolderUpdate::Put(const std::string& path, const BlobPtr& blob) const {
  if (blob) {
    m_folder.Write(path, blob->GetData());
  } else {
    m_folder.Remove(path);
  }
}

void FolderUpdate::Apply() {
  try {
    for (const Step& step : m_steps) {
      // Where the user has put something else in place of a file that goes, it stays.
      const bool isOurs = TypeOf(m_folder.PathOf(step.path)) == fs::file_type::regular;
      if (!step.after && !isOurs) continue;
      Put(step.path, step.after);
      m_done.push_back(&step);
    }
  } catch (const Failure&) {
    Undo();
    throw;
  }
}

void FolderUpdate::Undo() {
  for (; !m_done.empty(); m_done.pop_back()) Put(m_done.back()->path, m_done.back()->before);
}

void SaveWithFolder(Session& session, const TreePtr& before) {
  FolderUpdate update(session.WorkFolder(), before, RootOf(session.Head()));
  update.Apply();
  try {
    session.Save();
  } catch (const Failure&) {
    if (!session.IsSaved()) update.Undo();
    throw;
  }
}

}  // namespace Tal
