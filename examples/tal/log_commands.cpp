#include "command_line.h"
#include "command_table.h"
#include "graph.h"
#include "history.h"
#include "interrupt.h"
#include "parse_time.h"
#include "paths.h"
#include "printing.h"
#include "write_file.h"

#include <algorithm>
#include <iostream>

namespace Tal {
namespace {

struct LogOptions {
  std::string start;
  std::string path;
  std::uint64_t limit = UINT64_MAX;
  std::string since;
  std::string until;
  std::string author;
  bool relative = false;
  bool all = false;
  bool graph = false;
};

struct GraphOptions {
  bool dot = false;
  bool svg = false;
  std::string output;
};

void PrintLog(const Host& host, const std::vector<Kit::Version>& versions, Times times) {
  for (std::size_t i = 0; i < versions.size(); ++i) {
    if (i > 0) std::cout << '\n';
    PrintVersion(host.terminal, versions[i], times);
  }
}

void PrintLogJson(Session& session, const std::vector<Kit::Version>& versions) {
  Kit::JsonWriter json(std::cout);
  json.BeginArray();
  for (const Kit::Version& version : versions) {
    json.BeginObject();
    PrintVersionFields(json, session, version);
    json.EndObject();
  }
  json.EndArray();
}

std::vector<Kit::Version> VersionsOf(const Kit::VersionGraph& history) {
  std::vector<Kit::Version> versions;
  for (const Kit::GraphVersion& entry : history.versions) versions.push_back(entry.version);
  return versions;
}

/// Returns the graph of a version and its ancestors, or without one of what all branches and tags
/// reach.
Kit::VersionGraph ReadGraph(Session& session, const std::optional<Kit::Version>& start) {
  Kit::LogOptions options{.allBranches = !start, .limit = UINT64_MAX};
  if (start) options.from = start->id;
  return Kit::BuildVersionGraph(session.Document().Log(options).value());
}

void PrintTextGraph(const Host& host, Session& session, const Kit::VersionGraph& history,
                    const Kit::GraphLayout& layout) {
  const auto characters =
      host.terminal.DrawsLines() ? Kit::GraphCharacters::Lines : Kit::GraphCharacters::Ascii;
  const Kit::TextGraph graph = Kit::DrawTextGraph(history, layout, characters);
  Kit::ShortIds ids(session.Document());
  for (const Kit::GraphVersion& entry : history.versions) ids.Add(entry.version.id);
  for (std::size_t row = 0; row < history.versions.size(); ++row) {
    StopIfInterrupted();
    const Kit::Version& version = history.versions[row].version;
    if (!graph.above[row].empty()) std::cout << graph.above[row] << '\n';
    std::cout << graph.rows[row] << ' ' << host.terminal.Paint(Colour::Yellow, ids.Of(version.id));
    for (const std::string& branch : version.branches)
      std::cout << ' ' << host.terminal.Paint(Colour::Green, "[" + Printable(branch) + "]");
    std::cout << ' ' << Printable(ShortDescription(version, 72)) << ' '
              << host.terminal.Paint(Colour::Faint, "(" + FormatTime(version) + ")") << '\n';
  }
}

/// What a log is of: versions from one on, perhaps those that changed a path.
struct Subject {
  std::optional<Kit::Version> start;
  std::string path;
};

/// Reads the arguments of the log: a commit, a path, or both in this order.
Subject FindSubject(Session& session, const LogOptions& options) {
  Subject subject{std::nullopt, NormalPath(options.path)};
  if (options.start.empty()) return subject;
  try {
    subject.start = session.Find(options.start);
  } catch (const Failure&) {
    const std::string path = NormalPath(options.start);
    const bool is_path = options.path.empty() && session.Head() && ToWideExactly(path) &&
                         !path.empty() &&
                         (session.HeadFiles().Contains(path) ||
                          !session.Document().Log({.path = path, .limit = 1}).value().empty());
    if (!is_path) throw;
    subject.path = path;
  }
  return subject;
}

ExitCode RunLog(const Host& host, const LogOptions& options) {
  Session session(host, Access::Read);
  Subject subject = FindSubject(session, options);
  const bool wants_all = options.all || (options.graph && !subject.start);
  if (!wants_all && !subject.start) subject.start = session.Find("HEAD");
  if (options.graph) {
    Kit::VersionGraph history = ReadGraph(session, wants_all ? std::nullopt : subject.start);
    Kit::KeepFirstRows(history, options.limit);
    if (host.json) {
      PrintLogJson(session, VersionsOf(history));
    } else {
      PrintTextGraph(host, session, history, Kit::LayOutGraph(history, ListBranches(session)));
    }
    return ExitCode::Done;
  }
  Kit::LogOptions wanted{.allBranches = wants_all,
                         .path = subject.path,
                         .author = options.author,
                         .limit = options.limit,
                         .progress = ShowProgress(host.terminal)};
  if (!options.since.empty()) wanted.since = TimeOfOption(options.since);
  if (!options.until.empty()) wanted.until = TimeOfOption(options.until);
  if (!wants_all) wanted.from = subject.start->id;
  const std::vector<Kit::Version> versions = session.Document().Log(wanted).value();
  if (host.json) {
    PrintLogJson(session, versions);
  } else {
    PrintLog(host, versions, options.relative ? Times::Ages : Times::Dates);
  }
  return ExitCode::Done;
}

ExitCode RunGraph(const Host& host, const GraphOptions& options) {
  if (!options.output.empty() && (host.json || !(options.dot || options.svg)))
    throw Failure("--output needs --dot or --svg", ExitCode::Usage);
  Session session(host, Access::Read);
  const Kit::VersionGraph history = ReadGraph(session, std::nullopt);
  if (host.json) {
    PrintLogJson(session, VersionsOf(history));
    return ExitCode::Done;
  }
  const std::vector<Kit::Head> branches = ListBranches(session);
  const Kit::GraphLayout layout = Kit::LayOutGraph(history, branches);
  if (!options.dot && !options.svg) {
    PrintTextGraph(host, session, history, layout);
    return ExitCode::Done;
  }
  const std::string name = session.WorkFolder().Top().filename().string();
  const std::string title = name + ": " + Plural(history.versions.size(), "commit") + ", " +
                            Plural(branches.size(), "branch");
  const std::string picture =
      options.dot ? DrawDot(history, layout) : DrawSvg(history, layout, title, session.Branch());
  if (options.output.empty()) {
    std::cout << picture;
    return ExitCode::Done;
  }
  WriteFile(host.start / options.output, [&](std::ostream& out) { out << picture; });
  return ExitCode::Done;
}

}  // namespace

void AddLogCommands(Commands& commands) {
  commands.Add<LogOptions>(
      "log", "List commits, newest first", RunLog, [](Command& command, LogOptions& options) {
        command.Json()
            .Argument("commit", options.start,
                      "The newest commit to list, instead of the head of the current branch; or a "
                      "path of the files")
            .Argument("path", options.path, "List only the commits that changed this path")
            .Count("-n,--limit", options.limit, "List at most this many")
            .Option("--since", options.since,
                    "List only commits since a time, such as 2024-05-31 or \"2 weeks ago\"")
            .Option("--until", options.until, "List only commits until a time")
            .Option("--author", options.author, "List only the commits of this author")
            .Flag("--relative", options.relative, "Print times as \"3 days ago\"")
            .Flag("--all", options.all, "List the commits of all branches")
            .Flag("--graph", options.graph, "Draw the links between the commits");
      });
  commands.Add<GraphOptions>("graph", "Draw the history of all branches", RunGraph,
                             [](Command& command, GraphOptions& options) {
                               command.Json()
                                   .Flag("--dot", options.dot, "Print a graph in the DOT language")
                                   .Flag("--svg", options.svg, "Print a picture in SVG")
                                   .Exclusive({"--dot", "--svg"})
                                   .Option("-o,--output", options.output,
                                           "Write the result of --dot or --svg to this file");
                             });
}

}  // namespace Tal
