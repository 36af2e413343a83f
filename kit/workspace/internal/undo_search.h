#pragma once

#include <kit/workspace/workspace_options.h>
#include <talvcs/objects/commit.h>

namespace TalVcs::Kit {

struct WorkspaceState;

/// Return the version that an undo takes back, or the undoing version that a redo takes back; null
/// if there is none. Cost: the versions since.
cow_ptr<Commit> FindVersionToUndo(WorkspaceState& state, const CommitOptions& options);
cow_ptr<Commit> FindVersionToRedo(WorkspaceState& state, const CommitOptions& options);

}  // namespace TalVcs::Kit
