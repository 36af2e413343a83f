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
The history of a folder is in its .vcs folder. It has the bytes of the files, but no permissions,
empty folders, symbolic links or special files. Names that are not UTF-8 are refused. A file
.talignore at the top lists names to skip, one shell pattern a line; "name/" matches folders only.

Name a commit by its branch, by HEAD, or by at least four characters of its id; NAME~2 is two commits
before NAME. A description must be one line. An author's name must not contain "<", an e-mail must not
contain ">", and the first commit of a history must not contain "parent ". A merge commit has one
parent, the head of the current branch.

Environment: TAL_AUTHOR and TAL_EMAIL set the author, NO_COLOR turns colours off.
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
      return std::string("tal: ") + error.what() + "\ntal --help lists the commands.\n";
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
    if (!std::cout) throw Failure("cannot write the output of the command");
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
    command->add_flag("--json", m_host.json, "Print JSON");
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
    command.add_option("--author", author, "The author's name, instead of TAL_AUTHOR");
    command.add_option("--email", email, "The author's e-mail, instead of TAL_EMAIL");
  }

  void AddWork() {
    Add("init", "Create an empty store", RunInit);
    AddReader("status", "Show how the folder differs from the last commit", RunStatus);

    const auto commit = std::make_shared<CommitOptions>();
    CLI::App* command = AddWith(commit, "commit",
                                "Commit the whole state of the folder: added, "
                                "changed and removed files",
                                RunCommit, false);
    command->add_option("-m,--message", commit->message, "The description, one line")->required();
    command->add_flag("--allow-empty", commit->allowEmpty, "Commit even if nothing changed");
    AddAuthor(*command, commit->author, commit->email);
  }

  void AddHistory() {
    const auto log = std::make_shared<LogOptions>();
    CLI::App* command = AddWith(log, "log", "List commits, newest first", RunLog, true);
    command->add_option("commit", log->start,
                        "The newest commit to list, instead of the head of the current branch");
    command->add_option("-n,--limit", log->limit, "List at most this many")
        ->check(CLI::PositiveNumber);
    command->add_flag("--all", log->all, "List the commits of all branches");
    command->add_flag("--graph", log->graph, "Draw the links between the commits");

    const auto graph = std::make_shared<GraphOptions>();
    command = AddWith(graph, "graph", "Draw the history of all branches", RunGraph, true);
    CLI::Option* dot = command->add_flag("--dot", graph->dot, "Print a graph in the DOT language");
    command->add_flag("--svg", graph->svg, "Print a picture in SVG")->excludes(dot);
    command->add_option("-o,--output", graph->output,
                        "Write the result of --dot or --svg to this file");

    AddRevisionReader("show", "Show a commit and its changes", RunShow);
    AddPathReader("ls", "List the files of a commit", RunLs, false);
    AddPathReader("cat", "Print a file of a commit", RunCat, true);

    const auto diff = std::make_shared<DiffOptions>();
    command =
        AddWith(diff, "diff",
                "Show the differences between two commits, or between a commit and the folder",
                RunDiff, true);
    command
        ->add_option(
            "commits", diff->sides,
            "Two commits; one commit and the folder; or none: the last commit and the folder")
        ->expected(0, 2);
    command->add_flag("--names", diff->namesOnly, "List only the files");

    AddReader("verify", "Check that the store is complete and that every object has its id",
              RunVerify);
    AddReader("stat", "Count objects and bytes", RunStat);
  }

  void AddRevisionReader(const char* name, const char* help,
                         ExitCode (*run)(const Host&, const std::string&)) {
    const auto revision = std::make_shared<std::string>();
    AddWith(revision, name, help, run, true)
        ->add_option("commit", *revision, "The commit, instead of the head of the current branch");
  }

  void AddPathReader(const char* name, const char* help,
                     ExitCode (*run)(const Host&, const PathOptions&), bool needsPath) {
    const auto options = std::make_shared<PathOptions>();
    CLI::App* command = AddWith(options, name, help, run, true);
    command->add_option("path", options->path, "The path, from the top of the folder")
        ->required(needsPath);
    command->add_option("-r,--revision", options->revision,
                        "The commit, instead of the head of the current branch");
  }

  void AddBranches() {
    const auto branch = std::make_shared<BranchOptions>();
    CLI::App* command =
        AddWith(branch, "branch", "List branches, or create or remove one", RunBranch, true);
    CLI::Option* name = command->add_option("name", branch->name, "The branch to create");
    command->add_option("commit", branch->start,
                        "Its head, instead of the head of the current branch");
    command->add_flag("-d,--delete", branch->remove, "Remove the branch instead of creating it")
        ->needs(name);

    const auto target = std::make_shared<SwitchOptions>();
    command = AddWith(target, "switch",
                      "Make a branch the current one and write its files into the folder",
                      RunSwitch, false);
    command->add_option("name", target->name, "The branch")->required();
    command->add_flag("-c,--create", target->create, "Create the branch first");
    command->add_flag("--restore", target->restore,
                      "Also write missing files that are the same on both branches");

    const auto merge = std::make_shared<MergeOptions>();
    command = AddWith(merge, "merge", "Merge a branch into the current one", RunMerge, true);
    command->add_option("branch", merge->branch, "The branch to merge")->required();
    CLI::Option_group* side = command->add_option_group("conflicts", "How to decide conflicts");
    side->add_flag("--ours", merge->ours, "Take the current branch's side");
    side->add_flag("--theirs", merge->theirs, "Take the other branch's side");
    side->add_flag("--base", merge->base, "Take the version of the common base");
    side->add_flag("--interactive", merge->interactive, "Ask for each conflict");
    side->require_option(0, 1);
    command->add_option("--newest", merge->newest,
                        "Take the side with the later time in the file at this path; if the "
                        "times are equal, decide by the options above, or take ours");
    command->add_flag("--dry-run", merge->dryRun, "List the conflicts and change nothing");
    AddAuthor(*command, merge->author, merge->email);
  }

  void AddRewriting() {
    const auto rebase = std::make_shared<RebaseOptions>();
    CLI::App* command = AddWith(rebase, "rebase",
                                "Give two branches a common first commit: "
                                "unrelated ones continue another branch",
                                RunRebase, false);
    command
        ->add_option("--onto", rebase->onto, "The branch to continue; created if it does not exist")
        ->required();
    command->add_option("branch", rebase->branch, "The first branch, instead of the current one");
    command->add_option("other", rebase->other, "The second branch, instead of the one of --onto");

    const auto revision = std::make_shared<std::string>();
    AddWith(revision, "forget",
            "Remove a commit and its ancestors, except commits that are heads of "
            "branches",
            RunForget, false)
        ->add_option("commit", *revision, "The newest commit to remove")
        ->required();
    Add("simplify", "Keep only the tips and forks of the history", RunSimplify);
    Add("gc", "Remove objects that no branch reaches from the store", RunCollect);
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
