#include "author.h"
#include "command_line.h"
#include "command_table.h"
#include "history.h"
#include "merge_head.h"
#include "merging.h"
#include "pending_merge.h"

namespace Tal {
namespace {

struct PickOptions {
  std::string revision;
  MergeRun run;
};

struct MergeOptions : PickOptions {
  std::string message;
  bool continues = false;
  bool aborts = false;
};

struct UndoOptions {
  MergeRun run;
};

void SayUnrelated(Session& session, const Kit::MergePreview& preview) {
  if (preview.isUpToDate || preview.isFastForward) return;
  Kit::OpenedRepository opened = session.OpenRepository();
  const auto head = opened->GetHead();
  const auto other = opened->GetCommitFromStorage(preview.version.id);
  if (head && other && !opened->GetCommonBase(head, other)) {
    session.GetHost().terminal.Say(
        "the branches have no common commit; every file counts as added");
  }
}

/// Ends the merge that is in progress, one way or the other.
ExitCode EndMerge(const Host& host, const MergeOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const std::optional<PendingMerge> merge = FindPendingMerge(session);
  if (!merge) throw Failure("there is no merge in progress");
  const std::string verb = VerbOf(merge->action);
  if (options.aborts) {
    const std::size_t count = AbortPendingMerge(session, *merge);
    host.terminal.Say((options.run.isDryRun ? "would take the " : "took the ") + verb + " back, " +
                      Plural(count, "file") + " restored");
    return ExitCode::Done;
  }
  Author author = merge->author;
  if (!options.run.author.empty() || !options.run.email.empty())
    author = FindAuthor(options.run.author, options.run.email);
  FinishPendingMerge(session, *merge, author, options.message);
  if (!options.run.isDryRun) SayDone(session, verb);
  return ExitCode::Done;
}

ExitCode RunMerge(const Host& host, const MergeOptions& options) {
  if (options.continues || options.aborts) return EndMerge(host, options);
  if (options.revision.empty())
    throw Failure("say what to merge: tal merge BRANCH", ExitCode::Usage);
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  MergeHead other(session, options.revision);
  const Kit::MergePreview preview = session.Document().PreviewMerge(other.Branch()).value();
  SayUnrelated(session, preview);
  const std::string message =
      options.message.empty() ? "Merge " + Printable(options.revision) : options.message;
  return CompleteMerge(session, before, preview, options.run, message, [&] { other.Remove(); });
}

ExitCode RunCherryPick(const Host& host, const PickOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  const Kit::Version version = session.Find(options.revision);
  const Kit::MergePreview preview = session.Document().PreviewCherryPick(version.id).value();
  return CompleteMerge(session, before, preview, options.run);
}

ExitCode RunRevert(const Host& host, const PickOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  const Kit::Version version = session.Find(options.revision);
  const Kit::MergePreview preview = session.Document().PreviewRevert(version.id).value();
  return CompleteMerge(session, before, preview, options.run);
}

/// Whose versions are undone: the author's that the options or the environment name.
Kit::CommitOptions UndoerOf(const UndoOptions& options) {
  const Author author = FindAuthor(options.run.author, options.run.email);
  return {.author = author.name, .email = author.email};
}

ExitCode RunUndo(const Host& host, const UndoOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  const auto preview = session.Document().PreviewUndo(UndoerOf(options)).value();
  if (!preview) throw Failure("there is nothing of yours to undo on this branch");
  host.terminal.Say("undoing " + ShortIdOf(session, preview->version.id) + " " +
                    Printable(preview->version.summary));
  return CompleteMerge(session, before, *preview, options.run);
}

ExitCode RunRedo(const Host& host, const UndoOptions& options) {
  Session session(host, AccessFor(options.run.isDryRun));
  const FileTree before = session.HeadFiles();
  const auto preview = session.Document().PreviewRedo(UndoerOf(options)).value();
  if (!preview) throw Failure("there is nothing of yours to redo on this branch");
  return CompleteMerge(session, before, *preview, options.run);
}

void DeclareMerge(Command& command, MergeOptions& options) {
  command.Json()
      .Argument("commit", options.revision, "The branch or commit to merge")
      .Option("-m,--message", options.message, "The description, instead of one that names it")
      .Flag("--continue", options.continues,
            "End the merge, cherry-pick, revert, undo or redo that is in progress, with the files "
            "that the folder has")
      .Flag("--abort", options.aborts,
            "Take back what is in progress, with all changes of its files")
      .Exclusive({"commit", "--continue", "--abort"});
  options.run.Declare(command);
}

template <const char* Help>
void Declare(Command& command, PickOptions& options) {
  command.Json().Argument("commit", options.revision, Help).Required("commit");
  options.run.Declare(command);
}

constexpr char kPickHelp[] = "The commit whose changes to make again";
constexpr char kRevertHelp[] = "The commit whose changes to take back";

void DeclareUndo(Command& command, UndoOptions& options) {
  command.Json();
  options.run.Declare(command);
}

}  // namespace

void AddMergeCommands(Commands& commands) {
  commands.Add<MergeOptions>("merge", "Merge a branch into the current one", RunMerge,
                             DeclareMerge);
  commands.Add<PickOptions>("cherry-pick", "Make the changes of one commit on the current branch",
                            RunCherryPick, Declare<kPickHelp>);
  commands.Add<PickOptions>("revert", "Take back the changes of one commit", RunRevert,
                            Declare<kRevertHelp>);
  commands.Add<UndoOptions>("undo", "Take back your latest commit that is not undone yet", RunUndo,
                            DeclareUndo);
  commands.Add<UndoOptions>("redo", "Take back the latest undo", RunRedo, DeclareUndo);
}

}  // namespace Tal
