#include "folder_update.h"

#include "changes.h"
#include "failure.h"
#include "interrupt.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace Tal {

FolderUpdate::FolderUpdate(const Folder& folder, const FileTree& from, const FileTree& to,
                           MissingFiles missing)
    : m_folder(folder), m_from(from), m_to(to), m_missing(missing) {
  const std::string twofold = FindFileAndFolder(to.GetTree());
  if (!twofold.empty())
    throw Failure("cannot write the commit to the folder: it has a file and a folder named \"" +
                  Printable(twofold) + "\"; files are unchanged");
  for (const Change& change : CompareTrees(from, to, Moves::Ignore)) Plan(change.path);
  if (missing == MissingFiles::Restore) PlanMissing();
  std::stable_partition(m_steps.begin(), m_steps.end(),
                        [](const Step& step) { return !step.after.blob; });

  std::string blocked;
  for (const Step& step : m_steps) {
    if (step.after.blob) CheckFolders(step.path);
    if (IsInTheWay(step)) blocked += "\n  " + Printable(step.path);
  }
  if (!blocked.empty())
    throw Failure(
        "uncommitted changes would be lost; commit or stash them, or move these files away:" +
        blocked);
}

void FolderUpdate::Plan(const std::string& path) {
  CheckPath(path);
  const Step step{
      path, {m_from.Find(path), m_from.KindOf(path)}, {m_to.Find(path), m_to.KindOf(path)}};
  if (step.after.blob && Holds(path, step.after)) return;
  if (!step.after.blob) m_going.insert(path);
  m_steps.push_back(step);
}

void FolderUpdate::PlanMissing() {
  for (const std::string& path : m_to.List()) {
    const BlobPtr before = m_from.Find(path);
    const bool is_unchanged = before && before->GetId() == m_to.Find(path)->GetId();
    if (is_unchanged && m_folder.Examine(path).type == EntryType::Nothing) Plan(path);
  }
}

bool FolderUpdate::Holds(const std::string& path, const Side& side) const {
  return m_folder.Holds(path, side.blob->GetId(), side.kind);
}

// A file may be replaced or removed if it is what the old tree has. Where there is nothing, only
// a file that the user removed, and that the new tree has in another form, is in the way.
bool FolderUpdate::IsInTheWay(const Step& step) const {
  switch (m_folder.Examine(step.path).type) {
    case EntryType::Nothing:
      return m_missing == MissingFiles::Respect && step.before.blob && step.after.blob;
    case EntryType::File:
      return !step.before.blob || !Holds(step.path, step.before);
    case EntryType::Folder:
      return step.after.blob && !IsFreeOnceApplied(step.path);
    case EntryType::Other:
      break;
  }
  return static_cast<bool>(step.after.blob);
}

/// Returns true for a folder of which all files go in this update, and for a path below a file that
/// goes.
bool FolderUpdate::IsFreeOnceApplied(const std::string& path) const {
  for (std::string above = path; above.find('/') != std::string::npos;) {
    above.resize(above.rfind('/'));
    if (m_going.contains(above)) return true;
  }
  std::error_code error;
  fs::recursive_directory_iterator entries(m_folder.Top() / path, error);
  for (; !error && entries != fs::recursive_directory_iterator(); entries.increment(error)) {
    if (entries->symlink_status(error).type() == fs::file_type::directory) continue;
    if (!m_going.contains(entries->path().lexically_relative(m_folder.Top()).string()))
      return false;
  }
  return !error;
}

// A symbolic link above a file stays where it is, unless the update removes it.
void FolderUpdate::CheckFolders(const std::string& path) const {
  for (std::string above = path; above.find('/') != std::string::npos;) {
    above.resize(above.rfind('/'));
    const EntryType type = m_folder.Examine(above).type;
    if (type == EntryType::Nothing || type == EntryType::Folder) continue;
    if (type == EntryType::File && m_going.contains(above)) continue;
    throw Failure("cannot create the folder \"" + Printable(above) +
                  "\": something else has that name; move it away");
  }
}

void FolderUpdate::Put(const std::string& path, const Side& side) const {
  if (side.blob) {
    m_folder.Write(path, side.blob->GetData(), side.kind);
  } else {
    m_folder.Remove(path);
  }
}

void FolderUpdate::Apply() {
  try {
    for (const Step& step : m_steps) {
      StopIfInterrupted();
      // Where the user has put something else in place of a file that goes, it stays.
      const bool is_ours = m_folder.Examine(step.path).type == EntryType::File;
      if (!step.after.blob && !is_ours) continue;
      Put(step.path, step.after);
      m_done.push_back(&step);
    }
  } catch (...) {
    Undo();
    throw;
  }
}

void FolderUpdate::Undo() {
  for (; !m_done.empty(); m_done.pop_back()) Put(m_done.back()->path, m_done.back()->before);
}

std::vector<SettledFile> FolderUpdate::Written() const {
  std::vector<SettledFile> written;
  for (const Step* step : m_done) {
    if (step->after.blob) written.push_back({step->path, m_folder.Examine(step->path).stat});
  }
  return written;
}

std::size_t SaveWithFolder(Session& session, const FileTree& before, MissingFiles missing) {
  return SaveWithFolder(session, before, session.HeadFiles(), missing);
}

std::size_t SaveWithFolder(Session& session, const FileTree& before, const FileTree& after,
                           MissingFiles missing) {
  FolderUpdate update(session.WorkFolder(), before, after, missing);
  if (session.IsRehearsal()) return update.FileCount();
  update.Apply();
  try {
    session.Save();
  } catch (...) {
    if (!session.IsSaved()) update.Undo();
    throw;
  }
  const std::filesystem::path store_path = session.WorkFolder().StorePath();
  const bool is_at_head = after.GetId() == session.HeadFiles().GetId();
  UpdateIndex(session, FolderIndex::Load(store_path), before,
              is_at_head ? update.Written() : std::vector<SettledFile>(),
              FileSystemTime(store_path));
  return update.FileCount();
}

}  // namespace Tal
