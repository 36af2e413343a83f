#pragma once

#include <kit/workspace/internal/workspace_state.h>
#include <kit/workspace/merge_preview.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// Makes the versions of the current branch again on top of another commit.
class Replay {
 public:
  /// Returns the decisions about the conflicts of one version.
  using Decide = std::function<Result<Decisions>(const MergePreview&)>;

  /// `decide` may be empty, and must outlive the replay.
  Replay(WorkspaceState& state, const Decide& decide) : m_state(state), m_decide(decide) {}

  /// Moves the current branch. Returns the number of versions that were made.
  Result<std::uint64_t> Run(const cow_ptr<Commit>& onto, const Progress& progress);
  /// Returns the version at which a run failed with `Undecided`, with its conflicts.
  const std::optional<MergePreview>& GetUndecided() const noexcept { return m_undecided; }

 private:
  std::vector<cow_ptr<Commit>> VersionsSince(const cow_ptr<Commit>& fork) const;
  Result<cow_ptr<Tree>> FilesWith(const cow_ptr<Commit>& version, const cow_ptr<Commit>& top,
                                  const Progress& progress);
  Result<cow_ptr<Commit>> PutOnTop(const cow_ptr<Commit>& version, const cow_ptr<Commit>& top,
                                   const Progress& progress);
  Status MakeAll(const std::vector<cow_ptr<Commit>>& versions, cow_ptr<Commit>& top,
                 const Progress& progress);

  WorkspaceState& m_state;
  const Decide& m_decide;
  std::unordered_map<Id, Id> m_replaced;
  std::optional<MergePreview> m_undecided;
  std::uint64_t m_count = 0;
};

}  // namespace TalVcs::Kit
