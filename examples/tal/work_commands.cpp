#include "author.h"
#include "command_line.h"
#include "command_table.h"
#include "folder_changes.h"
#include "git/commit_text.h"
#include "interrupt.h"
#include "merging.h"
#include "pending_changes.h"
#include "pending_merge.h"
#include "printing.h"
#include "store_files.h"

#include <kit/open/save.h>

#include <iostream>

namespace Tal {
namespace {

struct InitOptions {
  std::string store;
};

struct StatusOptions {
  bool ignoresMoves = false;
};

struct CommitOptions {
  std::string message;
  std::string author;
  std::string email;
  bool allowEmpty = false;
  bool isDryRun = false;
};

void SaySkipped(const Host& host, const FolderContents& contents) {
  for (const FolderContents::Skipped& skipped : contents.skipped)
    host.terminal.Say("skipped " + Printable(skipped.path) + " (" + skipped.reason + ")");
}

/// Prints the merge that is in progress, with the files that still have markers.
void PrintMerge(const Host& host, Session& session, const PendingMerge& merge,
                const std::vector<std::string>& marked) {
  std::cout << host.terminal.Paint(Colour::Bold, VerbOf(merge.action)) << " of "
            << ShortIdOf(session, merge.version) << " in progress: "
            << "tal merge --continue ends it, tal merge --abort takes it back\n";
  for (const std::string& path : marked)
    std::cout << host.terminal.Paint(Colour::Red, "conflict") << '\t' << Printable(path) << '\n';
}

void PrintStatus(const Host& host, Session& session, const FolderChanges& state) {
  const std::optional<Kit::Version> head = session.Head();
  const std::optional<PendingMerge> merge = FindPendingMerge(session);
  std::cout << "branch " << host.terminal.Paint(Colour::Bold, Printable(session.Branch()))
            << (head ? " at " + ShortIdOf(session, head->id) : ", no commit yet") << '\n';
  if (merge) PrintMerge(host, session, *merge, FindMarkedFiles(session, *merge));
  for (const Change& change : state.changes) PrintChange(host.terminal, change);
  for (const std::string& path : state.contents.refused)
    std::cout << host.terminal.Paint(Colour::Red, "not UTF-8") << '\t' << Printable(path) << '\n';
  if (state.changes.empty() && state.contents.refused.empty()) std::cout << "nothing changed\n";
}

void PrintMergeJson(Kit::JsonWriter& json, Session& session) {
  const std::optional<PendingMerge> merge = FindPendingMerge(session);
  if (!merge) {
    json.Null();
    return;
  }
  json.BeginObject();
  json.Key("action").Text(VerbOf(merge->action));
  json.Key("commit").Text(ToUtf8(merge->version));
  json.Key("conflicts").BeginArray();
  for (const std::string& path : merge->conflicts) json.Text(path);
  json.EndArray();
  json.Key("marked").BeginArray();
  for (const std::string& path : FindMarkedFiles(session, *merge)) json.Text(path);
  json.EndArray();
  json.EndObject();
}

void PrintStatusJson(Session& session, const FolderChanges& state) {
  const std::optional<Kit::Version> head = session.Head();
  Kit::JsonWriter json(std::cout);
  json.BeginObject();
  json.Key("branch").Text(session.Branch());
  json.Key("head").TextOrNull(head ? IdOf(*head) : "");
  json.Key("merge");
  PrintMergeJson(json, session);
  json.Key("changes").BeginArray();
  for (const Change& change : state.changes) PrintChangeJson(json, change);
  json.EndArray();
  json.Key("skipped").BeginArray();
  for (const FolderContents::Skipped& skipped : state.contents.skipped) {
    json.BeginObject();
    json.Key("path").Text(ToWideExactly(skipped.path) ? skipped.path : Printable(skipped.path));
    json.Key("reason").Text(skipped.reason);
    json.EndObject();
  }
  json.EndArray();
  json.Key("not_utf8").BeginArray();
  for (const std::string& path : state.contents.refused) json.Text(Printable(path));
  json.EndArray();
  json.EndObject();
}

/// Makes a commit whose files are those of the head.
void CommitNothing(Session& session, const CommitOptions& options, const Author& author) {
  Kit::OpenedRepository opened = session.OpenRepository();
  TalVcs::Repository& repository = opened.GetRepository();
  TalVcs::Commit commit(&repository, false);
  commit.SetDescription(ToWide(DescriptionOf(options.message, {})));
  commit.SetAuthorName(ToWide(author.name));
  commit.SetAuthorEmail(ToWide(author.email));
  repository.DoCommit(commit);
  static_cast<void>(Kit::Save(opened).value());
  session.Reopen();
}

ExitCode RunInit(const Host& host, const InitOptions& options) {
  CheckStart(host.start);
  CreateStore(host.start, ParseStoreKind(options.store));
  const std::filesystem::path store =
      host.start == "." ? Folder::kStoreName : host.start / Folder::kStoreName;
  host.terminal.Say("created an empty store in " + Printable(store.string()));
  return ExitCode::Done;
}

ExitCode RunStatus(const Host& host, const StatusOptions& options) {
  Session session(host, Access::Read);
  const FolderChanges state = CompareFolder(session, session.HeadFiles(),
                                            options.ignoresMoves ? Moves::Ignore : Moves::Find);
  if (host.json) {
    PrintStatusJson(session, state);
  } else {
    PrintStatus(host, session, state);
    SaySkipped(host, state.contents);
  }
  return ExitCode::Done;
}

ExitCode RunCommit(const Host& host, const CommitOptions& options) {
  CheckDescription(options.message);
  const Author author = FindAuthor(options.author, options.email);

  Session session(host, AccessFor(options.isDryRun));
  if (const auto merge = FindPendingMerge(session); merge && !options.isDryRun) {
    FinishPendingMerge(session, *merge, author, options.message);
    SayDone(session, VerbOf(merge->action));
    return ExitCode::Done;
  }
  const FolderChanges state = CompareFolder(session, session.HeadFiles(), Moves::Ignore);
  SaySkipped(host, state.contents);
  RefuseNames(state.contents);
  if (state.changes.empty() && !options.allowEmpty)
    throw Failure("nothing to commit: no file changed since the last commit");
  if (options.isDryRun) {
    for (const Change& change : state.changes) PrintChange(host.terminal, change);
    host.terminal.Say("would commit " + Plural(state.changes.size(), "file") +
                      "; this was a dry run");
    return ExitCode::Done;
  }
  const FileTree before = session.HeadFiles();
  std::vector<SettledFile> read;
  if (state.changes.empty()) {
    CommitNothing(session, options, author);
  } else {
    read = WriteChanges(session, state);
    static_cast<void>(session.Document()
                          .Commit(options.message, {.author = author.name,
                                                    .email = author.email,
                                                    .progress = ShowProgress(host.terminal)})
                          .value());
  }
  StopIfInterrupted();
  session.Save();
  UpdateIndex(session, state.index, before, read, state.looked);
  host.terminal.Say("committed " + ShortIdOf(session, session.Head()->id) + " on " +
                    Printable(session.Branch()) + ": " + Plural(state.changes.size(), "file"));
  return ExitCode::Done;
}

}  // namespace

void AddWorkCommands(Commands& commands) {
  commands.Add<InitOptions>(
      "init", "Create an empty store", RunInit, [](Command& command, InitOptions& options) {
        command.Option("--store", options.store,
                       "How to keep the history: \"folder\", in files, or \"sqlite\", in one file");
      });
  commands.Add<StatusOptions>("status", "Show how the folder differs from the last commit",
                              RunStatus, [](Command& command, StatusOptions& options) {
                                command.Json().Flag("--no-renames", options.ignoresMoves,
                                                    "Show a moved file as removed and added");
                              });
  commands.Add<CommitOptions>(
      "commit", "Commit the whole state of the folder: added, changed and removed files", RunCommit,
      [](Command& command, CommitOptions& options) {
        command.Text("-m,--message", options.message, "The description")
            .Required("--message")
            .Flag("--allow-empty", options.allowEmpty, "Commit even if nothing changed")
            .Flag("--dry-run", options.isDryRun, "Show what would be committed")
            .Option("--author", options.author, "The author's name, instead of TAL_AUTHOR")
            .Option("--email", options.email, "The author's e-mail, instead of TAL_EMAIL");
      });
}

}  // namespace Tal
