#include "tree_edit.h"

namespace Tal {

TreePtr TreeWithChanges(Session& session, const TreePtr& before, const std::vector<Change>& changes,
                        const Terminal& terminal) {
  TreePtr tree = before;
  // Removals come first, so that a file can take the place of a folder and the other way round.
  for (const Change& change : changes) {
    if (change.kind == Change::Kind::Removed)
      tree.write()->RemoveObject(&session.Repository(), ToWide(change.path));
  }
  Progress progress(terminal, "reading files");
  for (const Change& change : changes) {
    if (change.kind == Change::Kind::Removed) continue;
    const TalVcs::Blob blob(session.WorkFolder().Read(change.path));
    tree.write()->AddBlob(&session.Repository(), ToWide(change.path), blob);
    progress.Count(blob.GetData().GetSize());
  }
  return tree && !tree->IsEmpty() ? tree : nullptr;
}

}  // namespace Tal
