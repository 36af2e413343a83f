#include "tree_edit.h"

#include "failure.h"

#include <kit/batch_edit.h>

#include <utility>

namespace Tal {

TreePtr TreeWithChanges(Session& session, const TreePtr& before, const std::vector<Change>& changes,
                        const Terminal& terminal) {
  TalVcs::Kit::BatchEdit edit;
  // Removals come first, so that a file can take the place of a folder and the other way round.
  for (const Change& change : changes) {
    if (change.kind == Change::Kind::Removed) edit.RemoveObject(ToWide(change.path));
  }
  Progress progress(terminal, "reading files");
  for (const Change& change : changes) {
    if (change.kind == Change::Kind::Removed) continue;
    TalVcs::Buffer bytes = session.WorkFolder().Read(change.path);
    progress.Count(bytes.GetSize());
    edit.AddBlob(ToWide(change.path), TalVcs::Blob(std::move(bytes)));
  }
  TreePtr tree = before;
  if (edit.ApplyTo(&session.Repository(), *tree.write()) != edit.GetCount())
    throw Failure("cannot apply the changes to the last commit; nothing is committed");
  return tree->IsEmpty() ? nullptr : tree;
}

}  // namespace Tal
