#include <kit/text.h>
#include <kit/workspace/internal/branch_bases.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/reachable_objects.h>
#include <kit/workspace/internal/thinning.h>

#include <algorithm>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

namespace TalVcs::Kit {

namespace {

using Index = HistoryGraph::Index;

/// An hour or a day: whether it is an hour, and its number since 1970.
using Span = std::pair<bool, std::int64_t>;
/// Numbers of checkpoints.
using Counts = std::map<Span, std::uint64_t>;

/// Takes versions by a rule.
class Choice {
 public:
  Choice(WorkspaceState& state, const HistoryGraph& graph, const Retention& rule)
      : m_state(state), m_graph(graph), m_rule(rule), m_kept(graph.Count()) {}

  Result<std::vector<bool>> Run(Reporter& reporter) {
    for (const HistoryGraph::Branch& branch : m_graph.Branches()) m_kept[branch.head] = true;
    Status status = reporter.Begin("bases");
    if (status && m_rule.GetKind() != Retention::Kind::Through) status = KeepBases(reporter);
    if (status) status = reporter.End();
    if (!status) return status.error();
    switch (m_rule.GetKind()) {
      case Retention::Kind::Newest:
        KeepNewest();
        break;
      case Retention::Kind::Since:
        KeepIf([this](const auto& node) { return node.Time() >= m_rule.GetTime(); });
        break;
      case Retention::Kind::Under:
        status = KeepUnder(reporter);
        break;
      case Retention::Kind::Thin:
        KeepIf([](const auto& node) { return !node.isCheckpoint; });
        Thin();
        break;
      case Retention::Kind::TipsAndForks:
        KeepIf([](const auto& node) { return node.children > 1; });
        break;
      case Retention::Kind::Through:
        status = ForgetThrough();
        break;
    }
    if (!status) return status.error();
    return std::move(m_kept);
  }

 private:
  Status KeepBases(Reporter& reporter) {
    const Result<std::vector<Index>> bases = FindBranchBases(m_graph, reporter);
    if (!bases) return bases.error();
    for (const Index base : *bases) m_kept[base] = true;
    return {};
  }

  /// Keeps all versions that aren't in the line of the last one that goes.
  Status ForgetThrough() {
    const std::optional<ObjectKey> last = KeyOf(m_rule.GetVersion());
    const auto& nodes = m_graph.Nodes();
    const auto found = std::ranges::find_if(
        nodes, [&](const HistoryGraph::Node& node) { return last && node.id == *last; });
    if (found == nodes.end()) {
      const std::string id = ToUtf8(m_rule.GetVersion().View());
      return WorkspaceError(ErrorCode::NotFound, "no branch has a version \"" + id + "\"", id);
    }
    std::vector<bool> goes(m_graph.Count());
    for (auto at = static_cast<Index>(found - nodes.begin()); at != HistoryGraph::kNone;
         at = m_graph[at].parent) {
      goes[at] = true;
    }
    for (Index i = 0; i < m_graph.Count(); ++i) {
      if (!goes[i]) m_kept[i] = true;
    }
    return {};
  }

  template <class Predicate>
  void KeepIf(Predicate is_kept) {
    for (Index i = 0; i < m_graph.Count(); ++i) {
      if (is_kept(m_graph[i])) m_kept[i] = true;
    }
  }

  /// Goes down all branches at once. A version before another one may be kept if the other one
  /// leaves something of the count, on any branch.
  void KeepNewest() {
    std::vector<std::uint64_t> left(m_graph.Count());
    for (const HistoryGraph::Branch& branch : m_graph.Branches()) {
      if (!branch.isTag) left[branch.head] = m_rule.GetCount();
    }
    for (Index i = m_graph.Count(); i-- > 0;) {
      if (left[i] == 0) continue;
      m_kept[i] = true;
      const Index parent = m_graph[i].parent;
      if (parent != HistoryGraph::kNone) left[parent] = std::max(left[parent], left[i] - 1);
    }
  }

  Span SpanOf(std::chrono::sys_seconds time) const {
    using std::chrono::days;
    using std::chrono::floor;
    using std::chrono::hours;
    // A version's time has 32 bits, the rule's may be any.
    const bool is_recent = time + days(1) > m_rule.GetTime();
    return {is_recent, is_recent ? floor<hours>(time).time_since_epoch().count()
                                 : floor<days>(time).time_since_epoch().count()};
  }

  /// Goes down all branches at once, with the number of checkpoints of each hour and day that come
  /// later on the branch that has the fewest of them. No entry: none.
  void Thin() {
    std::unordered_map<Index, Counts> counts;  // of versions that were met and not visited
    for (const HistoryGraph::Branch& branch : m_graph.Branches()) {
      if (!branch.isTag) counts.try_emplace(branch.head);
    }
    for (Index i = m_graph.Count(); i-- > 0;) {
      auto met = counts.extract(i);
      if (met.empty()) continue;
      Counts& later = met.mapped();
      const HistoryGraph::Node& node = m_graph[i];
      if (node.isCheckpoint) {
        const Span span = SpanOf(node.Time());
        if (later[span]++ < (span.first ? m_rule.GetCount() : m_rule.GetPerDay())) m_kept[i] = true;
      }
      if (node.parent == HistoryGraph::kNone) continue;
      const auto [other, is_new] = counts.try_emplace(node.parent, std::move(later));
      if (!is_new) TakeFewest(other->second, std::move(met.mapped()));
    }
  }

  static void TakeFewest(Counts& counts, Counts&& others) {
    if (others.size() < counts.size()) counts.swap(others);
    for (auto entry = counts.begin(); entry != counts.end();) {
      const auto other = others.find(entry->first);
      if (other == others.end()) {
        entry = counts.erase(entry);
      } else {
        entry->second = std::min(entry->second, other->second);
        ++entry;
      }
    }
  }

  Status KeepUnder(Reporter& reporter) {
    ReachableObjects objects(*m_state.store, reporter);
    Status status = reporter.Begin("contents");
    for (Index i = 0; i < m_graph.Count() && status; ++i) {
      if (m_kept[i]) status = objects.Add(m_graph[i]);
    }
    for (const Index at : m_graph.ByTime()) {
      if (!status || objects.SizeBytes() > m_rule.GetCount()) break;
      if (m_kept[at]) continue;
      status = objects.Add(m_graph[at]);
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
