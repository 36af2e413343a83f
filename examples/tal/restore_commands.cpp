#include "author.h"
#include "command_line.h"
#include "command_table.h"
#include "folder_update.h"
#include "history.h"
#include "paths.h"
#include "pending_changes.h"
#include "pending_merge.h"
#include "restoration.h"

#include <kit/workspace/decisions.h>

#include <algorithm>
#include <charconv>
#include <iostream>

namespace Tal {
namespace {

constexpr std::string_view kStashPrefix = "stash/";

struct RestoreOptions {
  std::string path;
  std::string from;
  bool isDryRun = false;
};

struct StashOptions {
  std::string action = "save";
  std::string message;
  bool isDryRun = false;
};

ExitCode RunRestore(const Host& host, const RestoreOptions& options) {
  Session session(host, AccessFor(options.isDryRun));
  const FileTree files = session.FilesOf(session.FindOrHead(options.from).id);
  const std::string top = NormalPath(options.path);
  std::vector<std::string> paths;
  if (files.Find(top)) {
    paths.push_back(top);
  } else if (top.empty() || files.Contains(top)) {
    paths = files.List(top);
  } else {
    throw Failure("the commit has nothing at \"" + Printable(top) + "\"; tal ls lists its files");
  }
  paths = PathsThatDiffer(session.WorkFolder(), files, paths);
  if (options.isDryRun) {
    for (const std::string& path : paths) std::cout << Printable(path) << '\n';
    host.terminal.Say("would restore " + Plural(paths.size(), "file") + "; this was a dry run");
    return ExitCode::Done;
  }
  Restoration(session.WorkFolder()).Apply(files, paths);
  host.terminal.Say("restored " + Plural(paths.size(), "file"));
  return ExitCode::Done;
}

std::uint64_t NumberOf(const std::string& tag) {
  std::uint64_t number = 0;
  std::from_chars(tag.data() + kStashPrefix.size(), tag.data() + tag.size(), number);
  return number;
}

/// Returns the stashes, the latest first.
std::vector<Kit::Head> ListStashes(Session& session) {
  std::vector<Kit::Head> stashes = session.Document().GetTags();
  std::erase_if(stashes, [](const Kit::Head& tag) { return !tag.name.starts_with(kStashPrefix); });
  std::sort(stashes.begin(), stashes.end(), [](const Kit::Head& a, const Kit::Head& b) {
    return NumberOf(a.name) > NumberOf(b.name);
  });
  return stashes;
}

/// Makes a version of the folder's changes that no branch has, under the name of the next stash.
/// The current branch moves to it and back, in the memory of the session alone.
ExitCode SaveStash(const Host& host, const StashOptions& options) {
  Session session(host, AccessFor(options.isDryRun));
  RefuseDuringMerge(session);
  const Kit::Version head = session.Find("HEAD");
  const FolderChanges state = CompareFolder(session, session.HeadFiles(), Moves::Ignore);
  RefuseNames(state.contents);
  if (state.changes.empty())
    throw Failure("nothing to stash: no file changed since the last commit");
  const std::vector<Kit::Head> stashes = ListStashes(session);
  const std::uint64_t number = stashes.empty() ? 1 : NumberOf(stashes.front().name) + 1;
  const std::string name = std::string(kStashPrefix) + std::to_string(number);
  const std::string branch = session.Branch();
  WriteChanges(session, state);
  const Author author = FindAuthor("", "");
  const std::string message =
      options.message.empty() ? "Stash on " + Printable(branch) : options.message;
  const Kit::Version stash =
      *session.Document().Commit(message, {.author = author.name, .email = author.email}).value();
  const Kit::HeadMove moves[] = {{branch, stash.id, head.id}, {"tags/" + name, {}, stash.id}};
  session.Store().MoveHeads(moves).value();
  session.Reopen();
  SaveWithFolder(session, session.FilesOf(stash.id));
  host.terminal.Say((options.isDryRun ? "would stash " : "stashed ") +
                    Plural(state.changes.size(), "file") + " as " + name);
  return ExitCode::Done;
}

Kit::Version LatestStash(Session& session, std::string& name) {
  const std::vector<Kit::Head> stashes = ListStashes(session);
  if (stashes.empty()) throw Failure("there is no stash");
  name = stashes.front().name;
  return session.Document().Find(name).value();
}

/// Merges the changes of a stash with the folder as it is. The folder's state becomes a version for
/// that, in a session which keeps nothing.
class StashMerge {
 public:
  StashMerge(const Host& host, const Kit::Version& stash) : m_session(host, Access::Rehearse) {
    const FolderChanges state = CompareFolder(m_session, m_session.HeadFiles(), Moves::Ignore);
    RefuseNames(state.contents);
    Kit::Workspace& document = m_session.Document();
    if (!state.changes.empty()) {
      WriteChanges(m_session, state);
      static_cast<void>(document.Commit("The folder", Somebody()).value());
    }
    m_before = m_session.HeadFiles();
    m_preview = document.PreviewCherryPick(stash.id).value();
    static_cast<void>(document
                          .Merge(m_preview, Kit::KeepBothSides(m_preview),
                                 {.author = Somebody().author, .email = Somebody().email})
                          .value());
    m_after = m_session.HeadFiles();
  }

  const FileTree& Before() const noexcept { return m_before; }
  const FileTree& After() const noexcept { return m_after; }
  const std::vector<Kit::Conflict>& Conflicts() const noexcept { return m_preview.conflicts; }

 private:
  static Kit::CommitOptions Somebody() { return {.author = "tal", .email = "tal"}; }

  Session m_session;
  Kit::MergePreview m_preview;
  FileTree m_before;
  FileTree m_after;
};

ExitCode PopStash(const Host& host, const StashOptions& options) {
  Session session(host, AccessFor(options.isDryRun));
  RefuseDuringMerge(session);
  std::string name;
  const Kit::Version stash = LatestStash(session, name);
  const StashMerge merge(host, stash);
  const bool is_whole = merge.Conflicts().empty();
  if (is_whole) session.Document().RemoveTag(name).value();
  const std::size_t count = SaveWithFolder(session, merge.Before(), merge.After());
  for (const Kit::Conflict& conflict : merge.Conflicts())
    std::cout << host.terminal.Paint(Colour::Red, "conflict") << '\t' << Printable(conflict.path)
              << '\t' << Kit::Describe(conflict) << '\n';
  host.terminal.Say((options.isDryRun ? "would bring back " : "brought back ") +
                    Plural(count, "file") + " of " + name);
  if (is_whole) return ExitCode::Done;
  host.terminal.Say(name +
                    " stays, because it conflicts with the folder; once the files are right, " +
                    "tal stash drop removes it");
  return ExitCode::Differs;
}

ExitCode DropStash(const Host& host, const StashOptions& options) {
  Session session(host, AccessFor(options.isDryRun));
  std::string name;
  LatestStash(session, name);
  session.Document().RemoveTag(name).value();
  session.Save();
  host.terminal.Say((options.isDryRun ? "would drop " : "dropped ") + name);
  return ExitCode::Done;
}

ExitCode PrintStashes(const Host& host) {
  Session session(host, Access::Read);
  for (const Kit::Head& stash : ListStashes(session)) {
    const Kit::Version version = session.Document().Find(stash.name).value();
    std::cout << host.terminal.Paint(Colour::Yellow, stash.name) << ' '
              << Printable(version.summary) << " (" << FormatTime(version) << ")\n";
  }
  return ExitCode::Done;
}

ExitCode RunStash(const Host& host, const StashOptions& options) {
  if (options.action == "save") return SaveStash(host, options);
  if (options.action == "pop") return PopStash(host, options);
  if (options.action == "drop") return DropStash(host, options);
  if (options.action == "list") return PrintStashes(host);
  throw Failure("a stash can do: save, pop, drop, list; not \"" + Printable(options.action) + "\"",
                ExitCode::Usage);
}

}  // namespace

void AddRestoreCommands(Commands& commands) {
  commands.Add<RestoreOptions>(
      "restore", "Write a file or folder of a commit over what is there", RunRestore,
      [](Command& command, RestoreOptions& options) {
        command.Argument("path", options.path, "The path, from the top of the folder; \".\" is all")
            .Required("path")
            .Option("--from", options.from, "The commit, instead of the last one")
            .Flag("--dry-run", options.isDryRun, "List the files and change nothing");
      });
  commands.Add<StashOptions>(
      "stash", "Put the folder's changes aside, and bring them back", RunStash,
      [](Command& command, StashOptions& options) {
        command
            .Argument("action", options.action,
                      "save (the default), pop: bring back the latest, drop: forget it, list")
            .Option("-m,--message", options.message, "What the changes are")
            .Flag("--dry-run", options.isDryRun, "Check it and change nothing");
      });
}

}  // namespace Tal
