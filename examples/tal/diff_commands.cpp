#include "commands.h"
#include "printing.h"

#include <iostream>

namespace Tal {
namespace {

/// One side of a comparison: a tree, or the folder itself.
struct Side {
  TreePtr tree;
  bool isFolder = false;
};

/// Reads what a side has at a path into `bytes` and `id`; nothing if it has no file there.
void ReadSide(const Folder& folder, const Side& side, const std::string& path, std::string& bytes,
              std::string& id) {
  const BlobPtr stored = side.isFolder ? nullptr : FindBlob(side.tree, path);
  if (!side.isFolder && !stored) return;
  const TalVcs::Blob blob = side.isFolder ? TalVcs::Blob(folder.Read(path)) : *stored;
  bytes = TalVcs::Kit::BytesFromBlob(blob);
  id = ToUtf8(blob.GetId());
}

FileSides ReadSides(const Folder& folder, const Side& before, const Side& after,
                    const Change& change) {
  FileSides sides{change, "", "", "", ""};
  if (change.kind != Change::Kind::Added)
    ReadSide(folder, before, change.path, sides.before, sides.beforeId);
  if (change.kind != Change::Kind::Removed)
    ReadSide(folder, after, change.path, sides.after, sides.afterId);
  return sides;
}

void PrintChanges(const Host& host, const Folder& folder, const Side& before, const Side& after,
                  const std::vector<Change>& changes) {
  for (const Change& change : changes)
    PrintFileDiff(host.terminal, ReadSides(folder, before, after, change));
}

void PrintChangesJson(JsonWriter& json, const Folder& folder, const Side& before, const Side& after,
                      const std::vector<Change>& changes) {
  json.Key("changes").BeginArray();
  for (const Change& change : changes)
    PrintFileDiffJson(json, ReadSides(folder, before, after, change));
  json.EndArray();
}

}  // namespace

ExitCode RunDiff(const Host& host, const DiffOptions& options) {
  Session session(host, Access::Read);
  const auto treeOf = [&](const std::string& name) {
    return RootOf(FindCommit(session.Repository(), name));
  };
  Side before{options.sides.empty() ? RootOf(session.Head()) : treeOf(options.sides[0])};
  Side after;
  std::vector<Change> changes;
  if (options.sides.size() == 2) {
    after.tree = treeOf(options.sides[1]);
    changes = CompareTrees(before.tree, after.tree);
  } else {
    after.isFolder = true;
    const FolderContents contents =
        session.WorkFolder().List({before.tree, RootOf(session.Head())});
    changes = CompareFolder(session.WorkFolder(), contents, before.tree, host.terminal);
  }

  if (host.json) {
    JsonWriter json(std::cout);
    json.BeginObject();
    PrintChangesJson(json, session.WorkFolder(), before, after, changes);
    json.EndObject();
  } else if (options.namesOnly) {
    for (const Change& change : changes)
      std::cout << Letter(change.kind) << '\t' << Printable(change.path) << '\n';
  } else {
    PrintChanges(host, session.WorkFolder(), before, after, changes);
  }
  return changes.empty() ? ExitCode::Done : ExitCode::Differs;
}

ExitCode RunShow(const Host& host, const std::string& revision) {
  Session session(host, Access::Read);
  const CommitPtr commit = FindCommit(session.Repository(), revision.empty() ? "HEAD" : revision);
  const Side before{RootOf(commit->GetParent())};
  const Side after{RootOf(commit)};
  const std::vector<Change> changes = CompareTrees(before.tree, after.tree);
  const HistoryCommit entry = BuildHistory(session.Repository(), commit).commits.front();
  if (host.json) {
    JsonWriter json(std::cout);
    json.BeginObject();
    PrintCommitFields(json, *commit, entry.branches);
    PrintChangesJson(json, session.WorkFolder(), before, after, changes);
    json.EndObject();
  } else {
    PrintCommit(host.terminal, entry);
    std::cout << '\n';
    PrintChanges(host, session.WorkFolder(), before, after, changes);
  }
  return ExitCode::Done;
}

}  // namespace Tal
