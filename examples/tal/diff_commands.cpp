#include "command_line.h"
#include "command_table.h"
#include "folder_changes.h"
#include "printing.h"

#include <iostream>

namespace Tal {
namespace {

struct DiffOptions {
  std::string before;
  std::string after;
  bool namesOnly = false;
  bool ignoresMoves = false;

  Moves GetMoves() const { return ignoresMoves ? Moves::Ignore : Moves::Find; }
};

struct ShowOptions {
  std::string revision;
  bool ignoresMoves = false;
};

/// One side of a comparison: the files of a version, or the folder itself.
struct Side {
  FileTree files;
  bool isFolder = false;
};

/// Reads what a side has at a path into `bytes` and `id`; nothing if it has no file there.
void ReadSide(const Folder& folder, const Side& side, const std::string& path, std::string& bytes,
              std::string& id) {
  const BlobPtr stored = side.isFolder ? nullptr : side.files.Find(path);
  if (!side.isFolder && !stored) return;
  const TalVcs::Blob blob = side.isFolder ? TalVcs::Blob(folder.Read(path).bytes) : *stored;
  bytes = Kit::BytesFromBlob(blob);
  id = ToUtf8(blob.GetId());
}

FileSides ReadSides(const Folder& folder, const Side& before, const Side& after,
                    const Change& change) {
  FileSides sides{change, "", "", "", ""};
  const std::string& old_path = change.oldPath.empty() ? change.path : change.oldPath;
  if (change.kind != Change::Kind::Added)
    ReadSide(folder, before, old_path, sides.before, sides.beforeId);
  if (change.kind != Change::Kind::Removed)
    ReadSide(folder, after, change.path, sides.after, sides.afterId);
  return sides;
}

void PrintChanges(const Host& host, const Folder& folder, const Side& before, const Side& after,
                  const std::vector<Change>& changes) {
  for (const Change& change : changes)
    PrintFileDiff(host.terminal, ReadSides(folder, before, after, change));
}

void PrintChangesJson(Kit::JsonWriter& json, const Folder& folder, const Side& before,
                      const Side& after, const std::vector<Change>& changes) {
  json.Key("changes").BeginArray();
  for (const Change& change : changes)
    PrintFileDiffJson(json, ReadSides(folder, before, after, change));
  json.EndArray();
}

ExitCode RunDiff(const Host& host, const DiffOptions& options) {
  Session session(host, Access::Read);
  const auto files_of = [&](const std::string& name) {
    return session.FilesOf(session.Find(name).id);
  };
  const Side before{options.before.empty() ? session.HeadFiles() : files_of(options.before)};
  Side after;
  std::vector<Change> changes;
  if (!options.after.empty()) {
    after.files = files_of(options.after);
    changes = CompareTrees(before.files, after.files, options.GetMoves());
  } else {
    after.isFolder = true;
    changes = CompareFolder(session, before.files, options.GetMoves()).changes;
  }

  if (host.json) {
    Kit::JsonWriter json(std::cout);
    json.BeginObject();
    PrintChangesJson(json, session.WorkFolder(), before, after, changes);
    json.EndObject();
  } else if (options.namesOnly) {
    for (const Change& change : changes)
      std::cout << Letter(change.kind) << '\t' << DescribePath(change) << '\n';
  } else {
    PrintChanges(host, session.WorkFolder(), before, after, changes);
  }
  return changes.empty() ? ExitCode::Done : ExitCode::Differs;
}

ExitCode RunShow(const Host& host, const ShowOptions& options) {
  Session session(host, Access::Read);
  const Kit::Version version = session.FindOrHead(options.revision);
  const Side before{session.FilesBefore(version)};
  const Side after{session.FilesOf(version.id)};
  const std::vector<Change> changes =
      CompareTrees(before.files, after.files, options.ignoresMoves ? Moves::Ignore : Moves::Find);
  if (host.json) {
    Kit::JsonWriter json(std::cout);
    json.BeginObject();
    PrintVersionFields(json, session, version);
    PrintChangesJson(json, session.WorkFolder(), before, after, changes);
    json.EndObject();
  } else {
    PrintVersion(host.terminal, version);
    std::cout << '\n';
    PrintChanges(host, session.WorkFolder(), before, after, changes);
  }
  return ExitCode::Done;
}

}  // namespace

void AddDiffCommands(Commands& commands) {
  constexpr auto kNoRenames = "Show a moved file as removed and added";
  commands.Add<ShowOptions>("show", "Show a commit and its changes", RunShow,
                            [](Command& command, ShowOptions& options) {
                              command.Json()
                                  .Argument("commit", options.revision,
                                            "The commit, instead of the head of the current branch")
                                  .Flag("--no-renames", options.ignoresMoves, kNoRenames);
                            });
  commands.Add<DiffOptions>(
      "diff", "Show the differences between two commits, or between a commit and the folder",
      RunDiff, [](Command& command, DiffOptions& options) {
        command.Json()
            .Argument("commit", options.before, "The commit to begin with, instead of the last one")
            .Argument("other", options.after, "The commit to compare with, instead of the folder")
            .Flag("--names", options.namesOnly, "List only the files")
            .Flag("--no-renames", options.ignoresMoves, kNoRenames);
      });
}

}  // namespace Tal
