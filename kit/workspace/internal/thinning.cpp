// A version that goes leaves its place to the nearest kept one before it. What it has merged goes
// over to the versions after it:
//
//     A---b---M---d---E          A-------E      E merges y's nearest kept one, X
//        \   .               ->     \   .
//         X-y                        X--
//
// Small letters go. A merge base of two branches goes only with everything before it.

#include <kit/workspace/internal/thinning.h>

#include <algorithm>

namespace TalVcs::Kit {

ThinnedHistory::ThinnedHistory(const HistoryGraph& graph, const std::vector<bool>& kept)
    : m_graph(graph), m_versions(graph.Count()), m_lists(1) {
  for (Index i = 0; i < graph.Count(); ++i) {
    Version& version = m_versions[i];
    version.merges = MergesSinceNearest(i);
    const Index parent = graph[i].parent;
    version.nearest = kept[i]                         ? i
                      : parent == HistoryGraph::kNone ? parent
                                                      : m_versions[parent].nearest;
    version.isChanged = kept[i] && Changes(i, kept);
  }
}

// The list of a kept version is what it says to have merged. What follows it begins anew.
std::uint32_t ThinnedHistory::MergesSinceNearest(Index index) {
  const Index parent = m_graph[index].parent;
  const bool goes_on = parent != HistoryGraph::kNone && m_versions[parent].nearest != parent;
  const std::uint32_t before = goes_on ? m_versions[parent].merges : 0;
  const auto merges = m_graph.MergesOf(index);
  if (merges.empty()) return before;
  std::vector<Index> list = m_lists[before];
  const auto add = [&list](Index version) {
    if (std::ranges::find(list, version) == list.end()) list.push_back(version);
  };
  for (const auto& [merging, merged] : merges) {
    if (!IsKept(merged)) std::ranges::for_each(m_lists[m_versions[merged].merges], add);
    if (m_versions[merged].nearest != HistoryGraph::kNone) add(m_versions[merged].nearest);
  }
  if (list == m_lists[before]) return before;
  m_lists.push_back(std::move(list));
  return static_cast<std::uint32_t>(m_lists.size() - 1);
}

bool ThinnedHistory::Changes(Index index, const std::vector<bool>& kept) const {
  const HistoryGraph::Node& node = m_graph[index];
  const auto changes = [this](Index version) { return m_versions[version].isChanged; };
  const Index parent = ParentOf(index);
  if (parent != node.parent || (parent != HistoryGraph::kNone && changes(parent))) return true;
  for (const Index named : {node.undoes, node.redoes}) {
    if (named == HistoryGraph::kNone) continue;
    if (named == HistoryGraph::kLost || named >= index || !kept[named] || changes(named))
      return true;
  }
  const auto before = m_graph.MergesOf(index);
  const std::vector<Index>& now = MergesOf(index);
  const bool has_same = std::ranges::equal(before, now, {}, &HistoryGraph::Merge::second);
  return node.hasLostMerges || !has_same || std::ranges::any_of(now, changes);
}

HistoryGraph::Index ThinnedHistory::ParentOf(Index index) const {
  const Index parent = m_graph[index].parent;
  return parent == HistoryGraph::kNone ? parent : m_versions[parent].nearest;
}

const std::vector<HistoryGraph::Index>& ThinnedHistory::MergesOf(Index index) const {
  return m_lists[m_versions[index].merges];
}

bool ThinnedHistory::IsCut(Index index) const {
  return m_graph[index].parent != HistoryGraph::kNone && ParentOf(index) == HistoryGraph::kNone;
}

}  // namespace TalVcs::Kit
