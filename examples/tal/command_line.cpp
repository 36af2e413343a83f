#include "command_line.h"

#include "commands.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <functional>
#include <iostream>
#include <memory>

namespace Tal {
namespace {

using Action = std::function<ExitCode(const Host&)>;

constexpr const char* kFooter = R"(
A folder's history lies in its .vcs folder. Files are kept byte by byte; permissions, empty folders,
symbolic links and special files aren't. Names that aren't UTF-8 are refused. A file .talignore at
the top lists names to pass over, as shell patterns, one a line; "name/" is for folders only.

A commit is named by its branch, by HEAD, or by at least four characters of its id; NAME~2 goes two
commits back from there. Of a description only the first line survives a store, so it has to be one
line; an author's name can't hold "<" nor an e-mail ">", and the first commit of a history no
"parent ". A merge commit has one parent, the head of the current branch.

Environment: TAL_AUTHOR and TAL_EMAIL say who commits, NO_COLOR turns colours off.
Exit codes: 0 done; 1 differences, or the operation failed; 2 wrong usage; 3 damaged store.
)";

/// The commands, each with its options. An option's value lies in a record that the command's
/// action shares.
class CommandLine {
 public:
  CommandLine() : m_app("Keeps the history of a folder.", "tal") {
    m_app.footer(kFooter);
    m_app.set_version_flag("--version", std::string("tal ") + TalVcs::GetVersionText());
    m_app.require_subcommand(1);
    m_app.failure_message([](const CLI::App*, const CLI::Error& error) {
      return std::string("tal: ") + error.what() + "\ntal --help tells the commands.\n";
    });
    m_app.add_option("-C,--folder", m_start, "Work in this folder instead of the current one");
    AddWork();
    AddHistory();
    AddBranches();
    AddRewriting();
  }

  ExitCode Run(int argc, const char* const* argv) {
    try {
      m_app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return m_app.exit(error) == 0 ? ExitCode::Done : ExitCode::Usage;
    }
    m_host.start = m_start;
    const ExitCode code = m_action(m_host);
    std::cout.flush();
    if (!std::cout) throw Failure("cannot write the output");
    return code;
  }

  const Terminal& GetTerminal() const { return m_host.terminal; }

 private:
  CLI::App* Add(const char* name, const char* help, Action action) {
    CLI::App* command = m_app.add_subcommand(name, help);
    command->callback([this, action = std::move(action)] { m_action = action; });
    return command;
  }

  /// Adds a command that reads, and that can answer in JSON.
  CLI::App* AddReader(const char* name, const char* help, Action action) {
    CLI::App* command = Add(name, help, std::move(action));
    command->add_flag("--json", m_host.json, "Answer in JSON");
    return command;
  }

  /// Adds a command whose options lie in a record of their own.
  template <class Options>
  CLI::App* AddWith(std::shared_ptr<Options> options, const char* name, const char* help,
                    ExitCode (*run)(const Host&, const Options&), bool reads) {
    const Action action = [options, run](const Host& host) { return run(host, *options); };
    return reads ? AddReader(name, help, action) : Add(name, help, action);
  }

  static void AddAuthor(CLI::App& command, std::string& author, std::string& email) {
    command.add_option("--author", author, "The author's name instead of TAL_AUTHOR's");
    command.add_option("--email", email, "The author's e-mail instead of TAL_EMAIL's");
  }

  void AddWork() {
    Add("init", "Make an empty store", RunInit);
    AddReader("status", "Tell how the folder differs from the last commit", RunStatus);

    const auto commit = std::make_shared<CommitOptions>();
    CLI::App* command = AddWith(commit, "commit",
                                "Commit the whole state of the folder: what was "
                                "added, changed and removed",
                                RunCommit, false);
    command->add_option("-m,--message", commit->message, "The description, one line")->required();
    command->add_flag("--allow-empty", commit->allowEmpty, "Commit also if nothing changed");
    AddAuthor(*command, commit->author, commit->email);
  }

  void AddHistory() {
    const auto log = std::make_shared<LogOptions>();
    CLI::App* command = AddWith(log, "log", "List commits, the newest first", RunLog, true);
    command->add_option("commit", log->start, "Begin here instead of at the current branch");
    command->add_option("-n,--limit", log->limit, "List so many at most")
        ->check(CLI::PositiveNumber);
    command->add_flag("--all", log->all, "List the commits of all branches");
    command->add_flag("--graph", log->graph, "Draw how the commits hang together");

    const auto graph = std::make_shared<GraphOptions>();
    command = AddWith(graph, "graph", "Draw the history of all branches", RunGraph, true);
    CLI::Option* dot = command->add_flag("--dot", graph->dot, "As a graph in the DOT language");
    command->add_flag("--svg", graph->svg, "As a picture")->excludes(dot);
    command->add_option("-o,--output", graph->output,
                        "Write the picture of --dot or --svg to this file");

    AddRevisionReader("show", "Show a commit and what it changed", RunShow);
    AddPathReader("ls", "List the files of a commit", RunLs, false);
    AddPathReader("cat", "Write a file of a commit to the output", RunCat, true);

    const auto diff = std::make_shared<DiffOptions>();
    command = AddWith(diff, "diff", "Show how two commits differ, or a commit and the folder",
                      RunDiff, true);
    command
        ->add_option("commits", diff->sides,
                     "None for the last commit and the folder, one for that and the folder")
        ->expected(0, 2);
    command->add_flag("--names", diff->namesOnly, "List the files only");

    AddReader("verify", "Check that the store is whole and that every object has its hash",
              RunVerify);
    AddReader("stat", "Count objects and bytes", RunStat);
  }

  void AddRevisionReader(const char* name, const char* help,
                         ExitCode (*run)(const Host&, const std::string&)) {
    const auto revision = std::make_shared<std::string>();
    AddWith(revision, name, help, run, true)
        ->add_option("commit", *revision, "The commit instead of the current branch's");
  }

  void AddPathReader(const char* name, const char* help,
                     ExitCode (*run)(const Host&, const PathOptions&), bool needsPath) {
    const auto options = std::make_shared<PathOptions>();
    CLI::App* command = AddWith(options, name, help, run, true);
    command->add_option("path", options->path, "Path from the top of the folder")
        ->required(needsPath);
    command->add_option("-r,--revision", options->revision,
                        "The commit instead of the current branch's");
  }

  void AddBranches() {
    const auto branch = std::make_shared<BranchOptions>();
    CLI::App* command =
        AddWith(branch, "branch", "List branches, or make or remove one", RunBranch, true);
    CLI::Option* name = command->add_option("name", branch->name, "Make this branch");
    command->add_option("commit", branch->start, "Where it begins instead of the current commit");
    command->add_flag("-d,--delete", branch->remove, "Remove the branch instead")->needs(name);

    const auto target = std::make_shared<SwitchOptions>();
    command = AddWith(target, "switch", "Go to a branch and write its files into the folder",
                      RunSwitch, false);
    command->add_option("name", target->name, "The branch")->required();
    command->add_flag("-c,--create", target->create, "Make the branch first");
    command->add_flag("--restore", target->restore,
                      "Write files that the folder lacks also where the branches agree");

    const auto merge = std::make_shared<MergeOptions>();
    command = AddWith(merge, "merge", "Merge a branch into the current one", RunMerge, true);
    command->add_option("branch", merge->branch, "The branch to merge")->required();
    CLI::Option_group* side = command->add_option_group("conflicts", "How conflicts are decided");
    side->add_flag("--ours", merge->ours, "Take the current branch's side");
    side->add_flag("--theirs", merge->theirs, "Take the other branch's side");
    side->add_flag("--base", merge->base, "Take what both began with");
    side->add_flag("--interactive", merge->interactive, "Ask for each conflict");
    side->require_option(0, 1);
    command->add_option("--newest", merge->newest,
                        "Take the side with the later time in the file at this path; where the "
                        "times don't decide, as the options above say, or else ours");
    command->add_flag("--dry-run", merge->dryRun, "List the conflicts and change nothing");
    AddAuthor(*command, merge->author, merge->email);
  }

  void AddRewriting() {
    const auto rebase = std::make_shared<RebaseOptions>();
    CLI::App* command = AddWith(rebase, "rebase",
                                "Give two branches a common first commit by "
                                "placing unrelated ones on another branch",
                                RunRebase, false);
    command->add_option("--onto", rebase->onto, "The branch to place them on; made if needed")
        ->required();
    command->add_option("branch", rebase->branch, "A branch instead of the current one");
    command->add_option("other", rebase->other, "The other branch instead of the one of --onto");

    const auto revision = std::make_shared<std::string>();
    AddWith(revision, "forget",
            "Remove a commit and what is older, but for branches that stand "
            "there",
            RunForget, false)
        ->add_option("commit", *revision, "The newest commit to remove")
        ->required();
    Add("simplify", "Keep only the commits at the tips and forks of branches", RunSimplify);
    Add("gc", "Remove from the store what no branch reaches", RunCollect);
  }

  Host m_host;
  std::string m_start = ".";
  Action m_action;
  CLI::App m_app;
};

}  // namespace

ExitCode RunCommandLine(int argc, const char* const* argv) {
  std::ios::sync_with_stdio(false);
  CommandLine commands;
  try {
    return commands.Run(argc, argv);
  } catch (const Failure& failure) {
    std::cout.flush();
    commands.GetTerminal().Complain(failure.what());
    return failure.Code();
  } catch (const std::exception& error) {
    std::cout.flush();
    commands.GetTerminal().Complain(error.what());
    return ExitCode::Differs;
  }
}

}  // namespace Tal
