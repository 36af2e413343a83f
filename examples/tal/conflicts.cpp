#include "conflicts.h"

#include "interrupt.h"
#include "merge_tool.h"
#include "printing.h"

#include <kit/workspace/decisions.h>

#include <iostream>
#include <optional>

namespace Tal {
namespace {

using Kit::Decision;

void ShowSides(const Terminal& terminal, const Kit::Conflict& conflict) {
  const auto text = [](const Kit::ConflictSide& side) {
    return side.content ? std::string(side.content->text()) : std::string();
  };
  FileSides sides;
  sides.change.path = conflict.path;
  sides.before = text(conflict.ours);
  sides.after = text(conflict.theirs);
  PrintFileDiff(terminal, sides);
  std::cout.flush();
}

Decision Ask(Session& session, const Kit::Conflict& conflict) {
  const Terminal& terminal = session.GetHost().terminal;
  for (;;) {
    std::cerr << Printable(conflict.path) << ": " << Kit::Describe(conflict)
              << ". [o]urs, [t]heirs, [b]ase, [e]dit, [d]iff or [q]uit? " << std::flush;
    const std::optional<std::string> answer = ReadAnswer();
    if (!answer || answer == "q") {
      StopIfInterrupted();
      throw Failure("the merge was cancelled; branches and files are unchanged");
    }
    if (answer == "o") return Decision::Ours();
    if (answer == "t") return Decision::Theirs();
    if (answer == "b") return Decision::Base();
    if (answer == "d") ShowSides(terminal, conflict);
    if (answer != "e") continue;
    if (const std::optional<Kit::Bytes> edited = EditConflict(session.WorkFolder(), conflict))
      return Decision::Content(*edited);
    terminal.Say("the file still has conflicts");
  }
}

}  // namespace

void DeclareConflicts(Command& command, ConflictOptions& options) {
  command.Flag("--ours", options.ours, "Take the current branch's side")
      .Flag("--theirs", options.theirs, "Take the other side")
      .Flag("--base", options.base, "Take the version of the common base")
      .Flag("--markers", options.markers,
            "Leave conflicts in the folder, marked in the files (this is the default)")
      .Flag("--interactive", options.interactive, "Ask for each conflict")
      .Option(
          "--tool", options.tool,
          "Run this command for each conflict, with four files: base, ours, theirs, and the "
          "merged one with the conflicts marked; the command writes the merged one and ends with 0")
      .Exclusive({"--ours", "--theirs", "--base", "--markers", "--interactive", "--tool"})
      .Option("--newest", options.newest,
              "Take the side with the later time in the file at this path; if the times are equal, "
              "decide by the options above, or take ours");
}

DecidedConflicts Decide(Session& session, const Kit::MergePreview& preview,
                        const ConflictOptions& options) {
  DecidedConflicts decided;
  if (preview.conflicts.empty()) return decided;
  const Kit::Snapshot ours = session.Document().At(preview.head).value();
  const Kit::Snapshot theirs = session.Document().At(preview.version.id).value();
  const auto decide = [&](const Kit::Conflict& conflict) -> std::optional<Decision> {
    std::optional<Decision> decision;
    if (!options.newest.empty())
      decision = Kit::DecideByTime(conflict, ours, theirs, options.newest).value();
    if (decision) return decision;
    if (options.interactive) return Ask(session, conflict);
    if (!options.tool.empty()) {
      const auto merged = RunMergeTool(session.WorkFolder(), options.tool, conflict);
      return merged ? std::optional(Decision::Content(*merged)) : std::nullopt;
    }
    if (options.theirs) return Decision::Theirs();
    if (options.base) return Decision::Base();
    if (options.markers) return std::nullopt;
    // Where times don't decide and nothing else is asked for, the current branch's side stays.
    if (options.ours || !options.newest.empty()) return Decision::Ours();
    return std::nullopt;
  };
  for (const Kit::Conflict& conflict : preview.conflicts) {
    const std::optional<Decision> decision = decide(conflict);
    decided.list.push_back({conflict.path, Kit::Describe(conflict),
                            decision ? Kit::ToString(decision->GetSide()) : "undecided"});
    if (decision) decided.decisions.emplace(conflict.path, *decision);
  }
  return decided;
}

}  // namespace Tal
