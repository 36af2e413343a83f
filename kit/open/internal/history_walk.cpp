#include <kit/open/internal/errors.h>
#include <kit/open/internal/history_walk.h>

#include <algorithm>
#include <utility>

// Two branches, A to E and A to D. The walk of the first one reads E, C, B, A and then walks the
// trees of A, B, C, E; that of the second one reads D, meets B, and walks the tree of D:
//
//     A---B---C---E     first
//         `---D         second

namespace TalVcs::Kit {

namespace {

constexpr std::size_t kRootsTogether = 64;

Damage DamagedCommit(const Id& id, const std::string& branch, const ReadProblem& problem) {
  Damage damage;
  damage.id = id;
  damage.type = ObjectType::Commit;
  damage.code = problem.code;
  damage.reason = problem.reason;
  damage.branch = branch;
  damage.commit = id;
  return damage;
}

}  // namespace

Result<HistoryReport> HistoryWalk::Run(std::span<const Head> heads) {
  HistoryReport report;
  for (const Head& head : heads) {
    const auto first = static_cast<std::uint32_t>(m_nodes.size());
    Status status = m_reporter.Begin("history");
    if (status) status = ReadHistory(head);
    if (status) status = m_reporter.End();
    if (status) status = m_reporter.Begin("contents");
    if (status) status = WalkTrees(first, head.name);
    if (status) status = m_reporter.End();
    if (!status) return status.error();
    report.branches.push_back(ReportOn(head));
  }
  m_damages.MoveTo(report);
  return report;
}

// Adds a node for each commit down to the first that is known, newest first.
Status HistoryWalk::ReadHistory(const Head& head) {
  if (head.id.View().IsEmpty()) return {};
  if (!KeyOf(head.id)) {
    ++m_badHeads;
    m_damages.Add(
        DamagedCommit(head.id, head.name, {ErrorCode::Damaged, "the head is no id of an object"}));
    return {};
  }
  CommitReader reader(m_store, head.id);
  bool goes_on = true;
  while (goes_on && !reader.AtEnd()) {
    const Result<std::vector<CommitRecord>> window = reader.Next();
    if (!window) return window.error();
    IdMap wanted;
    if (m_hooks.wanted) {
      std::vector<Id> ids;
      for (const CommitRecord& commit : *window) ids.push_back(commit.id);
      const Result<std::vector<Id>> result = m_hooks.wanted(ids);
      if (!result) return result.error();
      for (const Id& id : *result) wanted.Insert(*KeyOf(id), 0);
    }
    for (const CommitRecord& commit : *window) {
      const bool is_wanted = !m_hooks.wanted || wanted.Contains(*KeyOf(commit.id));
      const Result<bool> taken = TakeCommit(commit, is_wanted, head);
      if (!taken) return taken.error();
      goes_on = *taken;
      if (!goes_on) break;
    }
  }
  return {};
}

// Returns false if the history needs not be read further.
Result<bool> HistoryWalk::TakeCommit(const CommitRecord& commit, bool isWanted, const Head& head) {
  const ObjectKey key = *KeyOf(commit.id);
  const auto index = static_cast<std::uint32_t>(m_nodes.size());
  const auto [known, added] = m_commits.Insert(key, index);
  // The node before is the child, unless this is the head.
  if (index > 0 && !(commit.id == head.id)) m_nodes.back().parent = *known;
  if (!added) return false;
  Node& node = m_nodes.emplace_back();
  node.id = key;
  node.isKnown = !isWanted;
  node.hasRoot = !commit.problem && !commit.root.View().IsEmpty();
  if (node.hasRoot) node.root = *KeyOf(commit.root);
  if (node.isKnown) return false;
  if (commit.problem) {
    node.isReadable = false;
    node.damage = m_damages.Add(DamagedCommit(commit.id, head.name, *commit.problem));
    m_damages.CountCommit(node.damage);
    return false;
  }
  const std::optional<ReadProblem> replaced =
      m_hooks.replaced ? m_hooks.replaced(commit.id) : std::nullopt;
  if (replaced) m_hooks.replacedAt(DamagedCommit(commit.id, head.name, *replaced));
  if (m_hooks.commitRead) {
    const Status status = m_hooks.commitRead(commit);
    if (!status) return status.error();
  }
  const Status status = m_reporter.Add(1, commit.packed.GetSize());
  if (!status) return status.error();
  return true;
}

// Walks the trees of the nodes from `first` on, which are newest first, and finishes them.
Status HistoryWalk::WalkTrees(std::uint32_t first, const std::string& branch) {
  std::size_t last = m_nodes.size();
  while (last > first) {
    const std::size_t begin = std::max<std::size_t>(first, last - std::min(last, kRootsTogether));
    std::vector<TreeWalk::Root> roots;
    for (std::size_t index = last; index-- > begin;) {
      const Node& node = m_nodes[index];
      if (!node.hasRoot || node.isKnown) continue;
      const bool has_previous = node.parent != kNone && m_nodes[node.parent].hasRoot;
      roots.push_back(
          {IdOf(node.root), IdOf(node.id), has_previous ? IdOf(m_nodes[node.parent].root) : Id()});
    }
    Status status = m_trees.Walk(std::move(roots), branch);
    for (std::size_t index = last; status && index-- > begin;) {
      status = FinishCommit(m_nodes[index]);
    }
    if (!status) return status;
    last = begin;
  }
  return {};
}

Status HistoryWalk::FinishCommit(Node& node) {
  if (!node.isReadable || node.isKnown) return {};
  const std::uint32_t own = node.hasRoot ? m_trees.DamageOf(IdOf(node.root)) : NumberSets::kEmpty;
  m_damages.CountCommit(own);
  node.damage = own;
  node.commits = 1;
  node.wholeCommits = own == NumberSets::kEmpty ? 1 : 0;
  if (node.parent != kNone) {
    const Node& parent = m_nodes[node.parent];
    node.damage = m_damages.Sets().Union(own, parent.damage);
    node.commits += parent.commits;
    node.wholeCommits += parent.wholeCommits;
  }
  if (!m_hooks.commitDone) return {};
  return m_hooks.commitDone(IdOf(node.id), node.damage == NumberSets::kEmpty);
}

BranchReport HistoryWalk::ReportOn(const Head& head) const {
  BranchReport report;
  report.name = head.name;
  report.head = head.id;
  report.state = BranchState::Whole;
  if (head.id.View().IsEmpty()) return report;
  const std::optional<ObjectKey> key = KeyOf(head.id);
  if (!key || !m_nodes[*m_commits.Find(*key)].isReadable) {
    report.state = BranchState::Lost;
    return report;
  }
  const Node& node = m_nodes[*m_commits.Find(*key)];
  if (node.damage != NumberSets::kEmpty) report.state = BranchState::Partial;
  report.commits = node.commits;
  report.wholeCommits = node.wholeCommits;
  return report;
}

}  // namespace TalVcs::Kit
