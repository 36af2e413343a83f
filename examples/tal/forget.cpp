#include "forget.h"

#include "failure.h"

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

// The library's deletion leaves the commits above the deleted run as they are: each still holds its
// parent in memory, and a store written then would lack it. So the branches above are strung anew:
//
//     a - b - c - d    master         forget b:    c' - d'    master
//         +-- e        topic                       e'         topic
//
// Where a branch stands on a deleted commit, that commit is kept, and what was above it follows it.

namespace Tal {
namespace {

using CommitPtr = TalVcs::cow_ptr<TalVcs::Commit>;

/// A branch and the commit on which it stands.
struct BranchTip {
  std::string name;
  CommitPtr head;
};

std::vector<BranchTip> ListTips(const TalVcs::Repository& repository) {
  std::vector<BranchTip> tips;
  for (const auto& [name, head] : repository.GetStorage()->GetRefs())
    tips.push_back({ToUtf8(name), head});
  return tips;
}

/// What the commits above the run need to know of it.
struct Run {
  std::unordered_map<std::string, std::size_t> places;  // by id, the newest has place 0
  std::vector<std::string>
      keptBranches;  // for each place a branch that stands there or nearest below
};

Run MakeRun(const TalVcs::Repository& repository, const CommitPtr& last) {
  Run run;
  std::vector<CommitPtr> commits;
  for (CommitPtr commit = last; commit; commit = commit->GetParent()) {
    run.places.emplace(ToUtf8(commit->GetId()), commits.size());
    commits.push_back(commit);
  }
  run.keptBranches.resize(commits.size());
  for (const BranchTip& branch : ListTips(repository)) {
    if (!branch.head) continue;
    const auto found = run.places.find(ToUtf8(branch.head->GetId()));
    if (found != run.places.end()) run.keptBranches[found->second] = branch.name;
  }
  for (std::size_t place = commits.size() - 1; place-- > 0;) {
    if (run.keptBranches[place].empty()) run.keptBranches[place] = run.keptBranches[place + 1];
  }
  return run;
}

/// Strings the branch's commits above the run anew, on the kept commit below them or on nothing.
void Relink(TalVcs::Repository& repository, const Run& run, const BranchTip& branch) {
  std::vector<CommitPtr> above;  // newest first
  CommitPtr commit = branch.head;
  while (commit && !run.places.contains(ToUtf8(commit->GetId()))) {
    above.push_back(commit);
    commit = commit->GetParent();
  }
  if (above.empty() || !commit) return;
  const std::string& kept = run.keptBranches[run.places.at(ToUtf8(commit->GetId()))];
  above.back().write()->SetParent(kept.empty() ? nullptr : repository.GetHead(ToWide(kept)));
  TalVcs::Commit::MakeCommitLinksInOrder(above, &repository);
  repository.MoveBranchTo(ToWide(branch.name), above.front());
}

}  // namespace

void ForgetHistory(TalVcs::Repository& repository, CommitPtr last) {
  if (!last->GetParent())
    throw Failure(ShortId(ToUtf8(last->GetId())) +
                  " is the first commit: it has no ancestors to remove");
  const Run run = MakeRun(repository, last);
  repository.DeleteCommits(std::move(last));
  for (const BranchTip& branch : ListTips(repository)) Relink(repository, run, branch);
}

}  // namespace Tal
