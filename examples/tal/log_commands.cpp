#include "commands.h"
#include "graph.h"
#include "printing.h"

#include <algorithm>
#include <fstream>
#include <iostream>

namespace Tal {
namespace {

void PrintLog(const Host& host, const History& history) {
  for (std::size_t i = 0; i < history.commits.size(); ++i) {
    if (i > 0) std::cout << '\n';
    PrintCommit(host.terminal, history.commits[i]);
  }
}

void PrintLogJson(const History& history) {
  JsonWriter json(std::cout);
  json.BeginArray();
  for (const HistoryCommit& entry : history.commits) {
    json.BeginObject();
    PrintCommitFields(json, *entry.commit, entry.branches);
    json.EndObject();
  }
  json.EndArray();
}

void PrintTextGraph(const Host& host, const History& history, const GraphLayout& layout) {
  const TextGraph graph = DrawText(history, layout, host.terminal.DrawsLines());
  for (std::size_t row = 0; row < history.commits.size(); ++row) {
    const HistoryCommit& entry = history.commits[row];
    if (!graph.above[row].empty()) std::cout << graph.above[row] << '\n';
    std::cout << graph.rows[row] << ' ' << host.terminal.Paint(Colour::Yellow, ShortId(entry.id));
    for (const std::string& branch : entry.branches)
      std::cout << ' ' << host.terminal.Paint(Colour::Green, "[" + Printable(branch) + "]");
    std::cout << ' ' << Printable(ShortDescription(entry, 72)) << ' '
              << host.terminal.Paint(Colour::Faint, "(" + FormatTime(*entry.commit) + ")") << '\n';
  }
}

/// Keeps the first `limit` commits; the last of them then look as if they had no parent.
void Limit(History& history, std::size_t limit) {
  if (limit == 0 || history.commits.size() <= limit) return;
  history.commits.resize(limit);
  for (HistoryCommit& entry : history.commits)
    if (entry.parent >= static_cast<int>(limit)) entry.parent = -1;
}

}  // namespace

ExitCode RunLog(const Host& host, const LogOptions& options) {
  Session session(host, Access::Read);
  const bool wantsAll = options.all || (options.graph && options.start.empty());
  CommitPtr start;
  if (!options.start.empty()) {
    start = FindCommit(session.Repository(), options.start);
  } else if (!wantsAll) {
    start = session.Head();
    if (!start) throw Failure("there is no commit yet; tal commit makes one");
  }
  History history = BuildHistory(session.Repository(), start);
  Limit(history, options.limit);
  if (host.json) {
    PrintLogJson(history);
  } else if (options.graph) {
    PrintTextGraph(host, history, LayOutGraph(history, ListBranches(session.Repository())));
  } else {
    PrintLog(host, history);
  }
  return ExitCode::Done;
}

ExitCode RunGraph(const Host& host, const GraphOptions& options) {
  if (!options.output.empty() && (host.json || !(options.dot || options.svg)))
    throw Failure("--output needs --dot or --svg", ExitCode::Usage);
  Session session(host, Access::Read);
  const History history = BuildHistory(session.Repository(), nullptr);
  if (host.json) {
    PrintLogJson(history);
    return ExitCode::Done;
  }
  const std::vector<BranchTip> branches = ListBranches(session.Repository());
  const GraphLayout layout = LayOutGraph(history, branches);
  if (!options.dot && !options.svg) {
    PrintTextGraph(host, history, layout);
    return ExitCode::Done;
  }
  const std::string name = session.WorkFolder().Top().filename().string();
  const std::string title = name + ": " + Plural(history.commits.size(), "commit") + ", " +
                            Plural(branches.size(), "branch");
  const std::string picture =
      options.dot ? DrawDot(history, layout) : DrawSvg(history, layout, title, session.Branch());
  if (options.output.empty()) {
    std::cout << picture;
    return ExitCode::Done;
  }
  std::ofstream file(options.output, std::ios::binary);
  file << picture;
  file.close();
  if (!file) throw Failure("cannot write the picture to \"" + Printable(options.output) + "\"");
  return ExitCode::Done;
}

}  // namespace Tal
