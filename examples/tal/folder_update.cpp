#include "folder_update.h"

#include "changes.h"
#include "failure.h"
#include "interrupt.h"

#include <algorithm>
#include <utility>

namespace fs = std::filesystem;

namespace Tal {

FolderUpdate::FolderUpdate(const Folder& folder, const FolderIndex& known, const FileTree& from,
                           const FileTree& to, MissingFiles missing)
    : m_folder(folder), m_from(from), m_to(to), m_missing(missing) {
  const std::string twofold = FindFileAndFolder(to.GetTree());
  if (!twofold.empty())
    throw Failure("cannot write the commit to the folder: it has a file and a folder named \"" +
                  Printable(twofold) + "\"; files are unchanged");
  for (const Change& change : CompareTrees(from, to, Moves::Ignore)) {
    Plan(known, change.path, {change.before, change.kindBefore}, {change.after, change.kindAfter});
  }
  if (missing == MissingFiles::Restore) PlanMissing(known);
  std::stable_partition(m_steps.begin(), m_steps.end(),
                        [](const Step& step) { return !step.after.HasFile(); });

  std::string blocked;
  for (Step& step : m_steps) {
    // Where there is something at the path, its folders are there too.
    if (step.after.HasFile() && step.found.type == EntryType::Nothing) CheckFolders(step.path);
    if (IsInTheWay(known, step)) blocked += "\n  " + Printable(step.path);
  }
  if (!blocked.empty())
    throw Failure(
        "uncommitted changes would be lost; commit or stash them, or move these files away:" +
        blocked);
}

// What is written is read now, so that nothing has changed yet if the store can't be read.
void FolderUpdate::Plan(const FolderIndex& known, const std::string& path, Side before,
                        Side after) {
  CheckPath(path);
  Step step{path, std::move(before), std::move(after), m_folder.Examine(path), {}, nullptr};
  if (!step.after.HasFile()) {
    m_going.insert(path);
  } else if (Holds(known, step, step.after)) {
    return;
  } else {
    step.content = m_to.Find(path);
  }
  m_steps.push_back(std::move(step));
}

void FolderUpdate::PlanMissing(const FolderIndex& known) {
  for (const std::string& path : m_to.List()) {
    const std::optional<TalVcs::Id> id = m_to.IdAt(path);
    if (id != m_from.IdAt(path) || m_folder.Examine(path).type != EntryType::Nothing) continue;
    Plan(known, path, {*id, m_from.KindOf(path)}, {*id, m_to.KindOf(path)});
  }
}

bool FolderUpdate::Holds(const FolderIndex& known, Step& step, const Side& side) const {
  if (step.found.type != EntryType::File || step.found.stat.kind != side.kind) return false;
  if (const auto answer = known.Holds(step.path, step.found.stat, side.id)) return *answer;
  if (step.foundId.View().IsEmpty())
    step.foundId = TalVcs::Blob(m_folder.Read(step.path).bytes).GetId();
  return step.foundId == side.id;
}

// A file may be replaced or removed if it is what the old tree has. Where there is nothing, only
// a file that the user removed, and that the new tree has in another form, is in the way.
bool FolderUpdate::IsInTheWay(const FolderIndex& known, Step& step) const {
  switch (step.found.type) {
    case EntryType::Nothing:
      return m_missing == MissingFiles::Respect && step.before.HasFile() && step.after.HasFile();
    case EntryType::File:
      return !step.before.HasFile() || !Holds(known, step, step.before);
    case EntryType::Folder:
      return step.after.HasFile() && !IsFreeOnceApplied(step.path);
    case EntryType::Other:
      break;
  }
  return step.after.HasFile();
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

// The bytes of a file are kept before it changes: a store that can't be saved may not be readable
// either.
void FolderUpdate::Do(const Step& step) {
  Done done{&step, std::nullopt, {}};
  const bool is_file = m_folder.Examine(step.path).type == EntryType::File;
  if (is_file) done.former = m_folder.Read(step.path);
  if (step.content) {
    done.stat = m_folder.Write(step.path, step.content->GetData(), step.after.kind);
  } else if (is_file) {
    m_folder.Remove(step.path);
  } else {
    // Where the user has put something else in place of a file that goes, it stays.
    return;
  }
  m_done.push_back(std::move(done));
}

void FolderUpdate::Apply() {
  try {
    for (const Step& step : m_steps) {
      StopIfInterrupted();
      Do(step);
    }
  } catch (...) {
    Undo();
    throw;
  }
}

void FolderUpdate::Undo() {
  for (; !m_done.empty(); m_done.pop_back()) {
    const Done& done = m_done.back();
    if (done.former) {
      m_folder.Write(done.step->path, done.former->bytes, done.former->stat.kind);
    } else {
      m_folder.Remove(done.step->path);
    }
  }
}

std::vector<SettledFile> FolderUpdate::Written() const {
  std::vector<SettledFile> written;
  for (const Done& done : m_done) {
    if (done.step->content) written.push_back({done.step->path, done.stat});
  }
  return written;
}

std::size_t SaveWithFolder(Session& session, const FileTree& before, MissingFiles missing) {
  return SaveWithFolder(session, before, session.HeadFiles(), missing);
}

std::size_t SaveWithFolder(Session& session, const FileTree& before, const FileTree& after,
                           MissingFiles missing) {
  const std::filesystem::path store_path = session.WorkFolder().StorePath();
  FolderIndex index = FolderIndex::Load(store_path);
  FolderUpdate update(session.WorkFolder(), index, before, after, missing);
  if (session.IsRehearsal()) return update.FileCount();
  update.Apply();
  try {
    session.Save();
  } catch (...) {
    if (!session.IsSaved()) update.Undo();
    throw;
  }
  const bool is_at_head = after.GetId() == session.HeadFiles().GetId();
  UpdateIndex(session, std::move(index), before,
              is_at_head ? update.Written() : std::vector<SettledFile>(),
              FileSystemTime(store_path));
  return update.FileCount();
}

}  // namespace Tal
