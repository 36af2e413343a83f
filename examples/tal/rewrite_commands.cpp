#include "clean_up.h"
#include "command_line.h"
#include "command_table.h"
#include "folder_update.h"
#include "history.h"
#include "pending_merge.h"

#include <kit/open/save.h>
#include <kit/open/statistics.h>
#include <kit/text/sizes.h>

namespace Tal {
namespace {

struct RebaseOptions {
  std::string onto;
  std::string branch;
  std::string other;
  bool isDryRun = false;
};

struct ForgetOptions {
  std::string revision;
  bool isDryRun = false;
};

struct RehearsableOptions {
  bool isDryRun = false;
};

ExitCode RunRebase(const Host& host, const RebaseOptions& options) {
  CheckBranchName(options.onto);
  Session session(host, AccessFor(options.isDryRun));
  RefuseDuringMerge(session);
  const std::string branch = options.branch.empty() ? session.Branch() : options.branch;
  const std::string other = options.other.empty() ? options.onto : options.other;
  const FileTree before = session.HeadFiles();
  Kit::OpenedRepository opened = session.OpenRepository();
  for (const std::string& name : {branch, other}) {
    const bool may_be_missing = name == options.onto;
    if (!may_be_missing && !opened->BranchExist(ToWide(name)))
      throw Failure("cannot rebase \"" + Printable(name) + "\": there is no such branch");
  }
  if (!opened->EnsureCommonRootFor(ToWide(branch), ToWide(other), ToWide(options.onto)))
    throw Failure("cannot rebase the branches onto \"" + Printable(options.onto) +
                  "\"; branches and files are unchanged");
  static_cast<void>(Kit::Save(opened, {.progress = ShowProgress(host.terminal)}).value());
  session.Reopen();
  SaveWithFolder(session, before);
  host.terminal.Say(Printable(branch) + " and " + Printable(other) +
                    (options.isDryRun ? " would have" : " have") + " a common first commit" +
                    (options.isDryRun ? "" : " now"));
  return ExitCode::Done;
}

ExitCode RunForget(const Host& host, const ForgetOptions& options) {
  Session session(host, AccessFor(options.isDryRun));
  RefuseDuringMerge(session);
  const Kit::Version last = session.Find(options.revision);
  if (last.parent.View().IsEmpty())
    throw Failure(ShortIdOf(session, last.id) +
                  " is the first commit: it has no ancestors to remove");
  const Kit::RetentionReport report =
      ForgetVersions(session, Kit::Retention::ForgetThrough(last.id));
  SaveAndCleanUp(session, (options.isDryRun ? "forgotten " : "forgot ") +
                              Plural(report.forgottenVersions, "commit"));
  return ExitCode::Done;
}

ExitCode RunSimplify(const Host& host, const RehearsableOptions& options) {
  Session session(host, AccessFor(options.isDryRun));
  RefuseDuringMerge(session);
  const Kit::RetentionReport report = ForgetVersions(session, Kit::Retention::TipsAndForks());
  const std::uint64_t gone = report.forgottenVersions;
  SaveAndCleanUp(session, "dropped " + Plural(gone, "commit") + " of " +
                              std::to_string(gone + report.keptVersions));
  return ExitCode::Done;
}

ExitCode RunCollect(const Host& host, const RehearsableOptions& options) {
  Session session(host, AccessFor(options.isDryRun));
  RefuseDuringMerge(session);
  if (options.isDryRun) {
    const Kit::ObjectTotals unused =
        Kit::Statistics(session.Store(), {.progress = ShowProgress(host.terminal)})
            .value()
            .unreferenced;
    host.terminal.Say("would remove " + Plural(unused.count, "object") + ", " +
                      Kit::FormatSize(unused.sizeBytes) + "; this was a dry run");
    return ExitCode::Done;
  }
  SaveAndCleanUp(session, "removed unreachable objects");
  return ExitCode::Done;
}

}  // namespace

void AddRewriteCommands(Commands& commands) {
  commands.Add<RebaseOptions>(
      "rebase", "Give two branches a common first commit: unrelated ones continue another branch",
      RunRebase, [](Command& command, RebaseOptions& options) {
        command
            .Option("--onto", options.onto, "The branch to continue; created if it does not exist")
            .Required("--onto")
            .Argument("branch", options.branch, "The first branch, instead of the current one")
            .Argument("other", options.other, "The second branch, instead of the one of --onto")
            .Flag("--dry-run", options.isDryRun, "Check it and change nothing");
      });
  commands.Add<ForgetOptions>(
      "forget", "Remove a commit and its ancestors, except commits that are heads of branches",
      RunForget, [](Command& command, ForgetOptions& options) {
        command.Argument("commit", options.revision, "The newest commit to remove")
            .Required("commit")
            .Flag("--dry-run", options.isDryRun, "Say how many commits would go");
      });
  commands.Add<RehearsableOptions>("simplify", "Keep only the tips and forks of the history",
                                   RunSimplify, [](Command& command, RehearsableOptions& options) {
                                     command.Flag("--dry-run", options.isDryRun,
                                                  "Say how many commits would go");
                                   });
  commands.Add<RehearsableOptions>("gc", "Remove from the store the objects that no branch reaches",
                                   RunCollect, [](Command& command, RehearsableOptions& options) {
                                     command.Flag("--dry-run", options.isDryRun,
                                                  "Say what would go, and change nothing");
                                   });
}

}  // namespace Tal
