// merge := "action " word LF "version " id LF "head " id LF "branch " text LF
//          "author " text LF "email " text LF "message " text LF ("conflict " text LF)*
//
// In a text, "\" is written "\\" and a line feed "\n".

#include "pending_merge.h"

#include "failure.h"
#include "folder_changes.h"
#include "folder_update.h"
#include "interrupt.h"
#include "merge_head.h"
#include "pending_changes.h"
#include "restoration.h"

#include <kit/merge/text_merge.h>
#include <kit/open/save.h>
#include <kit/text/escape.h>

#include <array>
#include <sstream>
#include <utility>

namespace Tal {
namespace {

using Kit::MergeAction;

constexpr const char* kMergeValue = "tal-merge";

constexpr std::array<std::pair<MergeAction, const char*>, 5> kVerbs = {{
    {MergeAction::Branch, "merge"},
    {MergeAction::CherryPick, "cherry-pick"},
    {MergeAction::Revert, "revert"},
    {MergeAction::Undo, "undo"},
    {MergeAction::Redo, "redo"},
}};

std::string Serialise(const PendingMerge& merge) {
  std::string text = std::string("action ") + VerbOf(merge.action) + "\n";
  const auto add = [&](const char* key, const std::string& value) {
    text += std::string(key) + " " + Kit::EscapeLine(value) + "\n";
  };
  add("version", ToUtf8(merge.version));
  add("head", ToUtf8(merge.head));
  add("branch", merge.branch);
  add("author", merge.author.name);
  add("email", merge.author.email);
  add("message", merge.message);
  for (const std::string& path : merge.conflicts) add("conflict", path);
  return text;
}

PendingMerge Parse(const std::string& text) {
  PendingMerge merge;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t space = line.find(' ');
    if (space == line.npos) continue;
    const std::string key = line.substr(0, space);
    const std::string value = Kit::UnescapeLine(line.substr(space + 1));
    if (key == "version") merge.version = TalVcs::Id(ToWide(value));
    if (key == "head") merge.head = TalVcs::Id(ToWide(value));
    if (key == "branch") merge.branch = value;
    if (key == "author") merge.author.name = value;
    if (key == "email") merge.author.email = value;
    if (key == "message") merge.message = value;
    if (key == "conflict") merge.conflicts.push_back(value);
    if (key != "action") continue;
    for (const auto& [action, verb] : kVerbs) {
      if (value == verb) merge.action = action;
    }
  }
  return merge;
}

Kit::MergePreview PreviewAgain(Session& session, const PendingMerge& merge,
                               const MergeHead& other) {
  Kit::Workspace& document = session.Document();
  const Kit::CommitOptions undoer{.author = merge.author.name, .email = merge.author.email};
  std::optional<Kit::MergePreview> preview;
  switch (merge.action) {
    case MergeAction::CherryPick:
      return document.PreviewCherryPick(merge.version).value();
    case MergeAction::Revert:
      return document.PreviewRevert(merge.version).value();
    case MergeAction::Undo:
      preview = document.PreviewUndo(undoer).value();
      break;
    case MergeAction::Redo:
      preview = document.PreviewRedo(undoer).value();
      break;
    default:
      return document.PreviewMerge(other.Branch()).value();
  }
  if (!preview || preview->version.id != merge.version)
    throw Failure(std::string("the ") + VerbOf(merge.action) +
                  " that is in progress is not possible any more; remove what it changed by hand");
  return *std::move(preview);
}

/// Makes the version of the merge with their side of each conflict, in the memory of the session:
/// it differs from the head wherever any outcome of the merge can.
void MergeTheirs(Session& session, const PendingMerge& merge, const std::string& message,
                 const Author& author) {
  MergeHead other = merge.action == MergeAction::Branch ? MergeHead(session, ToUtf8(merge.version))
                                                        : MergeHead(session);
  const Kit::MergePreview preview = PreviewAgain(session, merge, other);
  Kit::Decisions decisions;
  for (const Kit::Conflict& conflict : preview.conflicts)
    decisions.emplace(conflict.path, Kit::Decision::Theirs());
  static_cast<void>(session.Document()
                        .Merge(preview, decisions,
                               {.message = message, .author = author.name, .email = author.email})
                        .value());
  other.Remove();
}

/// Makes a version of the folder's changes in the memory of the session, and moves the branch back.
/// Returns its id, or that of the head if nothing changed.
TalVcs::Id MakeVersionOfFolder(Session& session, const PendingMerge& merge,
                               const FolderChanges& state, std::vector<SettledFile>& read) {
  if (state.changes.empty()) return merge.head;
  read = WriteChanges(session, state);
  const Kit::Version files =
      *session.Document()
           .Commit("The folder", {.author = merge.author.name, .email = merge.author.email})
           .value();
  const Kit::HeadMove moves[] = {{merge.branch, files.id, merge.head}};
  session.Store().MoveHeads(moves).value();
  session.Reopen();
  return files.id;
}

/// Replaces the head by a version that has the files of another one.
void ReplaceFilesOfHead(Session& session, const TalVcs::Id& files) {
  {
    Kit::OpenedRepository opened = session.OpenRepository();
    TalVcs::Repository& repository = opened.GetRepository();
    TreePtr root = opened->GetCommitFromStorage(files)->GetTree()->GetRoot();
    if (!root) root.write();
    TalVcs::Commit commit(opened->GetHead(), true);
    commit.ReplaceRoot(&repository, root);
    repository.DoCommit(commit);
    static_cast<void>(
        Kit::Save(opened, {.progress = ShowProgress(session.GetHost().terminal)}).value());
  }
  session.Reopen();
}

}  // namespace

const char* VerbOf(MergeAction action) {
  for (const auto& [one, verb] : kVerbs) {
    if (one == action) return verb;
  }
  return "merge";
}

std::optional<PendingMerge> FindPendingMerge(Session& session) {
  const std::optional<std::string> text = session.Store().Value(kMergeValue).value();
  if (!text) return std::nullopt;
  PendingMerge merge = Parse(*text);
  const std::optional<Kit::Version> head = session.Head();
  if (!head || head->id != merge.head || session.Branch() != merge.branch) return std::nullopt;
  return merge;
}

void RefuseDuringMerge(Session& session) {
  const std::optional<PendingMerge> merge = FindPendingMerge(session);
  if (!merge) return;
  throw Failure(std::string("a ") + VerbOf(merge->action) +
                " is in progress; end it with tal merge --continue, or take it back with tal merge "
                "--abort");
}

std::vector<std::string> FindMarkedFiles(Session& session, const PendingMerge& merge) {
  const Folder& folder = session.WorkFolder();
  std::vector<std::string> marked;
  for (const std::string& path : merge.conflicts) {
    const Entry entry = folder.Examine(path);
    if (entry.type == EntryType::File && entry.stat.kind != FileKind::Link &&
        Kit::HasConflictMarkers(Kit::BytesFromBuffer(folder.Read(path).bytes)))
      marked.push_back(path);
  }
  return marked;
}

// The merge is remembered first. If the process ends while the folder changes, an abort puts back
// what was changed until then.
void BeginPendingMerge(Session& session, const FileTree& before, const PendingMerge& merge) {
  const Folder& folder = session.WorkFolder();
  FolderUpdate update(folder, FolderIndex::Load(folder.StorePath()), before, session.HeadFiles());
  StopIfInterrupted();
  session.SavedStore().SetValue(kMergeValue, Serialise(merge)).value();
  try {
    update.Apply();
  } catch (...) {
    // If this fails too, an abort finds the folder as it is.
    static_cast<void>(session.SavedStore().SetValue(kMergeValue, std::nullopt));
    throw;
  }
}

void FinishPendingMerge(Session& session, const PendingMerge& merge, const Author& author,
                        const std::string& message) {
  std::string marked;
  for (const std::string& path : FindMarkedFiles(session, merge))
    marked += "\n  " + Printable(path);
  if (!marked.empty())
    throw Failure(
        "these files still have both sides of a conflict, between the lines <<<<<<< and "
        ">>>>>>>; edit them first:" +
        marked);
  const FileTree before = session.HeadFiles();
  const FolderChanges state = CompareFolder(session, before, Moves::Ignore);
  RefuseNames(state.contents);
  const bool needs_changes =
      merge.action == MergeAction::CherryPick || merge.action == MergeAction::Revert;
  if (state.changes.empty() && needs_changes)
    throw Failure(std::string("the folder is as the last commit has it, so the ") +
                  VerbOf(merge.action) + " changes nothing; tal merge --abort ends it");
  std::vector<SettledFile> read;
  const TalVcs::Id files = MakeVersionOfFolder(session, merge, state, read);
  MergeTheirs(session, merge, message.empty() ? merge.message : message, author);
  ReplaceFilesOfHead(session, files);
  session.Store().SetValue(kMergeValue, std::nullopt).value();
  StopIfInterrupted();
  if (session.IsRehearsal()) return;
  session.Save();
  UpdateIndex(session, state.index, before, read, state.looked);
}

std::size_t AbortPendingMerge(Session& session, const PendingMerge& merge) {
  const Folder& folder = session.WorkFolder();
  Session scratch(session.GetHost(), Access::Rehearse);
  const FileTree head = scratch.HeadFiles();
  MergeTheirs(scratch, merge, "Theirs", merge.author);
  std::vector<std::string> touched;
  for (const Change& change : CompareTrees(head, scratch.HeadFiles(), Moves::Ignore))
    touched.push_back(change.path);
  const std::vector<std::string> paths = PathsThatDiffer(folder, head, touched);
  if (session.IsRehearsal()) return paths.size();
  Restoration restoration(folder);
  restoration.Apply(head, paths);
  try {
    session.Store().SetValue(kMergeValue, std::nullopt).value();
    session.Save();
  } catch (...) {
    restoration.Undo();
    throw;
  }
  return paths.size();
}

}  // namespace Tal
