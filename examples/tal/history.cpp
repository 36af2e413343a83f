#include "history.h"

#include <algorithm>
#include <queue>
#include <tuple>
#include <unordered_map>

namespace Tal {
namespace {

using TalVcs::Commit;
using TalVcs::cow_ptr;

/// Collects commits, each once, with their links by index, in the order of discovery.
class Collector {
 public:
  void AddWithAncestors(cow_ptr<Commit> commit) {
    int child = -1;
    while (commit) {
      const auto [found, isNew] =
          m_indices.emplace(ToUtf8(commit->GetId()), static_cast<int>(m_commits.size()));
      const int index = found->second;
      if (isNew) m_commits.push_back({commit, found->first, -1, {}, {}});
      if (child >= 0) Link(child, index);
      if (!isNew) return;
      child = index;
      commit = commit->GetParent();
    }
  }

  void AddBranch(const BranchTip& branch) {
    if (!branch.head) return;
    const auto found = m_indices.find(ToUtf8(branch.head->GetId()));
    if (found != m_indices.end()) At(found->second).branches.push_back(branch.name);
  }

  /// Returns the commits in their final order.
  std::vector<HistoryCommit> Sort() {
    using Key = std::tuple<std::int64_t, int, int>;  // time, depth, index
    const std::vector<int> depths = Depths();
    std::priority_queue<Key> ready;
    std::vector<int> missing(m_commits.size());
    const auto push = [&](int index) {
      ready.emplace(At(index).commit->GetCommitTime().ToTimeT(), depths[Place(index)], index);
    };
    for (int index = 0; index < static_cast<int>(m_commits.size()); ++index) {
      missing[Place(index)] = static_cast<int>(At(index).children.size());
      if (missing[Place(index)] == 0) push(index);
    }
    std::vector<int> order;
    while (!ready.empty()) {
      const int index = std::get<2>(ready.top());
      ready.pop();
      order.push_back(index);
      const int parent = At(index).parent;
      if (parent >= 0 && --missing[Place(parent)] == 0) push(parent);
    }
    return Reordered(order);
  }

 private:
  static std::size_t Place(int index) { return static_cast<std::size_t>(index); }
  HistoryCommit& At(int index) { return m_commits[Place(index)]; }

  void Link(int child, int parent) {
    At(child).parent = parent;
    At(parent).children.push_back(child);
  }

  std::vector<int> Depths() {
    std::vector<int> depths(m_commits.size(), -1);
    std::vector<int> path;
    for (int index = 0; index < static_cast<int>(m_commits.size()); ++index) {
      int at = index;
      for (; at >= 0 && depths[Place(at)] < 0; at = At(at).parent) path.push_back(at);
      int depth = at < 0 ? -1 : depths[Place(at)];
      for (; !path.empty(); path.pop_back()) depths[Place(path.back())] = ++depth;
    }
    return depths;
  }

  std::vector<HistoryCommit> Reordered(const std::vector<int>& order) {
    std::vector<int> places(order.size());
    for (std::size_t place = 0; place < order.size(); ++place)
      places[Place(order[place])] = static_cast<int>(place);
    std::vector<HistoryCommit> sorted;
    sorted.reserve(order.size());
    for (const int index : order) {
      HistoryCommit& commit = sorted.emplace_back(std::move(At(index)));
      if (commit.parent >= 0) commit.parent = places[Place(commit.parent)];
      for (int& child : commit.children) child = places[Place(child)];
    }
    return sorted;
  }

  std::vector<HistoryCommit> m_commits;
  std::unordered_map<std::string, int> m_indices;
};

}  // namespace

std::vector<BranchTip> ListBranches(const TalVcs::IRepository& repository) {
  std::vector<BranchTip> branches;
  for (const auto& [name, head] : repository.GetStorage()->GetRefs())
    branches.push_back({ToUtf8(name), head});
  const std::string current = ToUtf8(repository.GetCurentBranch());
  std::sort(branches.begin(), branches.end(), [&](const BranchTip& a, const BranchTip& b) {
    return std::make_pair(a.name != current, a.name) < std::make_pair(b.name != current, b.name);
  });
  return branches;
}

History BuildHistory(const TalVcs::IRepository& repository, const cow_ptr<Commit>& start) {
  Collector collector;
  const std::vector<BranchTip> branches = ListBranches(repository);
  if (start) {
    collector.AddWithAncestors(start);
  } else {
    for (const BranchTip& branch : branches) collector.AddWithAncestors(branch.head);
  }
  for (const BranchTip& branch : branches) collector.AddBranch(branch);
  return {collector.Sort()};
}

}  // namespace Tal
