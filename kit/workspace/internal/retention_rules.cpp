#include <kit/workspace/internal/ancestry.h>
#include <kit/workspace/internal/reachable_objects.h>
#include <kit/workspace/internal/thinning.h>

#include <map>
#include <string>
#include <tuple>
#include <utility>

namespace TalVcs::Kit {

namespace {

/// Takes versions by a rule.
class Choice {
 public:
  Choice(WorkspaceState& state, const HistoryGraph& graph, const Retention& rule)
      : m_state(state), m_graph(graph), m_rule(rule), m_kept(graph.Nodes().size()) {}

  Result<std::vector<bool>> Run(Reporter& reporter) {
    Status status = reporter.Begin("bases");
    if (status) status = KeepHeadsAndBases(reporter);
    if (status) status = reporter.End();
    if (!status) return status.error();
    switch (m_rule.GetKind()) {
      case Retention::Kind::Newest:
        KeepNewest();
        break;
      case Retention::Kind::Since:
        KeepIf([this](std::size_t at) { return m_graph.TimeOf(at) >= m_rule.GetTime(); });
        break;
      case Retention::Kind::Under:
        status = KeepUnder(reporter);
        break;
      case Retention::Kind::Thin:
        KeepIf([this](std::size_t at) { return !m_graph[at].message.annotations.isCheckpoint; });
        Thin();
        break;
      case Retention::Kind::TipsAndForks:
        KeepIf([this](std::size_t at) { return m_graph[at].children > 1; });
        break;
    }
    if (!status) return status.error();
    return std::move(m_kept);
  }

 private:
  Status KeepHeadsAndBases(Reporter& reporter) {
    for (const HistoryGraph::Branch& branch : m_graph.Branches()) {
      m_kept[branch.head] = true;
      if (branch.isTag) continue;
      for (const HistoryGraph::Branch& other : m_graph.Branches()) {
        if (&other == &branch) break;
        if (other.isTag) continue;
        const auto bases = FindMergeBases(m_state.GetRepository(), m_graph[branch.head].commit,
                                          m_graph[other.head].commit, reporter);
        if (!bases) return bases.error();
        for (const cow_ptr<Commit>& base : *bases) {
          // What is merged may be on no branch any more.
          if (const auto index = m_graph.Find(base->GetId())) m_kept[*index] = true;
        }
      }
    }
    return {};
  }

  template <class Predicate>
  void KeepIf(Predicate isKept) {
    for (std::size_t i = 0; i < m_kept.size(); ++i) {
      if (isKept(i)) m_kept[i] = true;
    }
  }

  /// Calls a function for each version of each branch, newest first, until it returns false.
  template <class Visit>
  void VisitBranches(Visit visit) {
    for (const HistoryGraph::Branch& branch : m_graph.Branches()) {
      if (branch.isTag) continue;
      std::optional<std::size_t> at = branch.head;
      while (at && visit(branch, *at)) at = m_graph[*at].parent;
    }
  }

  void KeepNewest() {
    std::map<std::string, std::uint64_t> counts;
    VisitBranches([&](const HistoryGraph::Branch& branch, std::size_t at) {
      if (counts[branch.name]++ == m_rule.GetCount()) return false;
      m_kept[at] = true;
      return true;
    });
  }

  void Thin() {
    using std::chrono::days;
    using std::chrono::floor;
    using std::chrono::hours;
    std::map<std::tuple<std::string, bool, std::int64_t>, std::uint64_t> counts;
    VisitBranches([&](const HistoryGraph::Branch& branch, std::size_t at) {
      if (!m_graph[at].message.annotations.isCheckpoint) return true;
      const std::chrono::sys_seconds time = m_graph.TimeOf(at);
      const bool is_recent = time > m_rule.GetTime() - days(1);
      const std::int64_t span = is_recent ? floor<hours>(time).time_since_epoch().count()
                                          : floor<days>(time).time_since_epoch().count();
      const std::uint64_t most = is_recent ? m_rule.GetCount() : m_rule.GetPerDay();
      if (counts[{branch.name, is_recent, span}]++ < most) m_kept[at] = true;
      return true;
    });
  }

  Status KeepUnder(Reporter& reporter) {
    ReachableObjects objects(*m_state.store, reporter);
    const auto add = [&](std::size_t at) {
      const cow_ptr<CommitTree> tree = m_graph[at].commit->GetTree();
      return objects.Add(m_graph[at].id, tree ? tree->GetRootId() : Id());
    };
    Status status = reporter.Begin("contents");
    for (std::size_t i = 0; i < m_kept.size() && status; ++i) {
      if (m_kept[i]) status = add(i);
    }
    for (const std::size_t at : m_graph.ByTime()) {
      if (!status || objects.SizeBytes() > m_rule.GetCount()) break;
      if (m_kept[at]) continue;
      status = add(at);
      m_kept[at] = objects.SizeBytes() <= m_rule.GetCount();
    }
    return status ? reporter.End() : status;
  }

  WorkspaceState& m_state;
  const HistoryGraph& m_graph;
  const Retention& m_rule;
  std::vector<bool> m_kept;
};

}  // namespace

Result<std::vector<bool>> ChooseVersions(WorkspaceState& state, const HistoryGraph& graph,
                                         const Retention& rule, Reporter& reporter) {
  return Choice(state, graph, rule).Run(reporter);
}

}  // namespace TalVcs::Kit
