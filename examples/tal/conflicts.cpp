#include "conflicts.h"

#include "interrupt.h"
#include "merge_tool.h"
#include "parse_time.h"
#include "printing.h"

#include <iostream>
#include <optional>

namespace Tal {
namespace {

using Kit::Decision;

enum class Side { Nothing, File, Folder };

Side SideOf(const Kit::ConflictSide& side) {
  if (side.content) return Side::File;
  return side.isFolder ? Side::Folder : Side::Nothing;
}

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
    std::cerr << Printable(conflict.path) << ": " << Describe(conflict)
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

/// Decides by the times that the nearest files of that path hold, and not at all if they don't
/// differ.
std::optional<Decision> DecideByTime(const FileTree& ours, const FileTree& theirs,
                                     const std::string& timePath, const std::string& path) {
  const auto read = [](const BlobPtr& blob) { return ParseTime(Kit::BytesFromBlob(*blob)); };
  const TalVcs::ConflictResolver resolver =
      TalVcs::TimeBasedConflictResolver({ToWide(timePath)}, read);
  const WideString wide = ToWide(path);
  const TalVcs::MergeTrees trees{ours.GetTree(), nullptr, theirs.GetTree()};
  switch (resolver(TalVcs::Helpers::SplitVcsPath(wide), trees)) {
    case TalVcs::ConflictChoice::Left:
      return Decision::Ours();
    case TalVcs::ConflictChoice::Right:
      return Decision::Theirs();
    default:
      return std::nullopt;
  }
}

std::string Name(const Decision& decision) {
  switch (decision.GetSide()) {
    case Decision::Side::Ours:
      return "ours";
    case Decision::Side::Theirs:
      return "theirs";
    case Decision::Side::Base:
      return "base";
    case Decision::Side::Content:
      break;
  }
  return "edited";
}

}  // namespace

std::string Describe(const Kit::Conflict& conflict) {
  const Side base = SideOf(conflict.base);
  const auto word = [&](Side side) -> std::string {
    if (side == Side::Folder) return base == Side::Folder ? "changed folder" : "folder";
    if (side == Side::Nothing) return "removed";
    return base == Side::File ? "changed" : "added";
  };
  const std::string ours = word(SideOf(conflict.ours));
  const std::string theirs = word(SideOf(conflict.theirs));
  return ours == theirs ? ours + " on both sides" : ours + " here, " + theirs + " there";
}

void DeclareConflicts(Command& command, ConflictOptions& options) {
  command.Flag("--ours", options.ours, "Take the current branch's side")
      .Flag("--theirs", options.theirs, "Take the other side")
      .Flag("--base", options.base, "Take the version of the common base")
      .Flag("--markers", options.markers,
            "Leave conflicts in the folder, marked in the files (this is the default)")
      .Flag("--interactive", options.interactive, "Ask for each conflict")
      .Option("--tool", options.tool,
              "Run this command for each conflict, with four files: base, ours, theirs, and the "
              "merged one, in which conflicts are marked; it writes that and ends with 0")
      .Exclusive({"--ours", "--theirs", "--base", "--markers", "--interactive", "--tool"})
      .Option("--newest", options.newest,
              "Take the side with the later time in the file at this path; if the times are equal, "
              "decide by the options above, or take ours");
}

DecidedConflicts Decide(Session& session, const Kit::MergePreview& preview,
                        const ConflictOptions& options) {
  DecidedConflicts decided;
  if (preview.conflicts.empty()) return decided;
  const FileTree ours = session.HeadFiles();
  const FileTree theirs = session.FilesOf(preview.version.id);
  const auto decide = [&](const Kit::Conflict& conflict) -> std::optional<Decision> {
    std::optional<Decision> decision;
    if (!options.newest.empty())
      decision = DecideByTime(ours, theirs, options.newest, conflict.path);
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
    decided.list.push_back(
        {conflict.path, Describe(conflict), decision ? Name(*decision) : "undecided"});
    if (decision) decided.decisions.emplace(conflict.path, *decision);
  }
  return decided;
}

Kit::Decisions WithMarkers(const Kit::MergePreview& preview, Kit::Decisions decisions) {
  for (const Kit::Conflict& conflict : preview.conflicts) {
    const bool is_text = conflict.merged && conflict.ours.content && conflict.theirs.content;
    const bool is_ours = SideOf(conflict.ours) != Side::Nothing;
    decisions.emplace(conflict.path, is_text   ? Decision::Content(*conflict.merged)
                                     : is_ours ? Decision::Ours()
                                               : Decision::Theirs());
  }
  return decisions;
}

bool HasMarkers(std::string_view text) {
  constexpr std::string_view kMarker = "<<<<<<< ours";
  return text.starts_with(kMarker) || text.find("\n" + std::string(kMarker)) != text.npos;
}

}  // namespace Tal
