#pragma once

#include <kit/text/result.h>
#include <kit/workspace/workspace_options.h>
#include <talvcs/objects/commit.h>

namespace TalVcs::Kit {

struct WorkspaceState;

/// Return the version that an undo takes back, or the undoing version that a redo takes back; null
/// if there is none. Fails with `Cancelled`; the phase is "search". Cost: the versions since.
Result<cow_ptr<Commit>> FindVersionToUndo(WorkspaceState& state, const CommitOptions& options);
Result<cow_ptr<Commit>> FindVersionToRedo(WorkspaceState& state, const CommitOptions& options);

}  // namespace TalVcs::Kit
