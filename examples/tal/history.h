#pragma once

#include "text.h"

#include <string>
#include <vector>

namespace Tal {

/// A branch and the commit on which it stands.
struct BranchTip {
  std::string name;
  TalVcs::cow_ptr<TalVcs::Commit> head;  ///< null for a branch without a commit
};

/// Returns all branches, the current one first and the others by name.
std::vector<BranchTip> ListBranches(const TalVcs::IRepository& repository);

/// A commit in its place in the history.
struct HistoryCommit {
  TalVcs::cow_ptr<TalVcs::Commit> commit;
  std::string id;
  int parent = -1;                    ///< index of the parent, or -1
  std::vector<int> children;          ///< indices
  std::vector<std::string> branches;  ///< names of the branches that stand here
};

/// Commits, children always in front of their parents and otherwise the newest first.
struct History {
  std::vector<HistoryCommit> commits;
};

/// Returns `start` and its ancestors, or what all branches reach if `start` is null.
///
/// The history holds handles on the commits, so it has to go before a purge.
History BuildHistory(const TalVcs::IRepository& repository,
                     const TalVcs::cow_ptr<TalVcs::Commit>& start);

}  // namespace Tal
