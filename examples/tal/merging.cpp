#include "merging.h"

#include "author.h"
#include "folder_update.h"
#include "history.h"
#include "interrupt.h"
#include "pending_merge.h"

#include <kit/text/json_writer.h>
#include <kit/workspace/decisions.h>

#include <iostream>

namespace Tal {
namespace {

const char* WayOf(const Kit::MergePreview& preview, const std::string& verb) {
  if (preview.isUpToDate) return "nothing to do";
  return preview.isFastForward ? "fast-forward" : verb.c_str();
}

void PrintOutcome(const Host& host, const Kit::MergePreview& preview,
                  const DecidedConflicts& decided, const std::string& verb) {
  if (!host.json) {
    for (const DecidedConflict& conflict : decided.list) {
      std::cout << host.terminal.Paint(Colour::Red, "conflict") << '\t' << Printable(conflict.path)
                << '\t' << conflict.kind << '\t' << conflict.choice << '\n';
    }
    if (decided.list.empty()) std::cout << WayOf(preview, verb) << ", no conflicts\n";
    return;
  }
  Kit::JsonWriter json(std::cout);
  json.BeginObject();
  json.Key("way").Text(WayOf(preview, verb));
  json.Key("undecided").Number(static_cast<std::int64_t>(decided.CountUndecided()));
  json.Key("conflicts").BeginArray();
  for (const DecidedConflict& conflict : decided.list) {
    json.BeginObject();
    json.Key("path").Text(conflict.path);
    json.Key("kind").Text(conflict.kind);
    json.Key("choice").Text(conflict.choice);
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
}

/// Brings the merge into the folder, with the conflicts that aren't decided, and remembers it.
void LeaveInFolder(Session& session, const FileTree& before, const Kit::MergePreview& preview,
                   const DecidedConflicts& decided, const Author& author,
                   const std::string& message) {
  PendingMerge merge{
      preview.action, preview.version.id, preview.head, session.Branch(), author, message, {}};
  for (const Kit::Conflict& conflict : preview.conflicts) {
    if (!decided.decisions.contains(conflict.path)) merge.conflicts.push_back(conflict.path);
  }
  static_cast<void>(session.Document()
                        .Merge(preview, Kit::KeepBothSides(preview, decided.decisions),
                               {.author = author.name, .email = author.email})
                        .value());
  BeginPendingMerge(session, before, merge);
}

}  // namespace

void MergeRun::Declare(Command& command) {
  DeclareConflicts(command, conflicts);
  command.Flag("--dry-run", isDryRun, "List the conflicts and change nothing")
      .Option("--author", author, "The author's name, instead of TAL_AUTHOR")
      .Option("--email", email, "The author's e-mail, instead of TAL_EMAIL");
}

void SayDone(Session& session, const std::string& verb) {
  session.GetHost().terminal.Say(verb + " done: " + Printable(session.Branch()) + " is at " +
                                 ShortIdOf(session, session.Head()->id));
}

ExitCode CompleteMerge(Session& session, const FileTree& before, const Kit::MergePreview& preview,
                       const MergeRun& run, const std::string& message,
                       const std::function<void()>& clean) {
  RefuseDuringMerge(session);
  const Host& host = session.GetHost();
  const std::string verb = VerbOf(preview.action);
  const DecidedConflicts decided = Decide(session, preview, run.conflicts);
  const Author author = FindAuthor(run.author, run.email);
  if (decided.CountUndecided() > 0) {
    if (!run.isDryRun) LeaveInFolder(session, before, preview, decided, author, message);
    PrintOutcome(host, preview, decided, verb);
    if (!run.isDryRun)
      host.terminal.Say(Plural(decided.CountUndecided(), "conflict") +
                        " to decide in the folder: edit the files, then tal merge --continue. " +
                        "tal merge --abort takes the " + verb + " back");
    return ExitCode::Differs;
  }
  if (run.isDryRun || host.json) PrintOutcome(host, preview, decided, verb);
  if (preview.isUpToDate) {
    if (!run.isDryRun)
      host.terminal.Say("nothing to " + verb + ": the current branch has every change");
    return ExitCode::Done;
  }
  static_cast<void>(session.Document()
                        .Merge(preview, decided.decisions,
                               {.message = message,
                                .author = author.name,
                                .email = author.email,
                                .progress = ShowProgress(host.terminal)})
                        .value());
  if (clean) clean();
  StopIfInterrupted();
  const std::size_t files = SaveWithFolder(session, before);
  if (run.isDryRun) {
    host.terminal.Say(Plural(files, "file") + " would change; this was a dry run");
    return ExitCode::Done;
  }
  for (const DecidedConflict& conflict : decided.list)
    host.terminal.Say(Printable(conflict.path) + ": " + conflict.kind + ", took " +
                      conflict.choice);
  SayDone(session, WayOf(preview, verb));
  return ExitCode::Done;
}

}  // namespace Tal
