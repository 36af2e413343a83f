#pragma once

#include <kit/workspace/internal/merge_plan.h>
#include <kit/workspace/internal/workspace_state.h>
#include <kit/workspace/merge_preview.h>

#include <optional>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// One merge into the current branch, to be looked at or made.
class Merging {
 public:
  /// Prepares an action with another commit. `branch` is the name of the branch that is merged, and
  /// is empty for other actions.
  Merging(WorkspaceState& state, MergeAction action, cow_ptr<Commit> other,
          std::string branch = {});

  /// Does nothing but look, in the phase "merge".
  Result<MergePreview> Preview(const Progress& progress);
  /// Makes the version, or moves the branch. Returns none if there is nothing to do.
  Result<std::optional<Version>> Run(const Decisions& decisions, const MergeOptions& options);

 private:
  Status FindBases(Reporter& reporter);
  Result<MergePlan> Plan(Reporter& reporter) const;
  bool IsUpToDate() const;
  bool ChangesNothing(const cow_ptr<Tree>& merged) const;
  bool IsFastForward() const;
  AnnotatedMessage Message(const std::string& wanted) const;

  WorkspaceState& m_state;
  MergeAction m_action;
  cow_ptr<Commit> m_head;
  cow_ptr<Commit> m_other;
  std::string m_branch;
  std::vector<cow_ptr<Commit>> m_bases;  // of a branch
};

}  // namespace TalVcs::Kit
